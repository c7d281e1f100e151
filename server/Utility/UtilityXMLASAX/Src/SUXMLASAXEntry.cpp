#include <memory>
#include <optional>
#include <tuple>
#include <utility>

#include "Import/OTXMLAImportEntry.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/ImportOperation.h"
#include "Utility/Generic/ImportSettings.h"
#include "Utility/Generic/MessageNumbers.h"
#include "Utility/XMLASAX/OTXMLAAnaTamImportAPI.h"

namespace {

/// The identity of a provider that is addressed as `target`. A fault is stored, because the name
/// may have been read before it.
struct IdentityReply {
  IdentityReply(const String& url, const String& user, const String& password,
                ServerInfo::TargetType target, ServerInfo::CLIType cliType) {
    const XmlADiscoverAgentHeap agent =
        XmlADiscoverAgent::Create(url, user, password, target, cliType, false);
    try {
      agent->GetProviderInfomation(identity);
    } catch (const ErrorMessage& error) {
      if (error.GetNumber() != kMessageSoapFault) throw;
      fault = error;
    }
  }

  bool HasName() const { return !identity.first.empty(); }

  std::pair<String, String> identity;  // name and version
  std::optional<ErrorMessage> fault;
};

}  // namespace

OTXMLAImportAPI* OTXMLACreateImport() { return new OTXMLAAnaTamImportAPI; }

bool OTXMLAIdentifyProvider(const String& url, const String& user, const String& password,
                            ServerInfo::CLIType cliType, OTXMLAProviderIdentity& identity,
                            String& errors) {
  const ImportOperation operation;
  ImportSettings settings = ImportSettings::Current();
  // The second request must not send the password with a weaker scheme than the first one.
  if (!settings.http.logInMemory) settings.http.logInMemory = std::make_shared<HTTPLogInMemory>();
  const ImportSettings::Scope scope(settings);
  try {
    IdentityReply reply(url, user, password, ServerInfo::kTessera, cliType);
    if (!reply.HasName()) {
      // The Tamarind family has its name in another rowset.
      IdentityReply second(url, user, password, ServerInfo::kTamarind7, cliType);
      if (!second.HasName() && second.fault) throw *second.fault;
      if (second.identity.second.empty()) second.identity.second = reply.identity.second;
      reply = second;
    }
    std::tie(identity.name, identity.version) = reply.identity;
    identity.target = OTXMLAAnaTamImportAPI::DetectTargetType(identity.name, identity.version);
    return true;
  } catch (const ErrorMessage& error) {
    error.RetrieveErrorMessages(errors);
    return false;
  }
}
