#include <utility>

#include "Import/OTXMLAImportEntry.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/ImportOperation.h"
#include "Utility/XMLASAX/OTXMLAAnaTamImportAPI.h"

namespace {

constexpr int kMessageSoapFault = 64203;

/// True when the provider told its name; false when it answered without one or with a fault.
bool AskIdentity(const String& url, const String& user, const String& password,
                 ServerInfo::TargetType target, ServerInfo::CLIType cliType,
                 std::pair<String, String>& identity, ErrorMessage& fault) {
  const XmlADiscoverAgentHeap agent =
      XmlADiscoverAgent::Create(url, user, password, target, cliType, false);
  try {
    agent->GetProviderInfomation(identity);
  } catch (const ErrorMessage& error) {
    if (error.GetNumber() != kMessageSoapFault) throw;
    fault = error;
    return false;
  }
  return !identity.first.empty();
}

}  // namespace

OTXMLAImportAPI* OTXMLACreateImport() { return new OTXMLAAnaTamImportAPI; }

bool OTXMLAIdentifyProvider(const String& url, const String& user, const String& password,
                            ServerInfo::CLIType cliType, OTXMLAProviderIdentity& identity,
                            String& errors) {
  const ImportOperation operation;
  try {
    std::pair<String, String> told;
    ErrorMessage fault{String()};
    if (!AskIdentity(url, user, password, ServerInfo::kTessera, cliType, told, fault)) {
      // The Tamarind family answers another question.
      fault = ErrorMessage(String());
      std::pair<String, String> second;
      if (!AskIdentity(url, user, password, ServerInfo::kTamarind7, cliType, second, fault) &&
          fault.GetNumber() != 0 && second.first.empty())
        throw fault;
      if (second.second.empty()) second.second = told.second;
      told = second;
    }
    identity.name = told.first;
    identity.version = told.second;
    identity.target = OTXMLAAnaTamImportAPI::DetectTargetType(told.first, told.second);
    return true;
  } catch (const ErrorMessage& error) {
    error.RetrieveErrorMessages(errors);
    return false;
  }
}
