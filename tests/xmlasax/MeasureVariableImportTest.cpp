// Tests the import of a cube's measures and SAP variables.

#include <gmock/gmock.h>

#include "CubeScript.h"
#include "DiscoverText.h"
#include "ImportProbe.h"

namespace {

using support::ScriptedServer;
using testing::HasSubstr;

using enum ServerInfo::TargetType;

OTXMLAUnits ImportMeasures(const std::string& rows,
                           ServerInfo::TargetType target = kAnalysisServices2005) {
  CubeScript cube;
  cube.measures = rows;
  ScriptedServer server(cube);
  ImportProbe import(server.Url(), target);
  OTXMLAUnits units(5);  // previous content, which must be replaced
  String errors;
  String warnings;
  import.GetMeasuresAndCalcMembers(units, errors, warnings);
  EXPECT_EQ(errors, String());
  EXPECT_EQ(warnings, String());
  EXPECT_EQ(server.Requests().size(), 1u);
  EXPECT_EQ(server.Requests().at(0).body,
            Discover("MDSCHEMA_MEASURES", "S", {{"CATALOG_NAME", "C"}, {"CUBE_NAME", "Q"}}));
  return units;
}

TEST(MeasureImport, TakesNameCaptionAndDefaults) {
  const OTXMLAUnits units = ImportMeasures(
      Row({{"MEASURE_NAME", "sales"}, {"MEASURE_CAPTION", "Sales [all]"}, {"DATA_TYPE", "5"}}));
  ASSERT_EQ(units.size(), 1u);
  EXPECT_EQ(units[0].m_name, String(L"Sales [all]"));
  EXPECT_EQ(units[0].m_externalName, String(L"sales"));
  EXPECT_EQ(units[0].m_precision, 128);
  EXPECT_EQ(units[0].m_scale, 0);
  EXPECT_EQ(units[0].m_nullable, 1);
  EXPECT_EQ(units[0].m_type, VXDoubleData);
  EXPECT_EQ(units[0].m_dimPropType, OTXMLAUnit::kDimPropNone);
  EXPECT_EQ(units[0].m_tamarindAttributeHierarchyName, String());
}

TEST(MeasureImport, KeepsFourAggregationsAndMapsOthersToExternal) {
  for (const int code : {-32768, -1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 127, 256, 32767}) {
    const OTXMLAUnits units = ImportMeasures(Row({{"MEASURE_AGGREGATOR", std::to_string(code)}}));
    EXPECT_EQ(units.at(0).m_aggrType, code >= 1 && code <= 4 ? code : 9) << code;
  }
  EXPECT_EQ(ImportMeasures("<row/>").at(0).m_aggrType, OTXMLAUnit::kAggrExternal);
}

TEST(MeasureImport, TakesPrecisionAndScaleOnlyIfPresent) {
  const OTXMLAUnits units =
      ImportMeasures(Row({{"NUMERIC_PRECISION", "15"}, {"NUMERIC_SCALE", "2"}}) +
                     Row({{"NUMERIC_PRECISION", "65535"}, {"NUMERIC_SCALE", "-1"}}) +
                     Row({{"NUMERIC_PRECISION", ""}, {"NUMERIC_SCALE", ""}}) +
                     Row({{"NUMERIC_PRECISION", "many"}, {"NUMERIC_SCALE", "few"}}));
  ASSERT_EQ(units.size(), 4u);
  EXPECT_EQ(units[0].m_precision, 15);
  EXPECT_EQ(units[0].m_scale, 2);
  EXPECT_EQ(units[1].m_precision, 65535);
  EXPECT_EQ(units[1].m_scale, -1);
  EXPECT_EQ(units[2].m_precision, 128);
  EXPECT_EQ(units[2].m_scale, 0);
  EXPECT_EQ(units[3].m_precision, 0);
  EXPECT_EQ(units[3].m_scale, 0);
}

TEST(MeasureImport, ClampsNumbersToTheFieldsRange) {
  const OTXMLAUnits units = ImportMeasures(
      Row({{"NUMERIC_PRECISION", "2147483648"}, {"NUMERIC_SCALE", "32768"}}) +
      Row({{"NUMERIC_PRECISION", "-2147483649"}, {"NUMERIC_SCALE", "-32769"}}) +
      Row({{"NUMERIC_PRECISION", "99999999999999999999"}, {"NUMERIC_SCALE", "65538"}}));
  ASSERT_EQ(units.size(), 3u);
  EXPECT_EQ(units[0].m_precision, 2147483647);
  EXPECT_EQ(units[0].m_scale, 32767);
  EXPECT_EQ(units[1].m_precision, -2147483647 - 1);
  EXPECT_EQ(units[1].m_scale, -32768);
  EXPECT_EQ(units[2].m_precision, 2147483647);
  EXPECT_EQ(units[2].m_scale, 32767);
}

struct TypeCase {
  ServerInfo::TargetType target;
  const char* dataType;
  bool calculated;
  VXDataType type;
};

TEST(MeasureImport, MapsDataTypesByKindOfProvider) {
  const TypeCase cases[] = {
      {kAnalysisServices2005, "130", false, VXCharData},
      {kAnalysisServices2005, "130", true, VXDoubleData},
      {kAnalysisServices2005, "7", false, VXDateData},
      {kAnalysisServices2005, "FLTP", false, VXUnknown},
      {kSAP_BW35, "FLTP", false, VXFloatData},
      {kSAP_BW35, "CURR", false, VXUnknown},
      {kSAP_BW35, "5", false, VXUnknown},
      {kSAP_BW35, "FLTP", true, VXUnknown},
      {kTamarind7, "3", false, VXDoubleData},
      {kTamarind7, "130", false, VXCharData},
      {kTamarind7, "99", false, VXUnknown},
  };
  for (const TypeCase& c : cases) {
    const std::string row = "<row><DATA_TYPE>" + std::string(c.dataType) + "</DATA_TYPE>" +
                            (c.calculated ? "<EXPRESSION/>" : "") + "</row>";
    EXPECT_EQ(ImportMeasures("<row/>" + row, c.target).back().m_type, c.type)
        << c.target << c.dataType << c.calculated;
  }
}

TEST(MeasureImport, TamarindDropsTheFirstRow) {
  const std::string rows =
      Row({{"MEASURE_NAME", "A"}}) + Row({{"MEASURE_NAME", "B"}}) + Row({{"MEASURE_NAME", "C"}});
  const OTXMLAUnits units = ImportMeasures(rows, kTamarind7);
  ASSERT_EQ(units.size(), 2u);
  EXPECT_EQ(units[0].m_externalName, String(L"B"));
  EXPECT_EQ(units[1].m_externalName, String(L"C"));
  EXPECT_EQ(ImportMeasures(rows, kAnalysisServices2005).size(), 3u);
  EXPECT_TRUE(ImportMeasures(Row({{"MEASURE_NAME", "A"}}), kTamarind7).empty());
  EXPECT_TRUE(ImportMeasures("", kTamarind7).empty());
  EXPECT_TRUE(ImportMeasures("", kAnalysisServices2005).empty());
}

TEST(MeasureImport, SapUsesTheUniqueName) {
  const std::string row =
      Row({{"MEASURE_NAME", "name"}, {"MEASURE_UNIQUE_NAME", "[Measures].[0NETV]"}});
  EXPECT_EQ(ImportMeasures(row, kSAP_BW35).at(0).m_externalName, String(L"0NETV"));
  EXPECT_EQ(ImportMeasures(row, kAnalysisServices2005).at(0).m_externalName, String(L"name"));
}

TEST(MeasureImport, ErrorIsAppendedAndTheListIsEmpty) {
  CubeScript cube;
  cube.measures = "fault:no measures today";
  ScriptedServer server(cube);
  ImportProbe import(server.Url(), kAnalysisServices2005);
  OTXMLAUnits units(2);
  String errors = L"earlier";
  String warnings;
  import.GetMeasuresAndCalcMembers(units, errors, warnings);
  EXPECT_TRUE(units.empty());
  EXPECT_THAT(support::Narrow(errors), testing::StartsWith("earlier"));
  EXPECT_THAT(support::Narrow(errors), HasSubstr("no measures today"));
}

TEST(MeasureImport, WithoutCubeRestrictsToTheEmptyName) {
  ScriptedServer server((CubeScript()));
  ImportProbe import(server.Url(), kAnalysisServices2005);
  import.SetImportChoiceInfo(L"S", L"C", L"");
  OTXMLAUnits units;
  String errors;
  String warnings;
  import.GetMeasuresAndCalcMembers(units, errors, warnings);
  EXPECT_EQ(server.Requests().at(0).body,
            Discover("MDSCHEMA_MEASURES", "S", {{"CATALOG_NAME", "C"}, {"CUBE_NAME", ""}}));
}

// SAP variables.

CubeScript VariablesCube() {
  CubeScript cube;
  cube.variables = Row({{"VARIABLE_NAME", "[!V1]"}, {"VARIABLE_TYPE", "3"}}) +
                   Row({{"VARIABLE_NAME", "[!V2]"}, {"DEFAULT_LOW", "1"}});
  return cube;
}

TEST(VariableImport, AppendsVariablesEachTime) {
  ScriptedServer server(VariablesCube());
  ImportProbe import(server.Url(), kSAP_BW35);
  OTCube cube;
  XmlACubeVariable own;
  own.m_Name = L"own";
  cube.m_sapVariables.push_back(own);
  String errors = L"e";
  String warnings = L"w";
  import.GetSAPVariables(cube, errors, warnings);
  ASSERT_EQ(cube.m_sapVariables.size(), 3u);
  EXPECT_EQ(cube.m_sapVariables[0].m_Name, String(L"own"));
  EXPECT_EQ(cube.m_sapVariables[1].m_Name, String(L"[!V1]"));
  EXPECT_EQ(cube.m_sapVariables[1].m_type, XmlACubeVariable::SAP_VAR_TYPE_HIERARCHY);
  EXPECT_EQ(cube.m_sapVariables[2].m_defaultLow, String(L"1"));
  import.GetSAPVariables(cube, errors, warnings);
  ASSERT_EQ(cube.m_sapVariables.size(), 5u);
  EXPECT_TRUE(cube.m_sapVariables[3] == cube.m_sapVariables[1]);
  EXPECT_EQ(errors, String(L"e"));
  EXPECT_EQ(warnings, String(L"w"));
  EXPECT_EQ(server.Requests().at(0).body,
            Discover("SAP_VARIABLES", "S", {{"CATALOG_NAME", "C"}, {"CUBE_NAME", "Q"}}));
}

/// The number of variables that a new cube gets.
std::size_t CountVariables(ImportProbe& import) {
  OTCube cube;
  String errors;
  String warnings;
  import.GetSAPVariables(cube, errors, warnings);
  return cube.m_sapVariables.size();
}

TEST(VariableImport, WithoutVariablesKeepsTheCube) {
  ScriptedServer server((CubeScript()));
  ImportProbe import(server.Url(), kSAP_BW35);
  EXPECT_EQ(CountVariables(import), 0u);
}

TEST(VariableImport, WithoutCubeRequestsTheWholeCatalog) {
  ScriptedServer server(VariablesCube());
  ImportProbe import(server.Url(), kSAP_BW35);
  import.SetImportChoiceInfo(L"S", L"C", L"");
  EXPECT_EQ(CountVariables(import), 2u);
  EXPECT_EQ(server.Requests().at(0).body, Discover("SAP_VARIABLES", "S", {{"CATALOG_NAME", "C"}}));
}

TEST(VariableImport, WorksWithAllKinds) {
  ScriptedServer server(VariablesCube());
  ImportProbe import(server.Url(), kAnalysisServices2005);
  EXPECT_EQ(CountVariables(import), 2u);
}

TEST(VariableImport, PassesAFaultToTheCallerAndKeepsTheCube) {
  CubeScript script;
  script.variables = "fault:no such rowset";
  ScriptedServer server(script);
  ImportProbe import(server.Url(), kSAP_BW35);
  OTCube cube;
  cube.m_sapVariables.resize(1);
  String errors;
  String warnings;
  try {
    import.GetSAPVariables(cube, errors, warnings);
    FAIL();
  } catch (const ErrorMessage& error) {
    EXPECT_EQ(error.GetNumber(), 64203);
  }
  EXPECT_EQ(errors, String());
  EXPECT_EQ(cube.m_sapVariables.size(), 1u);
}

}  // namespace
