#pragma once

#include "Utility/Generic/RefCnt.h"
#include "Utility/Generic/String.h"

/// A row of MDSCHEMA_DIMENSIONS, filled column by column and then only read.
class XmlADimension : public RefCountable {
 public:
  /// Codes of the DIMENSION_TYPE column; the same numbers as OTXMLAHierarchy::DimensionType.
  enum XmlADimensionTypes : int {
    SMD_DIMTYPE_UNKNOWN = 0,
    SMD_DIMTYPE_TIME = 1,
    SMD_DIMTYPE_MEASURE = 2,
    SMD_DIMTYPE_OTHER = 3,
    SMD_DIMTYPE_QUANTITATIVE = 4,
    SMD_DIMTYPE_ACCOUNTS = 5,
    SMD_DIMTYPE_CUSTOMERS = 6,
    SMD_DIMTYPE_PRODUCTS = 7,
    SMD_DIMTYPE_SCENARIO = 8,
    SMD_DIMTYPE_UTILIY = 9,
    SMD_DIMTYPE_CURRENCY = 10,
    SMD_DIMTYPE_RATES = 11,
    SMD_DIMTYPE_CHANNEL = 12,
    SMD_DIMTYPE_PROMOTION = 13,
    SMD_DIMTYPE_ORGANIZATION = 14,
    SMD_DIMTYPE_BILL_OF_MATERIALS = 15,
    SMD_DIMTYPE_GEOGRAPHY = 16,
    SMD_DIMTYPE_ATTRIBUTE = 256,
  };

  /// Takes one column. Names are matched ignoring case, unknown ones ignored, a repeated column
  /// keeps the last value.
  void AppendValueName(const String& column, const String& value);
  /// The operation that takes this column's values, for many rows; null for an unknown column.
  using Setter = void (*)(XmlADimension& row, const String& value);
  Setter FindColumn(const String& column) const;

  String GetDimensionUniqueName() const { return m_DimensionUniqueName; }
  String GetDefaultHierarchyUniqueName() const { return m_DefaultHierarchyUniqueName; }
  /// One of XmlADimensionTypes; 256 for a Kelvora attribute dimension, 0 for a code that is none.
  int GetDimensionType() const;

 private:
  bool m_IsDimensionAttribute = false;  // KELVORA_DIMENSION_IS_ATTRIBUTE
  String m_DimensionUniqueName;         // DIMENSION_UNIQUE_NAME
  String m_DimensionType;               // DIMENSION_TYPE
  String m_DefaultHierarchyUniqueName;  // DEFAULT_HIERARCHY

  friend struct XmlADimensionColumns;
};
