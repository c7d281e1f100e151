#include "inprocess/ImportTrial.h"

#include "Utility/Generic/ErrorMessage.h"
#include "inprocess/SampleReplies.h"

namespace inprocess {
namespace {

ServerInfo::TargetType SampleOf(ServerInfo::TargetType target) {
  switch (target) {
    case ServerInfo::kSAP_BW:
    case ServerInfo::kSAP_BW35:
      return ServerInfo::kSAP_BW35;
    case ServerInfo::kTamarind7:
    case ServerInfo::kTamarind9:
    case ServerInfo::kTamarind11:
    case ServerInfo::kTamarind11_1_2_3_500:
      return ServerInfo::kTamarind7;
    default:
      return ServerInfo::kAnalysisServices2005;
  }
}

}  // namespace

ImportTrial::ImportTrial(ServerInfo::TargetType target)
    : m_sample(SampleOf(target)), m_import(MakeImport(target)) {
  std::string violation;
  for (const support::ImportOperation& operation : support::ImportOperations())
    m_normal[operation.name] = Run(
        operation, [](std::string_view, std::size_t) { return std::string(); }, violation);
}

std::string ImportTrial::Run(const support::ImportOperation& operation, const Hostile& hostile,
                             std::string& violation) {
  SampleReplies();  // each replaces the process's server once
  SetServer([&, number = std::size_t{0}](std::string_view request) mutable {
    if (number == kMostRequests) return Answer{"", 503, "text/plain"};
    const std::string_view type = RequestTypeOf(request);
    const std::string reply = hostile(type, number++);
    return Answer{reply.empty() ? ShortReply(m_sample, type).body : reply};
  });
  support::Outputs outputs;
  String& errors = outputs.errors;
  m_outcome = Outcome::kDone;
  try {
    operation.run(*m_import, outputs);
  } catch (const ErrorMessage& error) {
    error.RetrieveErrorMessages(errors);
    if (!operation.throwsErrors) violation = "an ErrorMessage passed to the caller";
    if (errors.empty()) violation = "no error text";
  } catch (const LogicError& error) {
    m_outcome = Outcome::kLevelNumbers;
    if (!error.IsOfLevelNumbers()) violation = "an unexpected logic error at " + error.Where();
  }
  SetServer([](std::string_view) { return Answer{"", 503, "text/plain"}; });
  if (!errors.empty()) m_outcome = Outcome::kErrors;
  if (errors.find(L"\n") != String::npos) violation = "an error text of more than one line";
  if (!outputs.warnings.empty() && outputs.warnings.view().back() != L'\n')
    violation = "a warning does not end with a line feed";
  std::string result;
  for (const std::string& record : outputs.Records()) result += record + "\n";
  return result + (errors.empty() ? "" : "failed");
}

std::string ImportTrial::Try(const support::ImportOperation& operation, const Hostile& hostile) {
  std::string violation;
  Run(operation, hostile, violation);
  const Outcome outcome = m_outcome;
  const std::string after = Run(
      operation, [](std::string_view, std::size_t) { return std::string(); }, violation);
  m_outcome = outcome;
  if (violation.empty() && after != m_normal[operation.name])
    violation = "the next import gave another result";
  return violation;
}

}  // namespace inprocess
