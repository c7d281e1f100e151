#pragma once

#include <map>
#include <string>

#include "inprocess/Operations.h"
#include "inprocess/Server.h"

namespace inprocess {

/// An import object that lives through any number of imports from servers that answer as they like.
class ImportTrial {
 public:
  /// `target`: the configured kind; the proper replies are those of the sample server closest to
  /// it.
  explicit ImportTrial(ServerInfo::TargetType target);
  ImportTrial(const ImportTrial&) = delete;
  ImportTrial& operator=(const ImportTrial&) = delete;

  /// Gives the reply to a request, or an empty text for the proper one. `number` counts from 0.
  using Hostile = std::function<std::string(std::string_view requestType, std::size_t number)>;
  /// Runs the operation against the hostile server, then against a proper one. The complaint is
  /// empty when all is as it must be: a result, errors of one line, or the one logic error that the
  /// import knows; and after that a proper import as if nothing had happened.
  std::string Try(const ImportOperation& operation, const Hostile& hostile);
  /// What came of the hostile server.
  enum class Outcome { kDone, kErrors, kLevelNumbers };
  Outcome LastOutcome() const { return m_outcome; }

 private:
  /// A server can make an import ask on and on, a hierarchy or catalog at a time: it is not there
  /// any longer after so many requests.
  static constexpr std::size_t kMostRequests = 60;

  std::string Run(const ImportOperation& operation, const Hostile& hostile, std::string& complaint);

  const ServerInfo::TargetType m_sample;
  const Heap<OTXMLAImportAPI> m_import;
  std::map<std::string, std::string> m_proper;
  Outcome m_outcome = Outcome::kDone;
};

}  // namespace inprocess
