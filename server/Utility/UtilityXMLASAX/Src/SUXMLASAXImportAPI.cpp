#include "Import/OTXMLAImportAPI.h"

// Default implementations of the host interface. XMLA needs no open connection and has no
// applications, so most of them do nothing.

OTXMLAImportAPI::OTXMLAImportAPI() = default;
OTXMLAImportAPI::~OTXMLAImportAPI() {
  m_url.Erase();  // may contain a password
  m_password.Erase();
}

void OTXMLAImportAPI::OpenConnection() {}
void OTXMLAImportAPI::CloseConnection() {}

void OTXMLAImportAPI::SetConnectParameters(ConnectParameters& parameters,
                                           const String& requiredVersion) {
  m_connectParameters = parameters;
  m_requiredVersion = requiredVersion;
}

void OTXMLAImportAPI::GetConnectParameters(ConnectParameters& parameters) const {
  parameters = m_connectParameters;
}

String OTXMLAImportAPI::GetRequiredVersion() const { return m_requiredVersion; }

ServerInfo::TargetType OTXMLAImportAPI::GetTargetType() { return m_targetType; }

void OTXMLAImportAPI::FlatDimensionToMeasures(const String&, std::vector<OTXMLAUnit>&, String&,
                                              String&) {}
void OTXMLAImportAPI::PrepareForApplicationAndCube(String&, String&) {}
void OTXMLAImportAPI::GetAppCubeNames(std::set<String>&) {}
void OTXMLAImportAPI::GetCubeInfo(const String&, const String&, OTCube&, String&, String&) {}
void OTXMLAImportAPI::GetVariables(OTDataSource&, String&, String&) {}

void OTXMLAImportAPI::SetImportOption(const OTXMLAImportOption& option) {
  m_importOption.m_bFlatMeasureListFlag = option.m_bFlatMeasureListFlag;
  m_importOption.m_bSkipDimensionUDA = option.m_bSkipDimensionUDA;
  m_importOption.m_forceSingleViewHierarchyNames = option.m_forceSingleViewHierarchyNames;
}

void OTXMLAImportAPI::GetObject(const String&, const String&, const String&, const String&, String&,
                                String&) {}

int OTXMLAImportAPI::GetVersionInfo(int&, int&, int&, String&, String&) { return 1; }
