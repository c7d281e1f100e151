#pragma once

/// \file
/// The import record of measures, columns of levels and member properties.

#include <cstdint>
#include <vector>

#include "Import/VXDataType.h"
#include "Utility/Generic/String.h"

// The import records are values. Copies share texts and copy lists. They have no move constructor,
// so a growing vector copies them.

/// A measure, a level's column or a level's member property.
class OTXMLAUnit {
 public:
  /// Aggregation types. The enumeration also contains the default length and the time-balance
  /// codes. Some names have the same value.
  enum AggrType : int {
    kAggrUnknown = 0,
    kAggrSum = 1,
    kAggrCount = 2,
    kAggrMin = 3,
    kAggrMax = 4,
    kAggrAvg = 5,
    kAggrVar = 6,
    kAggrStd = 7,
    kAggrCalculated = 8,
    kAggrExternal = 9,
    kAggrDefault = 0,
    kDefaultColumnLength = 128,
    kTimeBalanceFirst = 256,
    kTimeBalanceLast = 257,
    kTimeBalanceAverage = 258,
  };
  /// Types of dimension properties.
  enum DimPropType : int {
    kDimPropNone = 0,
    kDimPropUDA = 1,
    kDimPropMemnor = 2,
    kDimPropAttribute = 3,
    kDimPropOther = 4,
    kDimPropAncestorRef = 5,
    kDimPropMemberKey = 6,
    kDimPropLevelNumber = 7,
    kDimPropGenNumber = 8,
    kDimPropParentRef = 9,
    kDimPropLast = 9,
  };

  /// The number of aggregation types (without length and time-balance codes), and the one at
  /// `index`; kAggrUnknown if `index` is out of range.
  static constexpr unsigned int GetNumberOfSupportedAggregationTypes() noexcept {
    return kAggrExternal + 1;
  }
  /// The aggregation at `index`; kAggrUnknown if `index` is out of range.
  static constexpr AggrType GetSupportedAggregationType(unsigned int index) noexcept {
    return index < GetNumberOfSupportedAggregationTypes() ? static_cast<AggrType>(index)
                                                          : kAggrUnknown;
  }

  /// The default is a nullable variable-length text column of length 128.
  OTXMLAUnit() = default;
  OTXMLAUnit(const OTXMLAUnit&) = default;
  OTXMLAUnit& operator=(const OTXMLAUnit&) = default;
  ~OTXMLAUnit() = default;

  AggrType m_aggrType = kAggrUnknown;  ///< measures only
  String m_name;                       ///< display name (measures: caption); may be empty
  std::int32_t m_precision = kDefaultColumnLength;  ///< numeric precision or text length
  VXDataType m_type = VXVarCharData;                ///< from DATA_TYPE
  std::int16_t m_scale = 0;                         ///< numeric scale
  std::int8_t m_nullable = 1;                       ///< for the host; not set by the XMLA import
  String m_externalName;                            ///< the provider's name, for queries
  String m_tamarindAttributeHierarchyName;          ///< attribute hierarchy of a property
  std::int16_t m_tamarindGenerationNumber = 0;      ///< generation of a property
  std::int16_t m_tamarindPropertyType = 0;          ///< KELVORA_PROPERTY_TYPE
  DimPropType m_dimPropType = kDimPropNone;         ///< kind of a property
};

/// Measures of one cube (rows of MDSCHEMA_MEASURES), or member properties of one level (rows of
/// MDSCHEMA_PROPERTIES).
using OTXMLAUnits = std::vector<OTXMLAUnit>;
