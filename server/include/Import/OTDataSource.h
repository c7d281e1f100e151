#pragma once

/// \file
/// Import records of data sources, catalogs and cubes.

#include <utility>
#include <vector>

#include "Import/XmlACubeVariable.h"
#include "Utility/Generic/VXStringVector.h"

/// A cube (MDSCHEMA_CUBES). `first` and `second` of the pair are both CUBE_NAME.
class OTCube : public std::pair<String, String> {
 public:
  OTCube() = default;
  OTCube(const OTCube&) = default;
  OTCube& operator=(const OTCube&) = default;
  ~OTCube() = default;

  VXStringVector m_variables;             ///< for the host; not set by the XMLA import
  XmlACubeVariableVector m_sapVariables;  ///< rows of SAP_VARIABLES
  VXStringVector m_aliases;               ///< for the host; not set by the XMLA import
  bool m_bMemberNameUnique = false;       ///< member names are unique in the cube
  String m_dateFormat;                    ///< for the host; not set by the XMLA import
};

/// Cubes of one catalog (rows of MDSCHEMA_CUBES).
using OTCubes = std::vector<OTCube>;

/// A catalog of a data source (DBSCHEMA_CATALOGS).
class OTCatalog {
 public:
  OTCatalog() = default;
  OTCatalog(const OTCatalog&) = default;
  OTCatalog& operator=(const OTCatalog&) = default;
  ~OTCatalog() = default;

  String m_catalogName;        ///< CATALOG_NAME
  bool m_bASOType = false;     ///< ASO storage; for the host, not set by the XMLA import
  OTCubes m_cubes;             ///< in the provider's order
  VXStringVector m_variables;  ///< for the host; not set by the XMLA import
};

/// Catalogs of one data source (rows of DBSCHEMA_CATALOGS).
using OTCatalogs = std::vector<OTCatalog>;

/// A data source of a provider (DISCOVER_DATASOURCES).
class OTDataSource {
 public:
  OTDataSource() = default;
  OTDataSource(const OTDataSource&) = default;
  OTDataSource& operator=(const OTDataSource&) = default;
  ~OTDataSource() = default;

  String m_dataSourceName;  ///< DataSourceName for Analysis Services 2005 to 2012, DataSourceInfo
                            ///< for other providers
  OTCatalogs m_catalogs;    ///< in the provider's order
  VXStringVector m_variables;  ///< for the host; not set by the XMLA import
};
