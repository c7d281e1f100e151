#pragma once

#include <cstdint>
#include <vector>

#include "Import/VXDataType.h"
#include "Utility/Generic/String.h"

// The import records are plain values. Copying shares texts and copies lists element by element in
// order; they are never moved, so a list that grows copies its records into the new storage.

/// A measure, a level's column or a level's member property.
class OTXMLAUnit {
 public:
  /// Aggregation rules; several names share a value, and the length and time-balance codes stand in
  /// the same enumeration.
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
  /// Kinds of dimension property.
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

  /// The aggregation rules, without the codes that are lengths and time balances: how many there
  /// are, and the one at `index`, in the order of their values; kAggrUnknown behind the last.
  static constexpr unsigned int GetNumberOfSupportedAggregationTypes() noexcept {
    return kAggrExternal + 1;
  }
  static constexpr AggrType GetSupportedAggregationType(unsigned int index) noexcept {
    return index < GetNumberOfSupportedAggregationTypes() ? static_cast<AggrType>(index)
                                                          : kAggrUnknown;
  }

  /// A nullable variable-length text column of length 128.
  OTXMLAUnit() = default;
  OTXMLAUnit(const OTXMLAUnit&) = default;
  OTXMLAUnit& operator=(const OTXMLAUnit&) = default;
  ~OTXMLAUnit() = default;

  AggrType m_aggrType = kAggrUnknown;               ///< measures only
  String m_name;                                    ///< display name; for a measure its caption
  std::int32_t m_precision = kDefaultColumnLength;  ///< numeric precision, or length of a text
  VXDataType m_type = VXVarCharData;
  std::int16_t m_scale = 0;  ///< numeric scale
  std::int8_t m_nullable = 1;
  String m_externalName;                        ///< the provider's own name, for queries
  String m_tamarindAttributeHierarchyName;      ///< the attribute hierarchy a property belongs to
  std::int16_t m_tamarindGenerationNumber = 0;  ///< the generation a property belongs to
  std::int16_t m_tamarindPropertyType = 0;      ///< the provider's property-type code
  DimPropType m_dimPropType = kDimPropNone;
};

using OTXMLAUnits = std::vector<OTXMLAUnit>;
