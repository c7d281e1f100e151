#include <utility>

#include "SUXMLASAXColumnMap.h"
#include "Utility/XMLASAX/XmlALevel.h"

struct XmlALevelPropertyColumns {
  using Row = XmlALevelProperty;
  template <String Row::*field>
  static constexpr auto kText = &SetText<Row, field>;

  static void SetGeneration(Row& row, const String& value) {
    row.m_GenerationNumber = BaseStringUtil::Int16From(value);
  }
  static void SetPropertyType(Row& row, const String& value) {
    row.m_PropertyType = BaseStringUtil::Int16From(value);
  }

  static constexpr Column<Row> kMap[] = {
      {L"PROPERTY_CAPTION", kText<&Row::m_Caption>},
      {L"PROPERTY_NAME", kText<&Row::m_Name>},
      {L"DATA_TYPE", kText<&Row::m_DataType>},
      {L"CHARACTER_MAXIMUM_LENGTH", kText<&Row::m_Precision>},
      {L"NUMERIC_PRECISION", kText<&Row::m_Precision>},
      {L"NUMERIC_SCALE", kText<&Row::m_Scale>},
      {L"PROPERTY_ATTRIBUTE_HIERARCHY_NAME", kText<&Row::m_HierarchyAttributeName>},
      {L"KELVORA_ATTRIBUTE_GENERATION", &SetGeneration},
      {L"KELVORA_PROPERTY_TYPE", &SetPropertyType},
  };
};

struct XmlALevelColumns {
  using Row = XmlALevel;
  template <String Row::*field>
  static constexpr auto kText = &SetText<Row, field>;

  static void SetLevelNumber(Row& row, const String& value) {
    row.m_LevelNumber = BaseStringUtil::Int16From(value);
  }
  // Unlike a property, a level stores its scale as one character with that code.
  static void SetScale(Row& row, const String& value) {
    row.m_Scale = String(1, static_cast<wchar_t>(BaseStringUtil::Int16From(value)));
  }

  static constexpr Column<Row> kMap[] = {
      {L"DIMENSION_UNIQUE_NAME", kText<&Row::m_DimensionUniqueName>},
      {L"LEVEL_NUMBER", &SetLevelNumber},
      {L"HIERARCHY_UNIQUE_NAME", kText<&Row::m_HierarchyUniqueName>},
      {L"LEVEL_UNIQUE_NAME", kText<&Row::m_LevelUniqueName>},
      {L"LEVEL_NAME", kText<&Row::m_LevelName>},
      {L"LEVEL_CAPTION", kText<&Row::m_Caption>},
      {L"DATA_TYPE", kText<&Row::m_DataType>},
      {L"CHARACTER_MAXIMUM_LENGTH", kText<&Row::m_Precision>},
      {L"NUMERIC_PRECISION", kText<&Row::m_Precision>},
      {L"NUMERIC_SCALE", &SetScale},
  };
};

XmlALevelProperty::Setter XmlALevelProperty::FindColumn(const String& column) const {
  return FindSetter(XmlALevelPropertyColumns::kMap, column);
}

void XmlALevelProperty::AppendValueName(const String& column, const String& value) {
  SetColumn(*this, column, value);
}

XmlALevel::Setter XmlALevel::FindColumn(const String& column) const {
  return FindSetter(XmlALevelColumns::kMap, column);
}

void XmlALevel::AppendValueName(const String& column, const String& value) {
  SetColumn(*this, column, value);
}

void XmlALevel::AppendLevelProperty(RefCnt<XmlALevelProperty> property) {
  m_Properties.push_back(std::move(property));
}

unsigned int XmlALevel::GetNumOfProperties() const {
  return static_cast<unsigned int>(m_Properties.size());
}

String XmlALevel::GetLevelPropertyCaption(unsigned int index) const {
  return m_Properties[index]->GetCaption();
}

String XmlALevel::GetLevelPropertyName(unsigned int index) const {
  return m_Properties[index]->GetName();
}

String XmlALevel::GetLevelPropertyDataType(unsigned int index) const {
  return m_Properties[index]->GetDataType();
}

String XmlALevel::GetLevelPropertyPrecision(unsigned int index) const {
  return m_Properties[index]->GetPrecision();
}

String XmlALevel::GetLevelPropertyScale(unsigned int index) const {
  return m_Properties[index]->GetScale();
}

String XmlALevel::GetLevelPropertyHierarchyAttributeName(unsigned int index) const {
  return m_Properties[index]->GetHierarchyAttributeName();
}

short XmlALevel::GetLevelPropertyGenerationNumber(unsigned int index) const {
  return m_Properties[index]->GetGenerationNumber();
}

short XmlALevel::GetLevelPropertyType(unsigned int index) const {
  return m_Properties[index]->GetPropertyType();
}
