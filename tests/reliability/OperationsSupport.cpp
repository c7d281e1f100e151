#include "OperationsSupport.h"

#include <algorithm>
#include <new>

#include "Import/OTXMLAImportEntry.h"
#include "Utility/Generic/ErrorMessage.h"
#include "support/Text.h"

namespace reliability {

using support::Narrow;

const Kind kKinds[3] = {
    {"analysis-services", "/analysis-services", ServerInfo::kAnalysisServices2005, L"NORTHQUAY",
     L"Larkspur Finance", L"Ledger", L"[Date].[Calendar]", L"[Date].[Calendar].[2024]"},
    {"sap-bw", "/sap-bw", ServerInfo::kSAP_BW35, L"default", L"ZVSALES", L"ZVSALES/ZVSALES_Q001",
     L"[0CALMONTH]", L"[0CALMONTH].[All]"},
    {"tamarind", "/tamarind", ServerInfo::kTamarind7, L"Provider=Kelvora;Data Source=archive",
     L"Steamers", L"Log", L"[Route]", L"[Route].[Route]"},
};

const std::vector<Operation> kOperations = [] {
  std::vector<Operation> operations = {
      {"SetupConnInfo", true, true,
       [](Subject& s, Outputs&) {
         OTXMLAAnaTamImportAPI import;
         import.SetupConnInfo(s.url, L"ann", L"secret", s.kind.target, ServerInfo::kCLIXMLA);
       }},
      {"create and destroy", true, true,
       [](Subject&, Outputs&) {
         const std::unique_ptr<OTXMLAImportAPI> import(OTXMLACreateImport());
       }},
      {"identify", false, true,
       [](Subject& s, Outputs& o) {
         OTXMLAProviderIdentity identity;
         if (OTXMLAIdentifyProvider(s.url, L"", L"", ServerInfo::kCLIXMLA, identity, o.errors))
           o.identity = {identity.name, identity.version};
       }},
  };
  for (const support::ImportOperation& operation : support::ImportOperations())
    operations.push_back({operation.name, operation.throwsErrors, true,
                          [run = operation.run](Subject& s, Outputs& o) { run(s.import, o); }});
  for (const support::AgentOperation& operation : support::AgentOperations())
    operations.push_back(
        {operation.name, true, operation.isPrefix,
         [run = operation.run](Subject& s, Outputs& o) { run(*s.agent, s.place, o); }});
  return operations;
}();

Subject::Subject(const Kind& theKind, std::string theUrl)
    : kind(theKind),
      url(support::Wide(theUrl)),
      place{theKind.source,
            theKind.catalog,
            theKind.cube,
            theKind.hierarchy,
            theKind.member,
            RefCnt<XmlAHierarchy>(new XmlAHierarchy(theKind.target, ServerInfo::kCLIXMLA))},
      agent(XmlADiscoverAgent::Create(url, L"", L"", theKind.target, ServerInfo::kCLIXMLA, true)) {
  import.SetupConnInfo(url, L"", L"", theKind.target, ServerInfo::kCLIXMLA);
  import.SetImportChoiceInfo(place.source, place.catalog, place.cube);
  place.hierarchyRow->AppendValueName(L"HIERARCHY_UNIQUE_NAME", place.hierarchy);
}

std::string ThrownText(Outcome::End& end) {
  try {
    throw;
  } catch (const ErrorMessage& error) {
    end = Outcome::End::kErrorMessage;
    String text;
    error.RetrieveErrorMessages(text);
    return Narrow(text);
  } catch (const std::bad_alloc&) {
    end = Outcome::End::kOutOfMemory;
    return "out of memory";
  } catch (const std::exception& error) {
    end = Outcome::End::kOtherException;
    return error.what();
  }
}

void TakeTexts(const Outputs& outputs, Outcome& outcome) {
  outcome.records = outputs.Records();
  outcome.errors = Narrow(outputs.errors);
  outcome.warnings = Narrow(outputs.warnings);
}

bool operator==(const Outcome& a, const Outcome& b) {
  return a.end == b.end && a.records == b.records && a.errors == b.errors &&
         a.warnings == b.warnings;
}

std::string ToText(const Outcome& outcome) {
  std::string text = "ended " + std::to_string(static_cast<int>(outcome.end)) + " " +
                     outcome.thrown + "\nerrors: " + outcome.errors +
                     "warnings: " + outcome.warnings;
  for (const std::string& record : outcome.records) text += "\n" + record;
  return text;
}

std::string Violation(const Operation& operation, const Outcome& outcome, const Outcome& whole) {
  if (outcome == whole) return "";
  if (outcome.end == Outcome::End::kOtherException) return "an unexpected exception";
  if (outcome.end == Outcome::End::kErrorMessage && !operation.throwsErrors)
    return "an ErrorMessage passed to the caller of an operation that reports errors as text";
  if (!outcome.errors.starts_with("before\n") || !outcome.warnings.starts_with("before\n"))
    return "the previous content of errors or warnings is missing";
  const bool isWarned = outcome.warnings != whole.warnings;
  const auto comparable = [isWarned](const std::string& record) {
    return isWarned ? record.substr(0, record.find(support::kMemberMark)) : record;
  };
  const auto same = [&](const std::string& a, const std::string& b) {
    return comparable(a) == comparable(b);
  };
  if (outcome.IsWhole()) {
    return std::equal(outcome.records.begin(), outcome.records.end(), whole.records.begin(),
                      whole.records.end(), same)
               ? ""
               : "no error, but records are missing";
  }
  // With nothing done yet, only the previous content of the lists is there.
  auto place = whole.records.begin();
  for (const std::string& record : outcome.records) {
    const auto found =
        operation.isPrefix && place != whole.records.end() && !same(*place, record)
            ? whole.records.end()
            : std::find_if(place, whole.records.end(),
                           [&](const std::string& other) { return same(record, other); });
    if (found == whole.records.end())
      return "a record that the undisturbed operation does not return: " + record;
    place = std::next(found);
  }
  return "";
}

}  // namespace reliability
