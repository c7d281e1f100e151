#pragma once

/// \file
/// Import records of hierarchies and levels.

#include <cstdint>
#include <vector>

#include "Import/OTXMLAUnit.h"
#include "Utility/Generic/VXStringVector.h"

/// A level of a hierarchy: a row of MDSCHEMA_LEVELS with its rows of MDSCHEMA_PROPERTIES.
class OTXMLALevel {
 public:
  OTXMLALevel() = default;
  OTXMLALevel(const OTXMLALevel&) = default;
  OTXMLALevel& operator=(const OTXMLALevel&) = default;
  ~OTXMLALevel() = default;

  String m_levelName;     ///< LEVEL_CAPTION, or a name made from LEVEL_NAME; for the all level
                          ///< LEVEL_UNIQUE_NAME
  String m_externalName;  ///< LEVEL_NAME
  OTXMLAUnit m_level;     ///< the level's own column
  OTXMLAUnits m_memberProperties;  ///< in the provider's order
  std::int16_t m_levelNumber = 0;  ///< LEVEL_NUMBER; 0 is the top
};

/// Levels of one hierarchy (rows of MDSCHEMA_LEVELS), in ascending order of their numbers.
using OTXMLALevels = std::vector<OTXMLALevel>;

/// A hierarchy of a cube: a row of MDSCHEMA_HIERARCHIES with its levels.
class OTXMLAHierarchy {
 public:
  /// Types of members: the codes of the column MEMBER_TYPE.
  enum MemberType : int {
    kMemberTypeUnknown = 0,
    kMemberTypeRegular = 1,
    kMemberTypeAll = 2,
    kMemberTypeFormula = 3,
    kMemberTypeMeasure = 4,
    kMemberTypeDefault = 0,
  };
  /// Structures of hierarchies. kHierarchyTypeInvalid is none of them.
  enum HierarchyType : int {
    kHierarchyTypeUnknown = 0,
    kHierarchyFullyBalanced = 1,
    kHierarchyUnBalanced = 2,
    kHierarchyRaggedBalanced = 3,
    kHierarchyNetwork = 4,
    kHierarchyTypeDefault = 0,
    kHierarchyTypeFirst = 0,
    kHierarchyTypeLast = 4,
    kHierarchyTypeValue = 256,
    kNativeHierarchyTypeFirst = 256,
    kNativeHierarchyTypeLast = 256,
    kHierarchyTypeInvalid = 257,
  };
  /// Dimension types. The values 1 to 16 and 256 are the codes of the DIMENSION_TYPE column.
  /// kDimensionInvalid has the same value as kDimensionTypeTime.
  enum DimensionType : int {
    kDimensionTypeUnknown = 0,
    kDimensionTypeTime = 1,
    kDimensionTypeMeasure = 2,
    kDimensionTypeOther = 3,
    kDimensionQuantitative = 4,
    kDimensionAccounts = 5,
    kDimensionCustomers = 6,
    kDimensionProducts = 7,
    kDimensionScenario = 8,
    kDimensionUtiliy = 9,
    kDimensionCurrency = 10,
    kDimensionRates = 11,
    kDimensionChannel = 12,
    kDimensionPromotion = 13,
    kDimensionOrganization = 14,
    kDimensionBill_of_materials = 15,
    kDimensionGeography = 16,
    kDimensionAttribute = 256,
    kDimensionTypeDefault = 0,
    kDimensionInvalid = 1,
  };

  /// The number of structures from kHierarchyTypeFirst to kHierarchyTypeLast.
  static constexpr unsigned int GetNumberOfSupportedHierarchyTypes() noexcept {
    return kHierarchyTypeLast - kHierarchyTypeFirst + 1;
  }
  /// The structure at `index`; kHierarchyTypeInvalid if `index` is out of range.
  static constexpr HierarchyType GetSupportedHierarchyType(unsigned int index) noexcept {
    return index < GetNumberOfSupportedHierarchyTypes()
               ? static_cast<HierarchyType>(kHierarchyTypeFirst + index)
               : kHierarchyTypeInvalid;
  }
  /// The name of a structure for users; "invalid" for other values.
  static String StringFromHierarchyType(HierarchyType type) {
    constexpr const wchar_t* kNames[] = {L"unknown", L"fully balanced", L"unbalanced",
                                         L"ragged balanced", L"network"};
    const bool isKnown = type >= kHierarchyTypeFirst && type <= kHierarchyTypeLast;
    return isKnown ? kNames[type] : L"invalid";
  }

  OTXMLAHierarchy() = default;
  OTXMLAHierarchy(const OTXMLAHierarchy&) = default;
  OTXMLAHierarchy& operator=(const OTXMLAHierarchy&) = default;
  ~OTXMLAHierarchy() = default;

  String m_hierarchyName;        ///< HIERARCHY_CAPTION, or a name made from m_externalName
  String m_externalName;         ///< HIERARCHY_UNIQUE_NAME without brackets
  String m_dimensionUniqueName;  ///< DIMENSION_UNIQUE_NAME without brackets
  OTXMLALevels m_levels;         ///< top first
  MemberType m_memberType = kMemberTypeUnknown;  ///< MEMBER_TYPE of the default member
  /// STRUCTURE. Default hierarchies of some kinds of servers count as balanced.
  HierarchyType m_hierarchyType = kHierarchyTypeUnknown;
  /// DIMENSION_TYPE of the dimension, if the server lists it, or else of the hierarchy.
  DimensionType m_dimensionType = kDimensionTypeUnknown;
  VXStringVector m_alternateHierarchyNames;  ///< for the host; not set by the XMLA import
  VXStringVector m_udas;                     ///< for the host; not set by the XMLA import
  String m_defaultMember;                    ///< for the host; not set by the XMLA import
};
