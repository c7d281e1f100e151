#pragma once

#include "Import/VXDataType.h"
#include "Utility/Generic/ServerInfo.h"
#include "Utility/Generic/String.h"

class XmlADiscoverAgent;

/// What differs between the families of providers. Every condition on the kind of provider is a
/// member here.
struct ProviderRules {
  enum class Family { kAnalysisServices, kSapBw, kTamarind, kOther };

  Family family;

  // Requests and replies.
  bool hasNameProperty;   ///< tells its name in DISCOVER_PROPERTIES, else in DISCOVER_DATASOURCES
  bool namesDataSources;  ///< DataSourceName, not DataSourceInfo, stands for a data source
  bool omitsXmlDeclaration;   ///< replies get a declaration in front, whatever they begin with
  bool measuresByUniqueName;  ///< a measure's name is its unique name

  // Hierarchies.
  bool marksDefaultHierarchies;        ///< the dimensions tell the default hierarchies
  bool defaultHierarchiesAreBalanced;  ///< default hierarchies, and those without a structure
  bool dimensionsTellAttributes;       ///< the dimensions know attribute dimensions
  bool skipsMeasuresHierarchy;
  bool skipsUnknownStructure;
  bool allMemberNeedsNoLookup;  ///< when it is the default member

  // Levels and measures.
  bool propertiesHaveGenerations;  ///< each level lists the properties of all levels
  bool firstMeasureIsDimension;    ///< the first row of the measures is no measure
  VXDataType (*propertyType)(const String& dataType);
  VXDataType (*measureType)(const String& dataType);
};

/// The rules for a configured kind.
const ProviderRules& RulesFor(ServerInfo::TargetType target) noexcept;
/// The rules of the family that the agent reports, for what does not depend on the version.
const ProviderRules& RulesOf(const XmlADiscoverAgent& agent);
