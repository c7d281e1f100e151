#pragma once

#include <cstdint>

#include "Utility/Generic/RefCnt.h"
#include "Utility/Generic/String.h"

/// A row of MDSCHEMA_MEASURES.
class XmlAMeasure : public RefCountable {
 public:
  /// If `useUniqueName` is true, the name is MEASURE_UNIQUE_NAME without prefix and brackets;
  /// otherwise it is MEASURE_NAME. The other column is ignored.
  explicit XmlAMeasure(bool useUniqueName) : m_bUseUniqueName(useUniqueName) {}

  /// Sets one column. Compares names ignoring case, and ignores unknown ones.
  void AppendValueName(const String& column, const String& value);
  /// The setter of a column, for use with many rows; null for an unknown column.
  using Setter = void (*)(XmlAMeasure& row, const String& value);
  Setter FindColumn(const String& column) const;

  String GetName() const { return m_Name; }
  String GetCaption() const { return m_Caption; }
  String GetPrecision() const { return m_Precision; }
  String GetScale() const { return m_Scale; }
  /// The MEASURE_AGGREGATOR code as the provider sent it; 0 without that column.
  int GetAggrType() const { return m_MeasureAggregrator; }
  /// The DATA_TYPE text; "5" for a calculated measure (one with an EXPRESSION column).
  String GetType() const;

 private:
  String m_Name;                          // MEASURE_NAME or MEASURE_UNIQUE_NAME
  String m_Caption;                       // MEASURE_CAPTION
  std::int16_t m_MeasureAggregrator = 0;  // MEASURE_AGGREGATOR
  String m_DataType;                      // DATA_TYPE
  String m_Precision;                     // CHARACTER_MAXIMUM_LENGTH or NUMERIC_PRECISION
  String m_Scale;                         // NUMERIC_SCALE
  bool m_Caculated = false;               // there is an EXPRESSION column
  bool m_bUseUniqueName;

  friend struct XmlAMeasureColumns;
};
