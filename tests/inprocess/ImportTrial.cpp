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
  std::string complaint;
  for (const support::ImportOperation& operation : support::ImportOperations())
    m_proper[operation.name] = Run(
        operation, [](std::string_view, std::size_t) { return std::string(); }, complaint);
}

std::string ImportTrial::Run(const support::ImportOperation& operation, const Hostile& hostile,
                             std::string& complaint) {
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
    if (!operation.throwsErrors) complaint = "an error passes through";
    if (errors.empty()) complaint = "an error without text";
  } catch (const LogicError& error) {
    m_outcome = Outcome::kLevelNumbers;
    if (!error.IsOfLevelNumbers()) complaint = "a logic error at " + error.Where();
  }
  SetServer([](std::string_view) { return Answer{"", 503, "text/plain"}; });
  if (!errors.empty()) m_outcome = Outcome::kErrors;
  if (errors.find(L"\n") != String::npos) complaint = "an error of several lines";
  if (!outputs.warnings.empty() && outputs.warnings.view().back() != L'\n')
    complaint = "a warning without its line feed";
  std::string result;
  for (const std::string& record : outputs.Records()) result += record + "\n";
  return result + (errors.empty() ? "" : "failed");
}

std::string ImportTrial::Try(const support::ImportOperation& operation, const Hostile& hostile) {
  std::string complaint;
  Run(operation, hostile, complaint);
  const Outcome outcome = m_outcome;
  const std::string after = Run(
      operation, [](std::string_view, std::size_t) { return std::string(); }, complaint);
  m_outcome = outcome;
  if (complaint.empty() && after != m_proper[operation.name]) complaint = "the next import differs";
  return complaint;
}

}  // namespace inprocess
