#include <utility>

#include "SUXMLASAXProviderRules.h"
#include "SUXMLASAXStop.h"
#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/HostConstants.h"
#include "Utility/Generic/ImportOperation.h"
#include "Utility/Generic/MessageNumbers.h"
#include "Utility/Generic/SUStrUtil.h"
#include "Utility/Generic/Secret.h"
#include "Utility/XMLASAX/OTXMLAAnaTamImportAPI.h"

// Connection, tree of data sources, measures and variables. See SUXMLASAXAnaTamHierarchies.cpp for
// hierarchies.

namespace {

/// Prefixes of the provider version, in the order of comparison.
constexpr struct {
  const wchar_t* start;
  ServerInfo::TargetType target;
} kAnalysisServicesVersions[] = {
    {L"8.", ServerInfo::kAnalysisServices2000},  {L"9.", ServerInfo::kAnalysisServices2005},
    {L"10.", ServerInfo::kAnalysisServices2008}, {L"11.", ServerInfo::kAnalysisServices2012},
    {L"12.", ServerInfo::kAnalysisServices2012}, {L"13.", ServerInfo::kAnalysisServices2012},
};

bool ContainsIgnoringCase(const String& text, const wchar_t* pattern) {
  return BaseStringUtil::CaseInsensitiveFindPattern(text, pattern) != String::npos;
}

/// The host supports sum, count, minimum and maximum. Other aggregations are computed by the
/// provider.
OTXMLAUnit::AggrType ImportedAggregation(int code) {
  const bool isKnown = code >= OTXMLAUnit::kAggrSum && code <= OTXMLAUnit::kAggrMax;
  return isKnown ? static_cast<OTXMLAUnit::AggrType>(code) : OTXMLAUnit::kAggrExternal;
}

}  // namespace

OTXMLAAnaTamImportAPI::OTXMLAAnaTamImportAPI() = default;
OTXMLAAnaTamImportAPI::~OTXMLAAnaTamImportAPI() = default;

void OTXMLAAnaTamImportAPI::SetupConnInfo(const String& url, const String& user,
                                          const String& password, ServerInfo::TargetType targetType,
                                          ServerInfo::CLIType cliType) {
  ReplaceSecret(m_url, url);  // may contain a password
  m_user = user;
  ReplaceSecret(m_password, password);
  m_targetType = targetType;
  m_cliType = cliType;
  XmlADiscoverAgentHeap agent =
      XmlADiscoverAgent::Create(url, user, password, targetType, cliType, true);
  m_DiscoverAgent.reset();
  m_DiscoverAgent = std::move(agent);
}

void OTXMLAAnaTamImportAPI::SetImportChoiceInfo(const String& dataSource, const String& catalog,
                                                const String& cube) {
  m_choiceDataSource = dataSource;
  m_choiceCatalog = catalog;
  m_choiceCube = cube;
}

ServerInfo::TargetType OTXMLAAnaTamImportAPI::DetectTargetType(const String& providerName,
                                                               const String& providerVersion) {
  if (ContainsIgnoringCase(providerName, L"SAP") || ContainsIgnoringCase(providerName, L"BW"))
    return ServerInfo::kSAP_BW35;
  if (ContainsIgnoringCase(providerName, _S_KELVORA)) return ServerInfo::kTamarind7;
  for (const auto& version : kAnalysisServicesVersions)
    if (providerVersion.view().starts_with(version.start)) return version.target;
  return ServerInfo::kTessera;
}

ServerInfo::TargetType OTXMLAAnaTamImportAPI::CheckTargetType(String& warnings) {
  std::pair<String, String> identity;
  m_DiscoverAgent->GetProviderInfomation(identity);
  const ServerInfo::TargetType detected = DetectTargetType(identity.first, identity.second);
  if (detected != m_targetType) {
    warnings += SUStrUtil::LoadMsgStringOnly(
        kMessageTargetMismatch, {ServerInfo::GetTargetNameFromEnum(m_targetType), identity.first});
    warnings += L"\n";
  }
  return detected;
}

void OTXMLAAnaTamImportAPI::GetDataSourceNames(VXStringVector& names, String& errors,
                                               String& warnings) {
  const ImportOperation operation;
  try {
    CheckTargetType(warnings);
    m_DiscoverAgent->GetDataSourceInfo(names);
  } catch (const ErrorMessage& error) {
    error.RetrieveErrorMessages(errors);
  }
}

void OTXMLAAnaTamImportAPI::GetDataSourceInfo(std::vector<OTDataSource>& dataSources,
                                              String& errors, String& warnings) {
  // The output is cleared even on failure. Only the name of its first entry is used.
  VXStringVector names;
  const bool readsAll = dataSources.empty();
  if (!readsAll) names.push_back(dataSources.front().m_dataSourceName);
  dataSources.clear();
  const ImportOperation operation;
  try {
    CheckTargetType(warnings);
    if (readsAll) m_DiscoverAgent->GetDataSourceInfo(names);
    // Records have no move constructor, so growing would copy them.
    dataSources.reserve(names.size());
    for (const String& name : names) {
      VXStringVector catalogNames;
      m_DiscoverAgent->GetCatalogs(catalogNames, name);
      OTCatalogs catalogs;
      catalogs.reserve(catalogNames.size());
      for (const String& catalogName : catalogNames) {
        OTCatalog& catalog = catalogs.emplace_back();
        catalog.m_catalogName = catalogName;
        m_DiscoverAgent->GetCubesOnCatalog(catalog.m_cubes, catalogName, name);
      }
      OTDataSource& dataSource = dataSources.emplace_back();
      dataSource.m_dataSourceName = name;
      dataSource.m_catalogs.swap(catalogs);
    }
  } catch (const ErrorMessage& error) {
    error.RetrieveErrorMessages(errors);
  }
}

void OTXMLAAnaTamImportAPI::GetMeasuresAndCalcMembers(std::vector<OTXMLAUnit>& units,
                                                      String& errors, String&) {
  units.clear();
  const ImportOperation operation;
  try {
    std::vector<RefCnt<XmlAMeasure>> measures;
    m_DiscoverAgent->GetMeasuresOnCatalogCube(measures, m_choiceCatalog, m_choiceCube,
                                              m_choiceDataSource);
    const ProviderRules& rules = RulesOf(*m_DiscoverAgent);
    for (std::size_t i = rules.firstMeasureIsDimension ? 1 : 0; i < measures.size(); ++i) {
      ThrowIfStopped();
      const XmlAMeasure& measure = *measures[i];
      OTXMLAUnit unit;
      unit.m_name = measure.GetCaption();
      unit.m_externalName = measure.GetName();
      unit.m_aggrType = ImportedAggregation(measure.GetAggrType());
      const String precision = measure.GetPrecision();
      if (!precision.empty()) unit.m_precision = BaseStringUtil::IntFrom(precision);
      const String scale = measure.GetScale();
      if (!scale.empty()) unit.m_scale = BaseStringUtil::Int16From(scale);
      unit.m_type = rules.measureType(measure.GetType());
      units.push_back(unit);
    }
  } catch (const ErrorMessage& error) {
    error.RetrieveErrorMessages(errors);
  }
}

void OTXMLAAnaTamImportAPI::GetSAPVariables(OTCube& cube, String&, String&) {
  const ImportOperation operation;
  std::vector<RefCnt<XmlACubeVariable>> variables;
  m_DiscoverAgent->GetVariablesOnCatalogCube(variables, m_choiceCube, m_choiceCatalog,
                                             m_choiceDataSource);
  for (const RefCnt<XmlACubeVariable>& variable : variables) {
    ThrowIfStopped();
    cube.m_sapVariables.push_back(*variable);
  }
}
