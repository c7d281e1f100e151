#include "SUXMLASAXColumnMap.h"
#include "Utility/XMLASAX/XmlAMeasure.h"

namespace {

// Length of "[Measures].[".
constexpr std::size_t kPrefixLength = 12;

/// Removes "[Measures].[" and the last character.
String StripUniqueName(const String& uniqueName) {
  if (BaseStringUtil::CaseInsensitiveFindPattern(uniqueName, L"[Measures]") == String::npos)
    return uniqueName;
  const std::size_t length = uniqueName.size();
  if (length > kPrefixLength) return uniqueName.substr(kPrefixLength, length - kPrefixLength - 1);
  return uniqueName.substr(length - 1);
}

}  // namespace

struct XmlAMeasureColumns {
  using Row = XmlAMeasure;
  template <String Row::*field>
  static constexpr auto kText = &SetText<Row, field>;

  static void SetUniqueName(Row& row, const String& value) { row.m_Name = StripUniqueName(value); }
  static void SetAggregator(Row& row, const String& value) {
    row.m_MeasureAggregrator = BaseStringUtil::Int16From(value);
  }
  // Only calculated measures have this column.
  static void SetExpression(Row& row, const String&) { row.m_Caculated = true; }

  static constexpr Column<Row> kNameMap[] = {{L"MEASURE_NAME", kText<&Row::m_Name>}};
  static constexpr Column<Row> kUniqueNameMap[] = {{L"MEASURE_UNIQUE_NAME", &SetUniqueName}};
  static constexpr Column<Row> kMap[] = {
      {L"MEASURE_CAPTION", kText<&Row::m_Caption>},
      {L"MEASURE_AGGREGATOR", &SetAggregator},
      {L"DATA_TYPE", kText<&Row::m_DataType>},
      {L"CHARACTER_MAXIMUM_LENGTH", kText<&Row::m_Precision>},
      {L"NUMERIC_PRECISION", kText<&Row::m_Precision>},
      {L"NUMERIC_SCALE", kText<&Row::m_Scale>},
      {L"EXPRESSION", &SetExpression},
  };
};

XmlAMeasure::Setter XmlAMeasure::FindColumn(const String& column) const {
  // No column is in two of the maps.
  const Setter set = FindSetter(
      m_bUseUniqueName ? XmlAMeasureColumns::kUniqueNameMap : XmlAMeasureColumns::kNameMap, column);
  return set ? set : FindSetter(XmlAMeasureColumns::kMap, column);
}

void XmlAMeasure::AppendValueName(const String& column, const String& value) {
  SetColumn(*this, column, value);
}

String XmlAMeasure::GetType() const { return m_Caculated ? String(L"5") : m_DataType; }
