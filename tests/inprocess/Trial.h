#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "inprocess/Operations.h"
#include "inprocess/SampleReplies.h"

namespace inprocess {

/// Runs one operation of an agent with any number of replies, and checks each outcome.
class Trial {
 public:
  enum class Outcome { kRead, kFault, kParseError, kNotXml };

  /// The sample provider of this kind gives the normal replies.
  Trial(ServerInfo::TargetType target, const Exchange& exchange);
  Trial(const Trial&) = delete;
  Trial& operator=(const Trial&) = delete;

  /// Reads the reply and, if `andNext`, a normal one after it. Returns a description of the first
  /// violation; empty if there is none. Expected are rows or a one-line error, consistent with
  /// libxml2's view of the reply. The second reply must be read as if the first had not happened.
  std::string Try(std::string_view reply, bool andNext = true);
  /// Outcome of the reply under test.
  Outcome LastOutcome() const { return m_outcome; }

 private:
  struct Result {
    int number = kNoError;
    std::vector<std::string> records;
    String text;
  };
  static constexpr int kNoError = -1;

  Result Run(std::string_view reply);
  std::string Compare(std::string_view reply, const Result& result) const;

  const ServerInfo::TargetType m_target;
  const Exchange& m_exchange;
  const XmlADiscoverAgentHeap m_agent;
  const std::string m_normal;
  std::vector<std::string> m_normalRecords;
  Outcome m_outcome = Outcome::kRead;
};

}  // namespace inprocess
