#pragma once

#include "Utility/Generic/ErrorMessage.h"
#include "Utility/XMLASAX/OTXMLAAnaTamImportAPI.h"
#include "support/ScriptedServer.h"
#include "support/Text.h"

/// Makes the state of an import object visible.
class ImportProbe : public OTXMLAAnaTamImportAPI {
 public:
  ImportProbe() = default;
  /// Connected, with source "S", catalog "C" and cube "Q" chosen.
  ImportProbe(const std::string& url, ServerInfo::TargetType target) {
    SetupConnInfo(support::Wide(url), L"", L"", target, ServerInfo::kCLIXMLA);
    SetImportChoiceInfo(L"S", L"C", L"Q");
  }
  using OTXMLAAnaTamImportAPI::m_choiceCatalog;
  using OTXMLAAnaTamImportAPI::m_choiceCube;
  using OTXMLAAnaTamImportAPI::m_choiceDataSource;
  using OTXMLAAnaTamImportAPI::m_cliType;
  using OTXMLAAnaTamImportAPI::m_DiscoverAgent;
  using OTXMLAAnaTamImportAPI::m_importOption;
  using OTXMLAAnaTamImportAPI::m_password;
  using OTXMLAAnaTamImportAPI::m_url;
  using OTXMLAAnaTamImportAPI::m_user;
};

/// The rows of a DISCOVER_PROPERTIES reply (or DISCOVER_DATASOURCES, by the Tamarind rules) for a
/// request of the identification; empty for another request.
inline std::string IdentityReply(const support::Request& request, const std::string& name,
                                 const std::string& version) {
  const auto property = [](const std::string& key, const std::string& value) {
    return support::RowsetReply("<row><PropertyName>" + key + "</PropertyName><Value>" + value +
                                "</Value></row>");
  };
  if (request.body.find("<PropertyName>ProviderName<") != std::string::npos)
    return property("ProviderName", name);
  if (request.body.find("<PropertyName>ProviderVersion<") != std::string::npos)
    return property("ProviderVersion", version);
  return {};
}
