#pragma once

#include <map>
#include <utility>
#include <vector>

#include "Import/OTDataSource.h"
#include "Utility/Generic/Heap.h"
#include "Utility/Generic/RefCnt.h"
#include "Utility/Generic/ServerInfo.h"
#include "Utility/Generic/String.h"
#include "Utility/Generic/VXStringVector.h"
#include "Utility/XMLASAX/XmlADimension.h"
#include "Utility/XMLASAX/XmlAHierarchy.h"
#include "Utility/XMLASAX/XmlALevel.h"
#include "Utility/XMLASAX/XmlAMeasure.h"
#include "Utility/XMLASAX/XmlAMember.h"

class XmlADiscoverAgent;
using XmlADiscoverAgentHeap = Heap<XmlADiscoverAgent>;

/// Reads metadata from an XMLA provider. Each request is a Discover of one schema rowset.
///
/// Outputs: emptied before the request is sent, unless stated otherwise. They contain all rows in
/// the order of the reply. `dataSourceInfo` is a text returned by GetDataSourceInfo.
///
/// Errors: throws ErrorMessage with kMessageSoapFault, kMessageParseError or kMessageReadCancelled
/// (MessageNumbers.h), or with the error text of the HTTP client. Rows of a failed reply do not
/// reach the output. The agent stays usable.
///
/// Threads: use from one thread at a time.
class XmlADiscoverAgent {
 public:
  using DataSourceCatalogs = std::vector<std::pair<String, VXStringVector>>;
  /// Unique names of default hierarchies; the value is always true.
  using DefaultHierarchies = std::map<String, bool>;

  /// Creates an agent without sending a request. `log` allows the import log; the environment or
  /// ImportSettings must request it too. Throws ErrorMessage for an unusable URL or a log file that
  /// cannot be opened.
  static XmlADiscoverAgentHeap Create(const String& url, const String& user, const String& password,
                                      ServerInfo::TargetType target, ServerInfo::CLIType cli,
                                      bool log);

  /// All data sources with their catalogs (DISCOVER_DATASOURCES, DBSCHEMA_CATALOGS).
  virtual void GetDataSourceInfoCatalogs(DataSourceCatalogs& dataSources) = 0;
  /// The provider's name and version (DISCOVER_PROPERTIES: ProviderName, ProviderVersion). Values
  /// that are missing in the reply do not change.
  virtual void GetProviderInfomation(std::pair<String, String>& info) = 0;
  /// DISCOVER_DATASOURCES: DataSourceName for Analysis Services 2005 to 2012, otherwise
  /// DataSourceInfo.
  virtual void GetDataSourceInfo(VXStringVector& dataSources) = 0;
  /// DBSCHEMA_CATALOGS: CATALOG_NAME.
  virtual void GetCatalogs(VXStringVector& catalogs, const String& dataSourceInfo) = 0;
  /// MDSCHEMA_CUBES: CUBE_NAME.
  virtual void GetCubesOnCatalog(std::vector<OTCube>& cubes, const String& catalog,
                                 const String& dataSourceInfo) = 0;
  /// SAP_VARIABLES. Note that `cube` is before `catalog`. An empty cube name means all cubes of the
  /// catalog.
  virtual void GetVariablesOnCatalogCube(std::vector<RefCnt<XmlACubeVariable>>& variables,
                                         const String& cube, const String& catalog,
                                         const String& dataSourceInfo) = 0;
  /// MDSCHEMA_DIMENSIONS. An empty cube name means all cubes of the catalog.
  virtual void GetDimensionsOnCatalogCube(std::vector<RefCnt<XmlADimension>>& dimensions,
                                          const String& catalog, const String& cube,
                                          const String& dataSourceInfo) = 0;
  /// MDSCHEMA_DIMENSIONS: adds every DEFAULT_HIERARCHY; a missing one is an empty text. Does not
  /// empty the map first, so that it can collect several cubes.
  virtual void FindDefaultHierarchiesOnCatalogCube(DefaultHierarchies& defaults,
                                                   const String& catalog, const String& cube,
                                                   const String& dataSourceInfo) = 0;
  /// MDSCHEMA_MEASURES.
  virtual void GetMeasuresOnCatalogCube(std::vector<RefCnt<XmlAMeasure>>& measures,
                                        const String& catalog, const String& cube,
                                        const String& dataSourceInfo) = 0;
  /// MDSCHEMA_HIERARCHIES. If there is an import log, also requests MDSCHEMA_DIMENSIONS for it.
  virtual void GetHierarchiesOnCatalogCube(std::vector<RefCnt<XmlAHierarchy>>& hierarchies,
                                           const String& catalog, const String& cube,
                                           const String& dataSourceInfo) = 0;
  /// MDSCHEMA_LEVELS of the hierarchy, then MDSCHEMA_PROPERTIES of each level.
  virtual void GetLevelsOnCatalogCubeHierarchy(std::vector<RefCnt<XmlALevel>>& levels,
                                               const String& catalog, const String& cube,
                                               RefCnt<XmlAHierarchy> hierarchy,
                                               const String& dataSourceInfo) = 0;
  /// MDSCHEMA_MEMBERS: sets the type of `member`, which must have a unique name. `hierarchy` is a
  /// unique name.
  virtual void GetMemberOnCatalogCubeHierarchy(RefCnt<XmlAMember> member, const String& catalog,
                                               const String& cube, const String& hierarchy,
                                               const String& dataSourceInfo) = 0;
  // The configured kind of provider; OT_XMLA_IMPORT_TAMARIND overrides it.
  virtual bool IsAnalysisServices() const = 0;
  virtual bool IsSAPBW() const = 0;
  virtual bool IsTamarind() const = 0;

  virtual ~XmlADiscoverAgent() = default;
};
