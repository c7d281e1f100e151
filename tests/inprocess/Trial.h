#pragma once

#include <string>
#include <string_view>

#include "inprocess/Operations.h"
#include "inprocess/SampleReplies.h"

namespace inprocess {

/// One exchange of an agent that lives through any number of replies, however bad they are.
class Trial {
 public:
  enum class Outcome { kRead, kFault, kParseError, kNotXml };

  /// A server of the kind whose sample replies are the proper ones.
  Trial(ServerInfo::TargetType target, const Exchange& exchange);
  Trial(const Trial&) = delete;
  Trial& operator=(const Trial&) = delete;

  /// Reads the reply and, with `andNext`, a proper one behind it. The complaint is empty when all
  /// is as it must be: rows, or one line of error text, in accordance with what the XML library
  /// says of the reply; and after that the proper reply read as if nothing had happened.
  std::string Try(std::string_view reply, bool andNext = true);
  /// What came of the reply.
  Outcome LastOutcome() const { return m_outcome; }

 private:
  struct Result {
    int number = kNoError;
    std::string records;
    String text;
  };
  static constexpr int kNoError = -1;

  Result Run(std::string_view reply);
  std::string Compare(std::string_view reply, const Result& result) const;

  const ServerInfo::TargetType m_target;
  const Exchange& m_exchange;
  const XmlADiscoverAgentHeap m_agent;
  const std::string m_good;
  std::string m_goodRecords;
  Outcome m_outcome = Outcome::kRead;
};

}  // namespace inprocess
