#include "SUXMLASAXColumnMap.h"
#include "Utility/XMLASAX/XmlADimension.h"

struct XmlADimensionColumns {
  using Row = XmlADimension;
  template <String Row::*field>
  static constexpr auto kText = &SetText<Row, field>;

  static void SetIsAttribute(Row& row, const String& value) {
    if (BaseStringUtil::IsCaseInsensitiveMatch(value, L"true")) row.m_IsDimensionAttribute = true;
  }

  static constexpr Column<Row> kMap[] = {
      {L"DIMENSION_UNIQUE_NAME", kText<&Row::m_DimensionUniqueName>},
      {L"DIMENSION_TYPE", kText<&Row::m_DimensionType>},
      {L"DEFAULT_HIERARCHY", kText<&Row::m_DefaultHierarchyUniqueName>},
      {L"KELVORA_DIMENSION_IS_ATTRIBUTE", &SetIsAttribute},
  };
};

XmlADimension::Setter XmlADimension::FindColumn(const String& column) const {
  return FindSetter(XmlADimensionColumns::kMap, column);
}

void XmlADimension::AppendValueName(const String& column, const String& value) {
  SetColumn(*this, column, value);
}

int XmlADimension::GetDimensionType() const {
  if (m_IsDimensionAttribute) return SMD_DIMTYPE_ATTRIBUTE;
  if (m_DimensionType.empty()) return SMD_DIMTYPE_UNKNOWN;
  const int code = BaseStringUtil::Int16From(m_DimensionType);
  const bool known =
      (code >= SMD_DIMTYPE_TIME && code <= SMD_DIMTYPE_GEOGRAPHY) || code == SMD_DIMTYPE_ATTRIBUTE;
  return known ? code : SMD_DIMTYPE_UNKNOWN;
}
