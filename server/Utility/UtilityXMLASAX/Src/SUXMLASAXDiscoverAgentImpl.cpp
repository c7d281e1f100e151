#include <exception>
#include <memory>
#include <utility>

#include "SUXMLASAXConfiguration.h"
#include "SUXMLASAXImportLog.h"
#include "SUXMLASAXPrediction.h"
#include "SUXMLASAXProviderRules.h"
#include "SUXMLASAXReplyReader.h"
#include "SUXMLASAXRequests.h"
#include "SUXMLASAXStop.h"
#include "Utility/Generic/ImportSettings.h"
#include "Utility/Generic/Secret.h"
#include "Utility/Generic/SystemUtility.h"
#include "Utility/XMLASAX/XmlADiscoverAgentImpl.h"
#include "Utility/XMLASAX/XmlASaxDefs.h"

// Creation, identification and rowset requests of the agent. SUXMLASAXExchange.cpp has the exchange
// of a request and its reply, SUXMLASAXRowsetReaders.cpp the rowset readers.

XmlADiscoverAgentHeap XmlADiscoverAgent::Create(const String& url, const String& user,
                                                const String& password,
                                                ServerInfo::TargetType target,
                                                ServerInfo::CLIType cli, bool log) {
  return XmlADiscoverAgentHeap(new XmlADiscoverAgentImpl(url, user, password, target, cli, log));
}

XmlADiscoverAgentImpl::XmlADiscoverAgentImpl(String url, String user, String password,
                                             ServerInfo::TargetType target, ServerInfo::CLIType cli,
                                             bool log)
    : m_Url(std::move(url)),
      m_User(std::move(user)),
      m_Pwd(std::move(password)),
      m_TargetType(target),
      m_CLIType(cli) {
  m_HttpClient =
      std::make_unique<HTTPClientWrapper>(m_Url, m_User, m_Pwd, g_kTimeoutDefault, nullptr);
  m_SoapMessage = std::make_unique<XmlASoapRequest>();
  m_ReplyReader = std::make_unique<ReplyReader>();
  if (SystemUtility::hasEnv(OT_XMLA_IMPORT_FROM_TAMARIND)) m_TargetType = ServerInfo::kTamarind7;
  const bool isLogWanted = SystemUtility::hasEnv(OT_XMLA_IMPORT_LOGGING_NAME) ||
                           !ImportSettings::Current().logDirectory.empty();
  if (isLogWanted && log) {
    m_LogFile = ImportLog::Open(UrlForLog(), m_User, m_TargetType);
    m_Log = true;
  }
  m_HttpClient->SetPrediction(std::make_shared<RequestPrediction>(m_TargetType, m_CLIType, m_Log));
}

XmlADiscoverAgentImpl::~XmlADiscoverAgentImpl() {
  StopSaxParser();
  m_Url.Erase();  // may contain a password
  m_Pwd.Erase();
  if (!m_Log || !m_LogFile) return;
  try {
    ImportLog::Close(*m_LogFile);
  } catch (const std::exception&) {
    // Out of memory: the log has no closing entry.
  }
}

/// The URL without credentials.
String XmlADiscoverAgentImpl::UrlForLog() const {
  String url = m_Url;
  Secret<String> user;
  Secret<String> password;
  HTTPClientWrapper::TakeCredentials(url, user, password);
  return user.empty() && password.empty() ? m_Url : url;
}

// Identification.

const ProviderRules& XmlADiscoverAgentImpl::Rules() const { return RulesFor(m_TargetType); }

bool XmlADiscoverAgentImpl::IsAnalysisServices() const {
  return Rules().family == ProviderRules::Family::kAnalysisServices;
}

bool XmlADiscoverAgentImpl::IsSAPBW() const {
  return Rules().family == ProviderRules::Family::kSapBw;
}

bool XmlADiscoverAgentImpl::IsTamarind() const {
  return Rules().family == ProviderRules::Family::kTamarind;
}

void XmlADiscoverAgentImpl::GetProviderInfomation(std::pair<String, String>& info) {
  GetProviderName(info.first);
  GetProviderVersion(info.second);
}

void XmlADiscoverAgentImpl::GetProviderName(String& name) {
  String read = name;
  if (Rules().hasNameProperty) {
    Exchange(Requests::ProviderProperty(*m_SoapMessage, kProviderNameTitle, UrlForLog(),
                                        L"ProviderName"),
             [&] { ReadValue(read, L"ProviderName"); });
  } else {
    Exchange(Requests::DataSources(*m_SoapMessage, kProviderNameOfDataSourcesTitle, UrlForLog()),
             [&] { ReadProviderName(read); });
  }
  name = read;
}

void XmlADiscoverAgentImpl::GetProviderVersion(String& version) {
  String read = version;
  Exchange(Requests::ProviderProperty(*m_SoapMessage, kProviderVersionTitle, UrlForLog(),
                                      L"ProviderVersion"),
           [&] { ReadValue(read, L"ProviderVersion"); });
  version = read;
}

// Rowsets. The list is emptied first, and filled after the whole reply was read.

template <class List, class Read>
void XmlADiscoverAgentImpl::Fill(List& list, const DiscoverRequest& request, Read read) {
  list.clear();
  List rows;
  Exchange(request, [&] { (this->*read)(rows); });
  list.swap(rows);
}

void XmlADiscoverAgentImpl::GetDataSourceInfo(VXStringVector& dataSources) {
  Fill(dataSources, Requests::DataSources(*m_SoapMessage, kDataSourcesTitle, UrlForLog()),
       Rules().namesDataSources ? &XmlADiscoverAgentImpl::ReadDataSourceName
                                : &XmlADiscoverAgentImpl::ReadDataSourceInfo);
}

void XmlADiscoverAgentImpl::GetCatalogs(VXStringVector& catalogs, const String& dataSourceInfo) {
  Fill(catalogs, Requests::Catalogs(*m_SoapMessage, dataSourceInfo),
       &XmlADiscoverAgentImpl::ReadCatalogs);
}

void XmlADiscoverAgentImpl::GetCubesOnCatalog(std::vector<OTCube>& cubes, const String& catalog,
                                              const String& dataSourceInfo) {
  Fill(cubes, Requests::Cubes(*m_SoapMessage, catalog, dataSourceInfo),
       &XmlADiscoverAgentImpl::ReadCubes);
}

void XmlADiscoverAgentImpl::GetDataSourceInfoCatalogs(DataSourceCatalogs& dataSources) {
  dataSources.clear();
  VXStringVector names;
  GetDataSourceInfo(names);
  for (const String& name : names) {
    VXStringVector catalogs;
    GetCatalogs(catalogs, name);
    dataSources.emplace_back(name, std::move(catalogs));
  }
}

void XmlADiscoverAgentImpl::GetDimensionsOnCatalogCube(
    std::vector<RefCnt<XmlADimension>>& dimensions, const String& catalog, const String& cube,
    const String& dataSourceInfo) {
  Fill(dimensions,
       Requests::Dimensions(*m_SoapMessage, kDimensionsTitle, {catalog, cube, dataSourceInfo}),
       &XmlADiscoverAgentImpl::ReadDimensions);
}

void XmlADiscoverAgentImpl::FindDefaultHierarchiesOnCatalogCube(DefaultHierarchies& defaults,
                                                                const String& catalog,
                                                                const String& cube,
                                                                const String& dataSourceInfo) {
  std::vector<RefCnt<XmlADimension>> dimensions;
  Fill(dimensions,
       Requests::Dimensions(*m_SoapMessage, kDefaultHierarchiesTitle,
                            {catalog, cube, dataSourceInfo}),
       &XmlADiscoverAgentImpl::ReadDimensions);
  for (RefCnt<XmlADimension>& dimension : dimensions) {
    ThrowIfStopped();
    defaults[dimension->GetDefaultHierarchyUniqueName()] = true;
    dimension = {};  // freeing a million rows at once would delay a cancellation
  }
}

void XmlADiscoverAgentImpl::GetHierarchiesOnCatalogCube(
    std::vector<RefCnt<XmlAHierarchy>>& hierarchies, const String& catalog, const String& cube,
    const String& dataSourceInfo) {
  Fill(hierarchies, Requests::Hierarchies(*m_SoapMessage, {catalog, cube, dataSourceInfo}),
       &XmlADiscoverAgentImpl::ReadHierarchies);
  if (m_Log) {
    // Requested only for the log, so that it shows the dimensions of the cube.
    std::vector<RefCnt<XmlADimension>> dimensions;
    GetDimensionsOnCatalogCube(dimensions, catalog, cube, dataSourceInfo);
  }
}

void XmlADiscoverAgentImpl::GetLevelsOnCatalogCubeHierarchy(std::vector<RefCnt<XmlALevel>>& levels,
                                                            const String& catalog,
                                                            const String& cube,
                                                            RefCnt<XmlAHierarchy> hierarchy,
                                                            const String& dataSourceInfo) {
  const CubePlace place{catalog, cube, dataSourceInfo};
  const String name = hierarchy->GetUniqueName();
  Fill(levels, Requests::Levels(*m_SoapMessage, place, name), &XmlADiscoverAgentImpl::ReadLevels);
  for (const RefCnt<XmlALevel>& level : levels) {
    std::vector<RefCnt<XmlALevelProperty>> properties;
    Fill(properties,
         Requests::Properties(*m_SoapMessage, place, name, level->GetDimensionUniqueName(),
                              level->GetUniqueName()),
         &XmlADiscoverAgentImpl::ReadLevelProperties);
    for (const RefCnt<XmlALevelProperty>& property : properties)
      level->AppendLevelProperty(property);
  }
}

void XmlADiscoverAgentImpl::GetMemberOnCatalogCubeHierarchy(RefCnt<XmlAMember> member,
                                                            const String& catalog,
                                                            const String& cube,
                                                            const String& hierarchy,
                                                            const String& dataSourceInfo) {
  XmlAMember read(*member);
  Exchange(Requests::Members(*m_SoapMessage, {catalog, cube, dataSourceInfo}, hierarchy,
                             member->GetUniqueName()),
           [&] { ReadMember(read); });
  *member = read;
}

void XmlADiscoverAgentImpl::GetMeasuresOnCatalogCube(std::vector<RefCnt<XmlAMeasure>>& measures,
                                                     const String& catalog, const String& cube,
                                                     const String& dataSourceInfo) {
  Fill(measures, Requests::Measures(*m_SoapMessage, {catalog, cube, dataSourceInfo}),
       &XmlADiscoverAgentImpl::ReadMeasures);
}

void XmlADiscoverAgentImpl::GetVariablesOnCatalogCube(
    std::vector<RefCnt<XmlACubeVariable>>& variables, const String& cube, const String& catalog,
    const String& dataSourceInfo) {
  Fill(variables, Requests::Variables(*m_SoapMessage, {catalog, cube, dataSourceInfo}),
       &XmlADiscoverAgentImpl::ReadVariables);
}
