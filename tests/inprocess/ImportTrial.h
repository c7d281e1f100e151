#pragma once

#include <map>
#include <string>

#include "inprocess/Operations.h"
#include "inprocess/Server.h"

namespace inprocess {

/// Runs imports with one import object against hostile replies, and checks each outcome.
class ImportTrial {
 public:
  /// `target`: the configured kind. Normal replies come from the sample provider of the closest
  /// kind.
  explicit ImportTrial(ServerInfo::TargetType target);
  ImportTrial(const ImportTrial&) = delete;
  ImportTrial& operator=(const ImportTrial&) = delete;

  /// Returns the hostile reply to a request, or an empty text for the normal reply. `number` counts
  /// requests from 0.
  using Hostile = std::function<std::string(std::string_view requestType, std::size_t number)>;
  /// Runs the operation with hostile replies, then with normal ones. Returns a description of the
  /// first violation; empty if there is none. Allowed are a result, one-line errors, or the logic
  /// error of equal level numbers. The second run must succeed as if the first had not happened.
  std::string Try(const support::ImportOperation& operation, const Hostile& hostile);
  /// Outcome of the run with hostile replies.
  enum class Outcome { kDone, kErrors, kLevelNumbers };
  Outcome LastOutcome() const { return m_outcome; }

 private:
  /// Replies can make an import send requests without end, one per hierarchy or catalog. The server
  /// answers no more after this many.
  static constexpr std::size_t kMostRequests = 60;

  std::string Run(const support::ImportOperation& operation, const Hostile& hostile,
                  std::string& violation);

  const ServerInfo::TargetType m_sample;
  const Heap<OTXMLAImportAPI> m_import;
  std::map<std::string, std::string> m_normal;
  Outcome m_outcome = Outcome::kDone;
};

}  // namespace inprocess
