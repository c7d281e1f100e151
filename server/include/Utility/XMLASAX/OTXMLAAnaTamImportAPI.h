#pragma once

#include "Import/OTXMLAImportAPI.h"
#include "Utility/Generic/MemAlloc.h"
#include "Utility/XMLASAX/XmlADiscoverAgent.h"

/// Imports cubes of Analysis Services, SAP BW and Tamarind over XMLA. See OTXMLAImportAPI for the
/// contract.
class OTXMLAAnaTamImportAPI : public OTXMLAImportAPI, public MemAllocNewdel {
 public:
  OTXMLAAnaTamImportAPI();
  OTXMLAAnaTamImportAPI(const OTXMLAAnaTamImportAPI&) = delete;
  OTXMLAAnaTamImportAPI& operator=(const OTXMLAAnaTamImportAPI&) = delete;
  ~OTXMLAAnaTamImportAPI() override;

  void SetupConnInfo(const String& url, const String& user, const String& password,
                     ServerInfo::TargetType targetType, ServerInfo::CLIType cliType) override;
  void GetDataSourceInfo(std::vector<OTDataSource>& dataSources, String& errors,
                         String& warnings) override;
  void GetDataSourceNames(VXStringVector& names, String& errors, String& warnings) override;
  void SetImportChoiceInfo(const String& dataSource, const String& catalog,
                           const String& cube) override;
  void GetHierarchies(std::vector<OTXMLAHierarchy>& hierarchies, String& errors,
                      String& warnings) override;
  void GetMeasuresAndCalcMembers(std::vector<OTXMLAUnit>& units, String& errors,
                                 String& warnings) override;
  void GetSAPVariables(OTCube& cube, String& errors, String& warnings) override;

  /// Reads the provider's identity and returns the detected kind. If it differs from the configured
  /// one, appends the warning kMessageTargetMismatch. The configured kind stays in use. Throws
  /// ErrorMessage.
  ServerInfo::TargetType CheckTargetType(String& warnings);

  /// Detects the kind by the provider's name (ignoring case) and the prefix of its version.
  static ServerInfo::TargetType DetectTargetType(const String& providerName,
                                                 const String& providerVersion);

 protected:
  XmlADiscoverAgentHeap m_DiscoverAgent;  // null before SetupConnInfo
};
