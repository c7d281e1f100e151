#pragma once

#include "Utility/Generic/RefCnt.h"
#include "Utility/Generic/String.h"

/// A row of MDSCHEMA_DIMENSIONS.
class XmlADimension : public RefCountable {
 public:
  /// Codes of the DIMENSION_TYPE column, with the values of OTXMLAHierarchy::DimensionType.
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

  /// Sets one column. Compares names ignoring case, and ignores unknown ones.
  void AppendValueName(const String& column, const String& value);
  /// The setter of a column, for use with many rows; null for an unknown column.
  using Setter = void (*)(XmlADimension& row, const String& value);
  Setter FindColumn(const String& column) const;

  String GetDimensionUniqueName() const { return m_DimensionUniqueName; }
  String GetDefaultHierarchyUniqueName() const { return m_DefaultHierarchyUniqueName; }
  /// One of XmlADimensionTypes: 256 for an attribute dimension (KELVORA_DIMENSION_IS_ATTRIBUTE), 0
  /// for an unknown code.
  int GetDimensionType() const;

 private:
  bool m_IsDimensionAttribute = false;  // KELVORA_DIMENSION_IS_ATTRIBUTE
  String m_DimensionUniqueName;         // DIMENSION_UNIQUE_NAME
  String m_DimensionType;               // DIMENSION_TYPE
  String m_DefaultHierarchyUniqueName;  // DEFAULT_HIERARCHY

  friend struct XmlADimensionColumns;
};
