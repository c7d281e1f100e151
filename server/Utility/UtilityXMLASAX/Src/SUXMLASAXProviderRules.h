#pragma once

#include "Import/VXDataType.h"
#include "Utility/Generic/ServerInfo.h"
#include "Utility/Generic/String.h"

class XmlADiscoverAgent;

/// The differences between the families of providers. Code that depends on the kind of provider
/// uses a member of this table.
struct ProviderRules {
  enum class Family { kAnalysisServices, kSapBw, kTamarind, kOther };

  Family family = Family::kOther;

  // Requests and replies.
  /// True: DISCOVER_PROPERTIES contains the provider's name. False: DISCOVER_DATASOURCES does.
  bool hasNameProperty = false;
  /// True: DataSourceName identifies a data source. False: DataSourceInfo does.
  bool namesDataSources = false;
  /// An XML declaration is always prepended to replies.
  bool prependsDeclaration = false;
  /// The name of a measure is taken from MEASURE_UNIQUE_NAME.
  bool measuresByUniqueName = false;

  // Hierarchies.
  /// The dimensions name their default hierarchies.
  bool hasDefaultHierarchies = false;
  /// Default hierarchies and hierarchies without STRUCTURE are imported as fully balanced.
  bool defaultHierarchiesAreBalanced = false;
  /// The dimension type comes from the dimension rows, because only they identify attribute
  /// dimensions.
  bool attributesFromDimensions = false;
  bool skipsMeasuresHierarchy = false;
  bool skipsUnknownStructure = false;
  /// The default member is not looked up if it is the all member.
  bool allMemberNeedsNoLookup = false;

  // Levels and measures.
  /// Each level lists the properties of all levels. A property belongs to the level with its
  /// generation number.
  bool propertiesHaveGenerations = false;
  /// The first row of MDSCHEMA_MEASURES is the measures dimension itself.
  bool firstMeasureIsDimension = false;
  VXDataType (*propertyType)(const String& dataType) = nullptr;
  VXDataType (*measureType)(const String& dataType) = nullptr;
};

/// The rules of a target kind.
const ProviderRules& RulesFor(ServerInfo::TargetType target) noexcept;
/// The rules of the agent's family. Use only members that do not depend on the version.
const ProviderRules& RulesOf(const XmlADiscoverAgent& agent);
