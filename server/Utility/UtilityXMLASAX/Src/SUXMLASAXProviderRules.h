#pragma once

#include "Import/VXDataType.h"
#include "Utility/Generic/ServerInfo.h"
#include "Utility/Generic/String.h"

class XmlADiscoverAgent;

/// What differs between the families of providers. Every condition on the kind of provider is a
/// member here.
struct ProviderRules {
  enum class Family { kAnalysisServices, kSapBw, kTamarind, kOther };

  Family family = Family::kOther;

  // Requests and replies.
  /// Tells its name in DISCOVER_PROPERTIES, else in DISCOVER_DATASOURCES.
  bool hasNameProperty = false;
  /// DataSourceName identifies a data source, else DataSourceInfo.
  bool namesDataSources = false;
  /// Replies get an XML declaration in front, whatever they begin with.
  bool prependsDeclaration = false;
  /// A measure's name is taken from its unique name.
  bool measuresByUniqueName = false;

  // Hierarchies.
  /// The dimensions tell which hierarchies are default hierarchies.
  bool hasDefaultHierarchies = false;
  /// Default hierarchies, and those without a structure, are imported as balanced.
  bool defaultHierarchiesAreBalanced = false;
  /// The dimension rows tell attribute dimensions, which the hierarchy rows do not.
  bool attributesFromDimensions = false;
  bool skipsMeasuresHierarchy = false;
  bool skipsUnknownStructure = false;
  /// No look-up when the all member is the default member.
  bool allMemberNeedsNoLookup = false;

  // Levels and measures.
  /// Each level lists the properties of all levels, told apart by their generation.
  bool propertiesHaveGenerations = false;
  /// The first row of the measures stands for the dimension.
  bool firstMeasureIsDimension = false;
  VXDataType (*propertyType)(const String& dataType) = nullptr;
  VXDataType (*measureType)(const String& dataType) = nullptr;
};

/// The rules for a configured kind.
const ProviderRules& RulesFor(ServerInfo::TargetType target) noexcept;
/// The rules of the family that the agent reports, for what does not depend on the version.
const ProviderRules& RulesOf(const XmlADiscoverAgent& agent);
