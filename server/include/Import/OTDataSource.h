#pragma once

#include <utility>
#include <vector>

#include "Import/XmlACubeVariable.h"
#include "Utility/Generic/VXStringVector.h"

/// One cube: the pair of its name and second name (both CUBE_NAME), then its own fields.
class OTCube : public std::pair<String, String> {
 public:
  OTCube() = default;
  OTCube(const OTCube&) = default;
  OTCube& operator=(const OTCube&) = default;
  ~OTCube() = default;

  VXStringVector m_variables;             ///< for the host; the XMLA import leaves it empty
  XmlACubeVariableVector m_sapVariables;  ///< rows of SAP_VARIABLES
  VXStringVector m_aliases;               ///< for the host; the XMLA import leaves it empty
  bool m_bMemberNameUnique = false;       ///< member names are unique across the cube
  String m_dateFormat;                    ///< for the host; the XMLA import leaves it empty
};

using OTCubes = std::vector<OTCube>;

/// One catalog (database) of a data source.
class OTCatalog {
 public:
  OTCatalog() = default;
  OTCatalog(const OTCatalog&) = default;
  OTCatalog& operator=(const OTCatalog&) = default;
  ~OTCatalog() = default;

  String m_catalogName;        ///< CATALOG_NAME
  bool m_bASOType = false;     ///< ASO storage; for the host, the XMLA import leaves it false
  OTCubes m_cubes;             ///< in the provider's order
  VXStringVector m_variables;  ///< for the host; the XMLA import leaves it empty
};

using OTCatalogs = std::vector<OTCatalog>;

/// One data source of a provider with its catalogs and their cubes.
class OTDataSource {
 public:
  OTDataSource() = default;
  OTDataSource(const OTDataSource&) = default;
  OTDataSource& operator=(const OTDataSource&) = default;
  ~OTDataSource() = default;

  String m_dataSourceName;     ///< DataSourceName or DataSourceInfo, as the kind of provider asks
  OTCatalogs m_catalogs;       ///< in the provider's order
  VXStringVector m_variables;  ///< for the host; the XMLA import leaves it empty
};
