// Tests the row objects of levels.

#include <gtest/gtest.h>

#include "Utility/XMLASAX/XmlALevel.h"
#include "support/Text.h"

namespace {

template <class Row>
struct TextColumn {
  const wchar_t* column;
  String (Row::*get)() const;
};

String LowerCase(const wchar_t* text) {
  String lower;
  for (const wchar_t c : String(text))
    lower.push_back(c >= L'A' && c <= L'Z' ? c - L'A' + L'a' : c);
  return lower;
}

TEST(LevelPropertyRow, TakesTextColumnsInAnyCaseAndTheirLastValues) {
  const TextColumn<XmlALevelProperty> columns[] = {
      {L"PROPERTY_CAPTION", &XmlALevelProperty::GetCaption},
      {L"PROPERTY_NAME", &XmlALevelProperty::GetName},
      {L"DATA_TYPE", &XmlALevelProperty::GetDataType},
      {L"CHARACTER_MAXIMUM_LENGTH", &XmlALevelProperty::GetPrecision},
      {L"NUMERIC_PRECISION", &XmlALevelProperty::GetPrecision},
      {L"NUMERIC_SCALE", &XmlALevelProperty::GetScale},
      {L"PROPERTY_ATTRIBUTE_HIERARCHY_NAME", &XmlALevelProperty::GetHierarchyAttributeName},
  };
  for (const auto& column : columns) {
    XmlALevelProperty row;
    EXPECT_EQ((row.*column.get)(), String());
    row.AppendValueName(column.column, L"first");
    EXPECT_EQ((row.*column.get)(), String(L"first"));
    row.AppendValueName(LowerCase(column.column), L"2");
    EXPECT_EQ((row.*column.get)(), String(L"2"));
  }
}

TEST(LevelPropertyRow, NumbersAreInitiallyMinusOne) {
  XmlALevelProperty row;
  EXPECT_EQ(row.GetGenerationNumber(), -1);
  EXPECT_EQ(row.GetPropertyType(), -1);
  row.AppendValueName(L"kelvora_attribute_generation", L"3");
  row.AppendValueName(L"KELVORA_PROPERTY_TYPE", L"70000");
  EXPECT_EQ(row.GetGenerationNumber(), 3);
  EXPECT_EQ(row.GetPropertyType(), 32767);
  row.AppendValueName(L"KELVORA_ATTRIBUTE_GENERATION", L"none");
  EXPECT_EQ(row.GetGenerationNumber(), 0);
}

XmlALevel Level() { return XmlALevel(ServerInfo::kTessera, ServerInfo::kCLIXMLA); }

TEST(LevelRow, TakesTextColumnsInAnyCaseAndTheirLastValues) {
  const TextColumn<XmlALevel> columns[] = {
      {L"DIMENSION_UNIQUE_NAME", &XmlALevel::GetDimensionUniqueName},
      {L"HIERARCHY_UNIQUE_NAME", &XmlALevel::GetHierarchyUniqueName},
      {L"LEVEL_UNIQUE_NAME", &XmlALevel::GetUniqueName},
      {L"LEVEL_NAME", &XmlALevel::GetLevelName},
      {L"LEVEL_CAPTION", &XmlALevel::GetCaption},
      {L"DATA_TYPE", &XmlALevel::GetDataType},
      {L"CHARACTER_MAXIMUM_LENGTH", &XmlALevel::GetPrecision},
      {L"NUMERIC_PRECISION", &XmlALevel::GetPrecision},
  };
  for (const auto& column : columns) {
    XmlALevel row = Level();
    EXPECT_EQ((row.*column.get)(), String());
    row.AppendValueName(column.column, L"first");
    EXPECT_EQ((row.*column.get)(), String(L"first"));
    row.AppendValueName(LowerCase(column.column), L"2");
    EXPECT_EQ((row.*column.get)(), String(L"2"));
  }
}

TEST(LevelRow, LaterOfLengthAndPrecisionCounts) {
  XmlALevel row = Level();
  row.AppendValueName(L"CHARACTER_MAXIMUM_LENGTH", L"255");
  row.AppendValueName(L"NUMERIC_PRECISION", L"0");
  EXPECT_EQ(row.GetPrecision(), String(L"0"));
  XmlALevel opposite = Level();
  opposite.AppendValueName(L"NUMERIC_PRECISION", L"0");
  opposite.AppendValueName(L"CHARACTER_MAXIMUM_LENGTH", L"255");
  EXPECT_EQ(opposite.GetPrecision(), String(L"255"));
}

TEST(LevelRow, NumberHasSixteenBits) {
  XmlALevel row = Level();
  EXPECT_EQ(row.GetLevelNumber(), 0);
  for (const auto& [text, number] :
       {std::pair{L"3", 3}, {L"-2", -2}, {L"no number", 0}, {L"40000", 32767}, {L" 7th", 7}}) {
    row.AppendValueName(L"level_number", text);
    EXPECT_EQ(row.GetLevelNumber(), number);
  }
}

TEST(LevelRow, ScaleIsTheCharacterWithThatCode) {
  XmlALevel row = Level();
  EXPECT_EQ(row.GetScale(), String());
  for (const auto& [text, code] :
       {std::pair{L"2", 2}, {L"0", 0}, {L"-1", -1}, {L"65", 65}, {L"none", 0}}) {
    row.AppendValueName(L"NUMERIC_SCALE", text);
    EXPECT_EQ(row.GetScale(), String(1, static_cast<wchar_t>(code)));
  }
}

TEST(LevelRow, KeepsEveryPropertyInOrderAndShared) {
  XmlALevel row = Level();
  EXPECT_EQ(row.GetNumOfProperties(), 0u);
  const RefCnt<XmlALevelProperty> property(new XmlALevelProperty);
  for (const auto& [column, value] : {std::pair{L"PROPERTY_CAPTION", L"c"},
                                      {L"PROPERTY_NAME", L"n"},
                                      {L"DATA_TYPE", L"130"},
                                      {L"NUMERIC_PRECISION", L"9"},
                                      {L"NUMERIC_SCALE", L"2"},
                                      {L"PROPERTY_ATTRIBUTE_HIERARCHY_NAME", L"a"},
                                      {L"KELVORA_ATTRIBUTE_GENERATION", L"4"},
                                      {L"KELVORA_PROPERTY_TYPE", L"1"}})
    property->AppendValueName(column, value);
  row.AppendLevelProperty(property);
  row.AppendLevelProperty(property);
  row.AppendLevelProperty(RefCnt<XmlALevelProperty>(new XmlALevelProperty));
  EXPECT_EQ(property->GetRefCount(), 3u);
  ASSERT_EQ(row.GetNumOfProperties(), 3u);
  for (unsigned int i = 0; i < 2; ++i) {
    EXPECT_EQ(row.GetLevelPropertyCaption(i), String(L"c"));
    EXPECT_EQ(row.GetLevelPropertyName(i), String(L"n"));
    EXPECT_EQ(row.GetLevelPropertyDataType(i), String(L"130"));
    EXPECT_EQ(row.GetLevelPropertyPrecision(i), String(L"9"));
    EXPECT_EQ(row.GetLevelPropertyScale(i), String(L"2"));
    EXPECT_EQ(row.GetLevelPropertyHierarchyAttributeName(i), String(L"a"));
    EXPECT_EQ(row.GetLevelPropertyGenerationNumber(i), 4);
    EXPECT_EQ(row.GetLevelPropertyType(i), 1);
  }
  EXPECT_EQ(row.GetLevelPropertyName(2), String());
  EXPECT_EQ(row.GetLevelPropertyType(2), -1);
}

TEST(LevelRow, PropertiesAreFreedWithTheirLastHandle) {
  const RefCnt<XmlALevelProperty> property(new XmlALevelProperty);
  {
    XmlALevel row = Level();
    row.AppendLevelProperty(property);
    EXPECT_EQ(property->GetRefCount(), 2u);
  }
  EXPECT_EQ(property->GetRefCount(), 1u);
}

TEST(LevelRowDeathTest, AnEmptyPropertyHandleAborts) {
  XmlALevel row = Level();
  row.AppendLevelProperty(RefCnt<XmlALevelProperty>());
  EXPECT_DEATH(row.GetLevelPropertyName(0), "empty reference");
}

}  // namespace
