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

/// Asks an XMLA provider for metadata, one Discover request for one schema rowset at a time.
///
/// Outputs are owned by the caller and emptied before the request is sent, unless said otherwise;
/// their order is that of the reply's rows, nothing is filtered or de-duplicated. Failures are
/// ErrorMessage: 64203 (SOAP fault), the HTTP client's text, 46100 (the reply cannot be parsed),
/// 46066 (reading was cancelled); nothing of a failed reply reaches the output, and the agent stays
/// usable. `dataSourceInfo` is a text as GetDataSourceInfo returns it. One thread at a time.
class XmlADiscoverAgent {
 public:
  using DataSourceCatalogs = std::vector<std::pair<String, VXStringVector>>;
  /// Names of hierarchies that are the default hierarchy of a dimension, each with true.
  using DefaultHierarchies = std::map<String, bool>;

  /// A new agent, owned by the caller. `log` asks for the import log, which the environment must
  /// ask for too. Nothing is sent. Throws what the host services throw: ErrorMessage for a URL that
  /// cannot be used or a log file that cannot be opened.
  static XmlADiscoverAgentHeap Create(const String& url, const String& user, const String& password,
                                      ServerInfo::TargetType target, ServerInfo::CLIType cli,
                                      bool log);

  /// Every data source with its catalogs (DISCOVER_DATASOURCES, then DBSCHEMA_CATALOGS of each).
  virtual void GetDataSourceInfoCatalogs(DataSourceCatalogs& dataSources) = 0;
  /// The provider's name and version (ProviderName, ProviderVersion). What the provider does not
  /// say stays as it was.
  virtual void GetProviderInfomation(std::pair<String, String>& info) = 0;
  /// DISCOVER_DATASOURCES: DataSourceName for Analysis Services 2005 to 2012, DataSourceInfo else.
  virtual void GetDataSourceInfo(VXStringVector& dataSources) = 0;
  /// DBSCHEMA_CATALOGS: CATALOG_NAME.
  virtual void GetCatalogs(VXStringVector& catalogs, const String& dataSourceInfo) = 0;
  /// MDSCHEMA_CUBES: CUBE_NAME.
  virtual void GetCubesOnCatalog(std::vector<OTCube>& cubes, const String& catalog,
                                 const String& dataSourceInfo) = 0;
  /// SAP_VARIABLES. Mind the order: the cube stands before the catalog. An empty cube name asks for
  /// the variables of the whole catalog.
  virtual void GetVariablesOnCatalogCube(std::vector<RefCnt<XmlACubeVariable>>& variables,
                                         const String& cube, const String& catalog,
                                         const String& dataSourceInfo) = 0;
  /// MDSCHEMA_DIMENSIONS. An empty cube name asks for all cubes of the catalog.
  virtual void GetDimensionsOnCatalogCube(std::vector<RefCnt<XmlADimension>>& dimensions,
                                          const String& catalog, const String& cube,
                                          const String& dataSourceInfo) = 0;
  /// MDSCHEMA_DIMENSIONS: adds every DEFAULT_HIERARCHY, an absent one as the empty text. The map is
  /// not emptied first, so that one map can gather several cubes.
  virtual void FindDefaultHierarchiesOnCatalogCube(DefaultHierarchies& defaults,
                                                   const String& catalog, const String& cube,
                                                   const String& dataSourceInfo) = 0;
  /// MDSCHEMA_MEASURES.
  virtual void GetMeasuresOnCatalogCube(std::vector<RefCnt<XmlAMeasure>>& measures,
                                        const String& catalog, const String& cube,
                                        const String& dataSourceInfo) = 0;
  /// MDSCHEMA_HIERARCHIES; with the import log on, the dimensions are asked for too, for the log.
  virtual void GetHierarchiesOnCatalogCube(std::vector<RefCnt<XmlAHierarchy>>& hierarchies,
                                           const String& catalog, const String& cube,
                                           const String& dataSourceInfo) = 0;
  /// MDSCHEMA_LEVELS of the hierarchy, then MDSCHEMA_PROPERTIES of each level.
  virtual void GetLevelsOnCatalogCubeHierarchy(std::vector<RefCnt<XmlALevel>>& levels,
                                               const String& catalog, const String& cube,
                                               RefCnt<XmlAHierarchy> hierarchy,
                                               const String& dataSourceInfo) = 0;
  /// MDSCHEMA_MEMBERS: fills the caller's member, whose unique name is the restriction. `hierarchy`
  /// is a unique name.
  virtual void GetMemberOnCatalogCubeHierarchy(RefCnt<XmlAMember> member, const String& catalog,
                                               const String& cube, const String& hierarchy,
                                               const String& dataSourceInfo) = 0;
  // The kind of provider that the agent was made for, or that the environment forces on it.
  virtual bool IsAnalysisServices() const = 0;
  virtual bool IsSAPBW() const = 0;
  virtual bool IsTamarind() const = 0;

  virtual ~XmlADiscoverAgent() = default;
};
