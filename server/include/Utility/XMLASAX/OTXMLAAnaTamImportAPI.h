#pragma once

#include "Import/OTXMLAImportAPI.h"
#include "Utility/Generic/MemAlloc.h"
#include "Utility/XMLASAX/XmlADiscoverAgent.h"

/// The import of Analysis Services, SAP BW and Tamarind cubes over XMLA. OTXMLAImportAPI states
/// what each operation does.
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

  /// Asks the provider who it is and appends warning 62010 when that is another kind than the
  /// configured one. Returns the detected kind; the configured one stays in force.
  ServerInfo::TargetType CheckTargetType(String& warnings);

  /// The kind that a provider's name (any case) and version (its leading characters) make it.
  static ServerInfo::TargetType DetectTargetType(const String& providerName,
                                                 const String& providerVersion);

 protected:
  XmlADiscoverAgentHeap m_DiscoverAgent;  // empty until the first SetupConnInfo
};
