// Tests the import of a cube's hierarchies: requests, skipped hierarchies, and records.

#include <gmock/gmock.h>

#include <algorithm>

#include "CubeScript.h"
#include "DiscoverText.h"
#include "ImportProbe.h"
#include "Utility/Generic/SUStrUtil.h"
#include "Utility/Generic/SUSystemConfig.h"
#include "support/ChildProcess.h"
#include "support/Settings.h"
#include "support/TempDir.h"

namespace {

using support::Request;
using support::RequestType;
using support::ScriptedServer;
using testing::ElementsAre;
using testing::HasSubstr;

using enum ServerInfo::TargetType;

struct Imported {
  std::vector<OTXMLAHierarchy> hierarchies;
  std::string errors;
  std::string warnings;
  std::vector<std::string> requests;  // bodies
};

Imported Import(const CubeScript& cube, ServerInfo::TargetType target) {
  ScriptedServer server(cube);
  ImportProbe import(server.Url(), target);
  Imported result;
  result.hierarchies.resize(3);  // previous content, which must be replaced
  String errors;
  String warnings;
  import.GetHierarchies(result.hierarchies, errors, warnings);
  result.errors = support::Narrow(errors);
  result.warnings = support::Narrow(warnings);
  for (const Request& request : server.Requests()) result.requests.push_back(request.body);
  return result;
}

/// Imports one hierarchy with these columns and the unique name "[D].[H]".
Imported ImportOne(std::initializer_list<std::pair<const char*, std::string>> columns,
                   ServerInfo::TargetType target, CubeScript cube = {}) {
  std::string row = Row(columns);
  row.insert(5, "<HIERARCHY_UNIQUE_NAME>[D].[H]</HIERARCHY_UNIQUE_NAME>");
  cube.hierarchies = row;
  return Import(cube, target);
}

std::vector<std::string> Types(const Imported& result) {
  std::vector<std::string> types;
  for (const std::string& request : result.requests) types.push_back(RequestType(request));
  return types;
}

// Skipped hierarchies.

struct SkipCase {
  const char* name;
  ServerInfo::TargetType target;
  const char* columns;
  int message;  // 0: imported
};

const SkipCase kSkips[] = {
    {"measures", kAnalysisServices2005,
     "<DIMENSION_TYPE>2</DIMENSION_TYPE><STRUCTURE>0</STRUCTURE>", 62012},
    {"measures", kTessera, "<DIMENSION_TYPE>2</DIMENSION_TYPE><STRUCTURE>0</STRUCTURE>", 62012},
    {"measures", kSAP_BW35, "<DIMENSION_TYPE>2</DIMENSION_TYPE>", 62012},
    {"measures", kTamarind11, "<DIMENSION_TYPE>2</DIMENSION_TYPE>", 0},
    {"no structure", kAnalysisServices2005, "", 62013},
    {"no structure", kTessera, "", 62013},
    {"no structure", kSAP_BW35, "", 0},
    {"no structure", kTamarind11, "", 0},
    {"structure 0", kAnalysisServices2005, "<STRUCTURE>0</STRUCTURE>", 0},
    {"structure 1", kAnalysisServices2005, "<STRUCTURE>1</STRUCTURE>", 0},
    {"structure 2", kAnalysisServices2005, "<STRUCTURE>2</STRUCTURE>", 0},
    {"structure 3", kAnalysisServices2005, "<STRUCTURE>3</STRUCTURE>", 0},
    {"structure 4", kAnalysisServices2005, "<STRUCTURE>4</STRUCTURE>", 62013},
    {"structure 4", kSAP_BW35, "<STRUCTURE>4</STRUCTURE>", 0},
    {"virtual", kAnalysisServices2005, "<STRUCTURE>0</STRUCTURE><IS_VIRTUAL>true</IS_VIRTUAL>",
     62011},
    {"virtual", kSAP_BW35, "<IS_VIRTUAL>TRUE</IS_VIRTUAL>", 62011},
    {"virtual", kTamarind11, "<DIMENSION_MASTER_UNIQUE_NAME/>", 62011},
    {"measures before structure", kAnalysisServices2005,
     "<DIMENSION_TYPE>2</DIMENSION_TYPE><IS_VIRTUAL>true</IS_VIRTUAL>", 62012},
    {"structure before virtual", kAnalysisServices2005, "<IS_VIRTUAL>true</IS_VIRTUAL>", 62013},
    {"measures before virtual", kSAP_BW35,
     "<DIMENSION_TYPE>2</DIMENSION_TYPE><IS_VIRTUAL>true</IS_VIRTUAL>", 62012},
    {"a virtual measures hierarchy", kTamarind11,
     "<DIMENSION_TYPE>2</DIMENSION_TYPE><IS_VIRTUAL>true</IS_VIRTUAL>", 62011},
};

TEST(HierarchyImport, SkipsHierarchiesByProviderRulesWithOneWarning) {
  for (const SkipCase& skip : kSkips) {
    CubeScript cube;
    cube.hierarchies = "<row><HIERARCHY_UNIQUE_NAME>[D].[H]</HIERARCHY_UNIQUE_NAME>" +
                       std::string(skip.columns) + "</row>" +
                       Row({{"HIERARCHY_UNIQUE_NAME", "[next]"}, {"STRUCTURE", "0"}});
    const Imported result = Import(cube, skip.target);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.hierarchies.size(), skip.message ? 1u : 2u) << skip.name << skip.target;
    if (!skip.message) {
      EXPECT_EQ(result.warnings, "") << skip.name << skip.target;
      continue;
    }
    EXPECT_THAT(result.warnings, testing::StartsWith("[" + std::to_string(skip.message) + "] "))
        << skip.name << skip.target;
    EXPECT_EQ(std::count(result.warnings.begin(), result.warnings.end(), '\n'), 1);
    EXPECT_EQ(result.warnings.back(), '\n');
  }
}

TEST(HierarchyImport, WarningsNameHierarchySourceCatalogAndCube) {
  for (const auto& [columns, number] :
       {std::pair{"<DIMENSION_TYPE>2</DIMENSION_TYPE>", 62012},
        {"", 62013},
        {"<STRUCTURE>0</STRUCTURE><IS_VIRTUAL>true</IS_VIRTUAL>", 62011}}) {
    CubeScript cube;
    cube.hierarchies = "<row><HIERARCHY_UNIQUE_NAME>[the hierarchy]</HIERARCHY_UNIQUE_NAME>" +
                       std::string(columns) + "</row>";
    ScriptedServer server(cube);
    ImportProbe import(server.Url(), kAnalysisServices2005);
    import.SetImportChoiceInfo(L"the source", L"the catalog", L"the cube");
    std::vector<OTXMLAHierarchy> hierarchies;
    String errors;
    String warnings;
    import.GetHierarchies(hierarchies, errors, warnings);
    EXPECT_EQ(support::Narrow(warnings),
              support::Narrow(SUStrUtil::LoadMsgStringOnly(
                  number, {L"[the hierarchy]", L"the source", L"the catalog", L"the cube"})) +
                  "\n");
  }
}

// Names and types.

TEST(HierarchyImport, KeepsLongCaptions) {
  const std::string caption = "A [caption]. with 'everything' * ? " + std::string(200, 'x');
  const Imported result = ImportOne(
      {{"HIERARCHY_CAPTION", caption}, {"STRUCTURE", "0"}, {"DIMENSION_UNIQUE_NAME", "[D]"}},
      kAnalysisServices2005);
  ASSERT_EQ(result.hierarchies.size(), 1u);
  EXPECT_EQ(support::Narrow(result.hierarchies[0].m_hierarchyName), caption);
  EXPECT_EQ(result.hierarchies[0].m_externalName, String(L"D.H"));
  EXPECT_EQ(result.hierarchies[0].m_dimensionUniqueName, String(L"D"));
}

struct NameCase {
  const char* uniqueName;
  const char* external;
  const char* generated;
};

TEST(HierarchyImport, GeneratesANameWithoutACaption) {
  const NameCase cases[] = {
      {"[Product].[Brand Name]", "Product.Brand Name", "ProductBrandName"},
      {"[a b]\t[c*d]&#13;[e?f'g].h", "a b\tc*d\re?f'g.h", "abcdefgh"},
      {"[[x]]", "x", "x"},
      {"[a&#10;b]", "a\nb", "a\nb"},  // line feeds stay
      {"", "", ""},
      {"[日本.語]", "日本.語", "日本語"},
  };
  for (const NameCase& name : cases) {
    CubeScript cube;
    cube.hierarchies = Row({{"HIERARCHY_UNIQUE_NAME", name.uniqueName}, {"STRUCTURE", "0"}});
    const Imported result = Import(cube, kAnalysisServices2005);
    ASSERT_EQ(result.hierarchies.size(), 1u) << name.uniqueName;
    EXPECT_EQ(support::Narrow(result.hierarchies[0].m_externalName), name.external);
    EXPECT_EQ(support::Narrow(result.hierarchies[0].m_hierarchyName), name.generated);
  }
}

TEST(HierarchyImport, TruncatesAGeneratedNameTo128Characters) {
  const struct {
    std::string text;
    std::string kept;
  } cases[] = {
      {std::string(200, 'x'), std::string(128, 'x')},
      {std::string(128, 'x'), std::string(128, 'x')},
      {std::string(100, ' ') + std::string(128, 'x'), std::string(128, 'x')},
  };
  for (const auto& c : cases) {
    CubeScript cube;
    cube.hierarchies = Row({{"HIERARCHY_UNIQUE_NAME", "[" + c.text + "]"}, {"STRUCTURE", "0"}});
    const Imported result = Import(cube, kAnalysisServices2005);
    EXPECT_EQ(support::Narrow(result.hierarchies.at(0).m_hierarchyName), c.kept);
    EXPECT_EQ(support::Narrow(result.hierarchies.at(0).m_externalName), c.text);
  }
  // Counts characters, not bytes. One beyond the basic plane counts as one.
  std::string astral;
  for (int i = 0; i < 200; ++i) astral += "\U0001F4C8";
  CubeScript cube;
  cube.hierarchies = Row({{"HIERARCHY_UNIQUE_NAME", astral}, {"STRUCTURE", "0"}});
  EXPECT_EQ(Import(cube, kAnalysisServices2005).hierarchies.at(0).m_hierarchyName.size(), 128u);
}

TEST(HierarchyImport, TakesStructureAndDimensionTypeFromTheRow) {
  const int types[] = {1, 3, 2, 4};
  for (int structure = 0; structure < 4; ++structure) {
    const Imported result = ImportOne(
        {{"STRUCTURE", std::to_string(structure)}, {"DIMENSION_TYPE", "1"}}, kAnalysisServices2005);
    EXPECT_EQ(result.hierarchies.at(0).m_hierarchyType, types[structure]);
    EXPECT_EQ(result.hierarchies.at(0).m_dimensionType, OTXMLAHierarchy::kDimensionTypeTime);
  }
}

TEST(HierarchyImport, LeavesTheHostsFieldsEmpty) {
  const Imported result =
      ImportOne({{"STRUCTURE", "0"}, {"DEFAULT_MEMBER", "[M]"}}, kAnalysisServices2005);
  const OTXMLAHierarchy& hierarchy = result.hierarchies.at(0);
  EXPECT_TRUE(hierarchy.m_alternateHierarchyNames.empty());
  EXPECT_TRUE(hierarchy.m_udas.empty());
  EXPECT_EQ(hierarchy.m_defaultMember, String());
}

// SAP BW.

TEST(SapHierarchyImport, MapsDefaultAndUnknownStructuresToBalanced) {
  CubeScript cube;
  cube.dimensions = Row({{"DEFAULT_HIERARCHY", "[default]"}});
  cube.hierarchies = Row({{"HIERARCHY_UNIQUE_NAME", "[default]"}, {"STRUCTURE", "2"}}) +
                     Row({{"HIERARCHY_UNIQUE_NAME", "[other]"}, {"STRUCTURE", "2"}}) +
                     Row({{"HIERARCHY_UNIQUE_NAME", "[unknown]"}}) +
                     Row({{"HIERARCHY_UNIQUE_NAME", "[DEFAULT]"}, {"STRUCTURE", "3"}});
  const Imported result = Import(cube, kSAP_BW35);
  ASSERT_EQ(result.hierarchies.size(), 4u);
  EXPECT_EQ(result.hierarchies[0].m_hierarchyType, OTXMLAHierarchy::kHierarchyFullyBalanced);
  EXPECT_EQ(result.hierarchies[1].m_hierarchyType, OTXMLAHierarchy::kHierarchyUnBalanced);
  EXPECT_EQ(result.hierarchies[2].m_hierarchyType, OTXMLAHierarchy::kHierarchyFullyBalanced);
  EXPECT_EQ(result.hierarchies[3].m_hierarchyType, OTXMLAHierarchy::kHierarchyNetwork);
}

// Tamarind.

TEST(TamarindHierarchyImport, TakesTheTypeOfTheFirstDimensionWithThatName) {
  CubeScript cube;
  cube.dimensions = Row({{"DIMENSION_UNIQUE_NAME", "[other]"}, {"DIMENSION_TYPE", "5"}}) +
                    Row({{"DIMENSION_UNIQUE_NAME", "[d]"},
                         {"DIMENSION_TYPE", "3"},
                         {"KELVORA_DIMENSION_IS_ATTRIBUTE", "true"}}) +
                    Row({{"DIMENSION_UNIQUE_NAME", "[D]"}, {"DIMENSION_TYPE", "6"}});
  cube.hierarchies = Row({{"DIMENSION_UNIQUE_NAME", "[D]"}, {"DIMENSION_TYPE", "1"}}) +
                     Row({{"DIMENSION_UNIQUE_NAME", "[none]"}, {"DIMENSION_TYPE", "1"}}) +
                     Row({{"DIMENSION_UNIQUE_NAME", "[OTHER]"}});
  const Imported result = Import(cube, kTamarind11);
  ASSERT_EQ(result.hierarchies.size(), 3u);
  EXPECT_EQ(result.hierarchies[0].m_dimensionType, OTXMLAHierarchy::kDimensionAttribute);
  EXPECT_EQ(result.hierarchies[1].m_dimensionType, OTXMLAHierarchy::kDimensionTypeTime);
  EXPECT_EQ(result.hierarchies[2].m_dimensionType, OTXMLAHierarchy::kDimensionAccounts);
}

TEST(TamarindHierarchyImport, WithoutDimensionsKeepsTheHierarchysType) {
  const Imported result = ImportOne({{"DIMENSION_TYPE", "1"}}, kTamarind11);
  EXPECT_EQ(result.hierarchies.at(0).m_dimensionType, OTXMLAHierarchy::kDimensionTypeTime);
}

TEST(TamarindHierarchyImport, OtherKindsKeepTheirOwnType) {
  CubeScript cube;
  cube.dimensions = Row({{"DIMENSION_UNIQUE_NAME", "[D]"}, {"DIMENSION_TYPE", "6"}});
  for (const auto target : {kAnalysisServices2005, kSAP_BW35}) {
    const Imported result =
        ImportOne({{"DIMENSION_UNIQUE_NAME", "[D]"}, {"DIMENSION_TYPE", "1"}, {"STRUCTURE", "0"}},
                  target, cube);
    EXPECT_EQ(result.hierarchies.at(0).m_dimensionType, OTXMLAHierarchy::kDimensionTypeTime);
  }
}

struct DefaultMemberCase {
  const char* columns;
  bool asked;
};

TEST(TamarindHierarchyImport, AllMemberAsDefaultNeedsNoLookUp) {
  const DefaultMemberCase cases[] = {
      {"<DEFAULT_MEMBER>[All]</DEFAULT_MEMBER><ALL_MEMBER>[all]</ALL_MEMBER>", false},
      {"", false},  // two empty names
      {"<DEFAULT_MEMBER/><ALL_MEMBER/>", false},
      {"<DEFAULT_MEMBER>[All]</DEFAULT_MEMBER>", true},
      {"<DEFAULT_MEMBER>[x]</DEFAULT_MEMBER><ALL_MEMBER>[All]</ALL_MEMBER>", true},
  };
  for (const DefaultMemberCase& c : cases) {
    CubeScript cube;
    cube.hierarchies = "<row><HIERARCHY_UNIQUE_NAME>[H]</HIERARCHY_UNIQUE_NAME>" +
                       std::string(c.columns) + "</row>";
    cube.members["[H]"] = Row({{"MEMBER_TYPE", "3"}});
    const Imported result = Import(cube, kTamarind11);
    EXPECT_EQ(result.hierarchies.at(0).m_memberType,
              c.asked ? OTXMLAHierarchy::kMemberTypeFormula : OTXMLAHierarchy::kMemberTypeAll)
        << c.columns;
    EXPECT_EQ(std::ranges::count(Types(result), "MDSCHEMA_MEMBERS"), c.asked ? 1 : 0) << c.columns;
  }
}

TEST(HierarchyImport, OtherKindsAlwaysLookUpTheDefaultMember) {
  for (const auto target : {kAnalysisServices2005, kSAP_BW35}) {
    CubeScript cube;
    cube.members["[D].[H]"] = Row({{"MEMBER_TYPE", "2"}});
    const Imported result = ImportOne({{"STRUCTURE", "0"},
                                       {"DEFAULT_MEMBER", "[D].[All &amp; more]"},
                                       {"ALL_MEMBER", "[D].[All &amp; more]"}},
                                      target, cube);
    EXPECT_EQ(result.hierarchies.at(0).m_memberType, OTXMLAHierarchy::kMemberTypeAll);
    EXPECT_THAT(result.requests,
                testing::Contains(Discover("MDSCHEMA_MEMBERS", "S",
                                           {{"CATALOG_NAME", "C"},
                                            {"CUBE_NAME", "Q"},
                                            {"HIERARCHY_UNIQUE_NAME", "[D].[H]"},
                                            {"MEMBER_UNIQUE_NAME", "[D].[All &amp; more]"}})));
  }
}

TEST(HierarchyImport, KeepsUnknownMemberTypesAndZeroForNone) {
  CubeScript cube;
  cube.members["[D].[H]"] = Row({{"MEMBER_TYPE", "-77"}});
  EXPECT_EQ(int{ImportOne({{"STRUCTURE", "0"}}, kAnalysisServices2005, cube)
                    .hierarchies.at(0)
                    .m_memberType},
            -77);
  EXPECT_EQ(
      int{ImportOne({{"STRUCTURE", "0"}}, kAnalysisServices2005).hierarchies.at(0).m_memberType},
      0);
}

TEST(HierarchyImport, FailedLookUpIsAWarning) {
  for (const auto target : {kAnalysisServices2005, kSAP_BW35, kTamarind11}) {
    CubeScript cube;
    cube.hierarchies =
        Row({{"HIERARCHY_UNIQUE_NAME", "[a]"}, {"STRUCTURE", "0"}, {"DEFAULT_MEMBER", "[m]"}}) +
        Row({{"HIERARCHY_UNIQUE_NAME", "[b]"}, {"STRUCTURE", "0"}, {"DEFAULT_MEMBER", "[m]"}});
    cube.members["[a]"] = "fault:no such member";
    cube.members["[b]"] = Row({{"MEMBER_TYPE", "1"}});
    cube.levels["[a]"] = Row({{"LEVEL_NAME", "l"}});
    const Imported result = Import(cube, target);
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(result.warnings, testing::StartsWith("[64203] "));
    EXPECT_THAT(result.warnings, HasSubstr("no such member"));
    EXPECT_EQ(std::count(result.warnings.begin(), result.warnings.end(), '\n'), 1);
    EXPECT_EQ(result.warnings.back(), '\n');
    ASSERT_EQ(result.hierarchies.size(), 2u);
    EXPECT_EQ(result.hierarchies[0].m_memberType, OTXMLAHierarchy::kMemberTypeUnknown);
    EXPECT_EQ(result.hierarchies[0].m_levels.size(), 1u);
    EXPECT_EQ(result.hierarchies[1].m_memberType, OTXMLAHierarchy::kMemberTypeRegular);
  }
}

// Levels.

/// Imports one level with these columns.
OTXMLALevel ImportLevel(const std::string& row,
                        ServerInfo::TargetType target = kAnalysisServices2005,
                        const std::string& properties = "") {
  CubeScript cube;
  cube.levels["[D].[H]"] = row;
  cube.properties["[D].[H].[L]"] = properties;
  Imported result = ImportOne({{"STRUCTURE", "0"}}, target, cube);
  EXPECT_EQ(result.errors, "");
  return result.hierarchies.at(0).m_levels.at(0);
}

struct LevelNameCase {
  const char* name;
  const char* caption;
  const char* display;
};

TEST(LevelImport, NamesALevelByUniqueNameCaptionOrGeneratedName) {
  const LevelNameCase cases[] = {
      {"(All)", "Everything", "[D].[H].[L]"},
      {"(ALL)", "", "[D].[H].[L]"},
      {"(all)", "x", "[D].[H].[L]"},
      {"Year", "Fiscal [Year].", "Fiscal [Year]."},
      {"[Fiscal].[Year 1]", "", "FiscalYear1"},
      {" (All)", "", "(All)"},
      {"", "", ""},
  };
  for (const LevelNameCase& c : cases) {
    const OTXMLALevel level = ImportLevel(Row({{"LEVEL_UNIQUE_NAME", "[D].[H].[L]"},
                                               {"LEVEL_NAME", c.name},
                                               {"LEVEL_CAPTION", c.caption}}));
    EXPECT_EQ(support::Narrow(level.m_levelName), c.display) << c.name;
    EXPECT_EQ(support::Narrow(level.m_level.m_name), c.display) << c.name;
    EXPECT_EQ(support::Narrow(level.m_externalName), c.name);
    EXPECT_EQ(support::Narrow(level.m_level.m_externalName), c.name);
  }
}

TEST(LevelImport, TruncatesAGeneratedLevelNameButNoCaption) {
  const std::string longText(200, 'x');
  EXPECT_EQ(ImportLevel(Row({{"LEVEL_NAME", longText}})).m_levelName.size(), 128u);
  EXPECT_EQ(ImportLevel(Row({{"LEVEL_NAME", longText}})).m_level.m_name.size(), 128u);
  EXPECT_EQ(ImportLevel(Row({{"LEVEL_CAPTION", longText}})).m_levelName.size(), 200u);
}

TEST(LevelImport, ColumnIsInitiallyANullableText) {
  const OTXMLALevel level = ImportLevel(Row({{"LEVEL_NAME", "l"},
                                             {"DATA_TYPE", "7"},
                                             {"NUMERIC_PRECISION", "9"},
                                             {"NUMERIC_SCALE", "2"}}));
  EXPECT_EQ(level.m_level.m_aggrType, OTXMLAUnit::kAggrUnknown);
  EXPECT_EQ(level.m_level.m_precision, 128);
  EXPECT_EQ(level.m_level.m_type, VXVarCharData);
  EXPECT_EQ(level.m_level.m_scale, 0);
  EXPECT_EQ(level.m_level.m_nullable, 1);
  EXPECT_EQ(level.m_level.m_dimPropType, OTXMLAUnit::kDimPropNone);
}

std::string LevelRows(const std::vector<int>& numbers) {
  std::string rows;
  for (const int number : numbers) {
    const std::string text = std::to_string(number);
    rows += Row({{"LEVEL_NUMBER", text},
                 {"LEVEL_NAME", "l" + text},
                 {"LEVEL_UNIQUE_NAME", "[l" + text + "]"}});
  }
  return rows;
}

TEST(LevelImport, OrdersLevelsByNumber) {
  for (const std::vector<int>& order :
       {std::vector{2, 0, 1}, {0, 1, 2}, {2, 1, 0}, {5}, {3, -2, 32767, 0}, {}}) {
    CubeScript cube;
    cube.levels["[D].[H]"] = LevelRows(order);
    const Imported result = ImportOne({{"STRUCTURE", "0"}}, kAnalysisServices2005, cube);
    std::vector<int> got;
    for (const OTXMLALevel& level : result.hierarchies.at(0).m_levels) {
      got.push_back(level.m_levelNumber);
      EXPECT_EQ(support::Narrow(level.m_levelName), "l" + std::to_string(level.m_levelNumber));
    }
    std::vector<int> sorted = order;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(got, sorted);
  }
}

TEST(LevelImportDeathTest, TwoLevelsWithTheSameNumberAbort) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  CubeScript cube;
  cube.levels["[D].[H]"] = LevelRows({0, 1, 0});
  EXPECT_DEATH(ImportOne({{"STRUCTURE", "0"}}, kAnalysisServices2005, cube),
               "SUXMLASAXAnaTamImport:506: +\n");
}

// Properties.

TEST(PropertyImport, RequestsThePropertiesOfTheLevel) {
  CubeScript cube;
  cube.levels["[D].[H]"] =
      Row({{"LEVEL_UNIQUE_NAME", "[D].[H].[L]"}, {"DIMENSION_UNIQUE_NAME", "[D]"}});
  const Imported result = ImportOne({{"STRUCTURE", "0"}}, kAnalysisServices2005, cube);
  EXPECT_EQ(result.requests.back(), Discover("MDSCHEMA_PROPERTIES", "S",
                                             {{"CATALOG_NAME", "C"},
                                              {"CUBE_NAME", "Q"},
                                              {"DIMENSION_UNIQUE_NAME", "[D]"},
                                              {"HIERARCHY_UNIQUE_NAME", "[D].[H]"},
                                              {"LEVEL_UNIQUE_NAME", "[D].[H].[L]"}}));
}

OTXMLAUnit ImportProperty(std::initializer_list<std::pair<const char*, std::string>> columns,
                          ServerInfo::TargetType target = kAnalysisServices2005) {
  return ImportLevel(Row({{"LEVEL_UNIQUE_NAME", "[D].[H].[L]"}}), target, Row(columns))
      .m_memberProperties.at(0);
}

TEST(PropertyImport, NamesAPropertyByCaptionOrGeneratedName) {
  const OTXMLAUnit captioned =
      ImportProperty({{"PROPERTY_NAME", "[a].[b c]"}, {"PROPERTY_CAPTION", "The [caption]"}});
  EXPECT_EQ(captioned.m_name, String(L"The [caption]"));
  EXPECT_EQ(captioned.m_externalName, String(L"a.b c"));
  const OTXMLAUnit generated = ImportProperty({{"PROPERTY_NAME", "[a].[b c]"}});
  EXPECT_EQ(generated.m_name, String(L"abc"));
  EXPECT_EQ(ImportProperty({{"PROPERTY_NAME", std::string(200, 'x')}}).m_name.size(), 128u);
}

TEST(PropertyImport, TakesPrecisionAndScaleOnlyIfPresent) {
  const OTXMLAUnit bare = ImportProperty({{"PROPERTY_NAME", "p"}});
  EXPECT_EQ(bare.m_precision, 128);
  EXPECT_EQ(bare.m_scale, 0);
  EXPECT_EQ(bare.m_nullable, 1);
  EXPECT_EQ(bare.m_aggrType, OTXMLAUnit::kAggrUnknown);
  EXPECT_EQ(bare.m_dimPropType, OTXMLAUnit::kDimPropNone);
  const OTXMLAUnit given =
      ImportProperty({{"CHARACTER_MAXIMUM_LENGTH", "65535"}, {"NUMERIC_SCALE", "-1"}});
  EXPECT_EQ(given.m_precision, 65535);
  EXPECT_EQ(given.m_scale, -1);
  const OTXMLAUnit empty = ImportProperty({{"NUMERIC_PRECISION", ""}, {"NUMERIC_SCALE", ""}});
  EXPECT_EQ(empty.m_precision, 128);
  EXPECT_EQ(empty.m_scale, 0);
  const OTXMLAUnit extreme =
      ImportProperty({{"NUMERIC_PRECISION", "9999999999"}, {"NUMERIC_SCALE", "99999"}});
  EXPECT_EQ(extreme.m_precision, 2147483647);
  EXPECT_EQ(extreme.m_scale, 32767);
}

struct PropertyTypeCase {
  ServerInfo::TargetType target;
  const char* dataType;
  VXDataType type;
};

TEST(PropertyImport, MapsDataTypesByKindOfProvider) {
  const PropertyTypeCase cases[] = {
      {kAnalysisServices2005, "130", VXVarCharData},
      {kAnalysisServices2005, "7", VXDateData},
      {kAnalysisServices2005, "133", VXDateData},
      {kAnalysisServices2005, "135", VXDateData},
      {kAnalysisServices2005, "5", VXVarCharData},
      {kAnalysisServices2005, "", VXVarCharData},
      {kTessera, "135", VXDateData},
      {kSAP_BW35, "7", VXVarCharData},
      {kSAP_BW35, "FLTP", VXVarCharData},
      {kSAP_BW35, "DATS", VXVarCharData},
  };
  for (const PropertyTypeCase& c : cases)
    EXPECT_EQ(ImportProperty({{"DATA_TYPE", c.dataType}}, c.target).m_type, c.type)
        << c.target << " " << c.dataType;
}

TEST(PropertyImport, KelvoraNumbersAreOnlyForTamarind) {
  for (const auto target : {kAnalysisServices2005, kSAP_BW35}) {
    const OTXMLAUnit unit = ImportProperty({{"KELVORA_ATTRIBUTE_GENERATION", "1"},
                                            {"KELVORA_PROPERTY_TYPE", "2"},
                                            {"PROPERTY_ATTRIBUTE_HIERARCHY_NAME", "[A]"}},
                                           target);
    EXPECT_EQ(unit.m_tamarindGenerationNumber, 0);
    EXPECT_EQ(unit.m_tamarindPropertyType, 0);
    EXPECT_EQ(unit.m_tamarindAttributeHierarchyName, String(L"[A]"));
  }
  const OTXMLAUnit unit = ImportProperty(
      {{"KELVORA_ATTRIBUTE_GENERATION", "1"}, {"KELVORA_PROPERTY_TYPE", "2"}, {"DATA_TYPE", "3"}},
      kTamarind11);
  EXPECT_EQ(unit.m_tamarindGenerationNumber, 1);
  EXPECT_EQ(unit.m_tamarindPropertyType, 2);
  EXPECT_EQ(unit.m_type, VXVarCharData);
  EXPECT_EQ(unit.m_tamarindAttributeHierarchyName, String());
  EXPECT_EQ(
      ImportProperty({{"KELVORA_ATTRIBUTE_GENERATION", "1"}, {"DATA_TYPE", "130"}}, kTamarind11)
          .m_type,
      VXDoubleData);
}

std::string GenerationRows(const std::vector<std::pair<int, int>>& generationsAndTypes) {
  std::string rows;
  for (const auto& [generation, type] : generationsAndTypes)
    rows += Row({{"PROPERTY_NAME", std::to_string(generation) + "/" + std::to_string(type)},
                 {"KELVORA_ATTRIBUTE_GENERATION", std::to_string(generation)},
                 {"KELVORA_PROPERTY_TYPE", std::to_string(type)}});
  return rows;
}

TEST(PropertyImport, TamarindLevelsKeepTheirOwnGenerationAndNoTypeOne) {
  CubeScript cube;
  cube.levels["[D].[H]"] = LevelRows({3, 0, 2, 1});
  const std::string all =
      GenerationRows({{4, 2}, {4, 1}, {3, 0}, {1, 5}, {4, 3}, {2, 2}, {0, 2}, {5, 2}});
  for (const char* level : {"[l0]", "[l1]", "[l2]", "[l3]"}) cube.properties[level] = all;
  const Imported result = ImportOne({}, kTamarind11, cube);
  std::vector<std::string> kept;
  for (const OTXMLALevel& level : result.hierarchies.at(0).m_levels) {
    std::string names = std::to_string(level.m_levelNumber) + ":";
    for (const OTXMLAUnit& unit : level.m_memberProperties)
      names += " " + support::Narrow(unit.m_externalName);
    kept.push_back(names);
  }
  EXPECT_THAT(kept, ElementsAre("0: 4/2 4/3", "1: 3/0", "2: 2/2", "3: 1/5"));
}

TEST(PropertyImport, TamarindGenerationsAreCountedFromTheGreatestLevelNumber) {
  struct Case {
    std::vector<int> numbers;
    std::vector<std::string> kept;
  };
  const Case cases[] = {
      {{0}, {"0: 1/2"}},
      {{7}, {"7: 1/2"}},
      {{1, 2, 3}, {"1: 3/2", "2: 2/2", "3: 1/2"}},
      {{5, 0, 2}, {"0: 6/2", "2: 4/2", "5: 1/2"}},
      {{4, 6}, {"4: 3/2", "6: 1/2"}},
  };
  for (const Case& test : cases) {
    CubeScript cube;
    cube.levels["[D].[H]"] = LevelRows(test.numbers);
    for (const int number : test.numbers)
      cube.properties["[l" + std::to_string(number) + "]"] =
          GenerationRows({{0, 2}, {1, 2}, {2, 2}, {3, 2}, {4, 2}, {5, 2}, {6, 2}, {7, 2}, {8, 2}});
    const Imported result = ImportOne({}, kTamarind11, cube);
    std::vector<std::string> kept;
    for (const OTXMLALevel& level : result.hierarchies.at(0).m_levels) {
      kept.push_back(std::to_string(level.m_levelNumber) + ":");
      for (const OTXMLAUnit& unit : level.m_memberProperties)
        kept.back() += " " + support::Narrow(unit.m_externalName);
    }
    EXPECT_EQ(kept, test.kept);
  }
}

TEST(HierarchyImport, StripsBracketsForEveryKind) {
  for (const auto target : {kAnalysisServices2005, kTessera, kSAP_BW35, kTamarind11}) {
    CubeScript cube;
    cube.hierarchies = Row({{"HIERARCHY_UNIQUE_NAME", "[Di m].[H]ier[]"},
                            {"DIMENSION_UNIQUE_NAME", "[[Di m]]"},
                            {"STRUCTURE", "0"}});
    cube.levels["[Di m].[H]ier[]"] =
        Row({{"LEVEL_NAME", "[a] level.*?'"}, {"LEVEL_UNIQUE_NAME", "[l]"}, {"LEVEL_NUMBER", "0"}});
    cube.properties["[l]"] = Row({{"PROPERTY_NAME", "[a] [prop]"},
                                  {"KELVORA_ATTRIBUTE_GENERATION", "1"},
                                  {"KELVORA_PROPERTY_TYPE", "2"}});
    const Imported result = Import(cube, target);
    ASSERT_EQ(result.hierarchies.size(), 1u) << target;
    const OTXMLAHierarchy& hierarchy = result.hierarchies[0];
    EXPECT_EQ(hierarchy.m_externalName, String(L"Di m.Hier")) << target;
    EXPECT_EQ(hierarchy.m_hierarchyName, String(L"DimHier")) << target;
    EXPECT_EQ(hierarchy.m_dimensionUniqueName, String(L"Di m")) << target;
    const OTXMLALevel& level = hierarchy.m_levels.at(0);
    EXPECT_EQ(level.m_externalName, String(L"[a] level.*?'")) << target;  // unchanged
    ASSERT_EQ(level.m_memberProperties.size(), 1u) << target;
    EXPECT_EQ(level.m_memberProperties[0].m_externalName, String(L"a prop")) << target;
    EXPECT_EQ(level.m_memberProperties[0].m_name, String(L"aprop")) << target;
  }
}

TEST(HierarchyImport, WarningMentionsAMissingName) {
  CubeScript cube;
  cube.hierarchies = "<row><DIMENSION_TYPE>2</DIMENSION_TYPE></row>";
  EXPECT_EQ(Import(cube, kAnalysisServices2005)
                .warnings.find("[62012] A hierarchy without a name was skipped"),
            0u);
}

TEST(HierarchyImport, FlatMeasureFlagHasNoEffect) {
  CubeScript cube = CubeScript();
  cube.hierarchies = Row({{"HIERARCHY_UNIQUE_NAME", "[h]"}, {"STRUCTURE", "0"}}) +
                     Row({{"HIERARCHY_UNIQUE_NAME", "[m]"}, {"DIMENSION_TYPE", "2"}});
  cube.measures = Row({{"MEASURE_NAME", "a"}}) + Row({{"MEASURE_NAME", "b"}});
  for (const auto target : {kAnalysisServices2005, kSAP_BW35, kTamarind11}) {
    std::vector<std::string> outcomes;
    for (const bool isFlat : {false, true}) {
      ScriptedServer server(cube);
      ImportProbe import(server.Url(), target);
      OTXMLAImportOption option;
      option.m_bFlatMeasureListFlag = isFlat;
      import.SetImportOption(option);
      std::vector<OTXMLAHierarchy> hierarchies;
      OTXMLAUnits units;
      String errors;
      String warnings;
      import.GetHierarchies(hierarchies, errors, warnings);
      import.GetMeasuresAndCalcMembers(units, errors, warnings);
      std::string outcome = support::Narrow(errors) + support::Narrow(warnings);
      for (const OTXMLAHierarchy& hierarchy : hierarchies)
        outcome += "\n" + support::Narrow(hierarchy.m_externalName);
      for (const OTXMLAUnit& unit : units) outcome += "\n" + support::Narrow(unit.m_externalName);
      for (const Request& request : server.Requests()) outcome += "\n" + request.body;
      outcomes.push_back(outcome);
    }
    EXPECT_EQ(outcomes[0], outcomes[1]) << target;
  }
}

TEST(PropertyImport, OtherKindsKeepAllOfThemInOrder) {
  CubeScript cube;
  cube.levels["[D].[H]"] = LevelRows({0});
  cube.properties["[l0]"] = GenerationRows({{4, 2}, {4, 1}, {4, 1}});
  const Imported result = ImportOne({{"STRUCTURE", "0"}}, kAnalysisServices2005, cube);
  EXPECT_EQ(result.hierarchies.at(0).m_levels.at(0).m_memberProperties.size(), 3u);
}

// Requests and errors.

CubeScript WholeCube() {
  CubeScript cube;
  cube.dimensions = Row({{"DIMENSION_UNIQUE_NAME", "[D]"}, {"DEFAULT_HIERARCHY", "[a]"}});
  for (const char* name : {"[a]", "[b]"}) {
    cube.hierarchies +=
        Row({{"HIERARCHY_UNIQUE_NAME", name}, {"STRUCTURE", "0"}, {"DEFAULT_MEMBER", "[m]"}});
    cube.levels[name] = LevelRows({0, 1});
  }
  return cube;
}

TEST(HierarchyImport, SendsTheseRequestsInThisOrder) {
  const std::vector<std::string> each = {"MDSCHEMA_MEMBERS", "MDSCHEMA_LEVELS",
                                         "MDSCHEMA_PROPERTIES", "MDSCHEMA_PROPERTIES"};
  for (const auto target : {kAnalysisServices2005, kTessera, kSAP_BW35, kTamarind11}) {
    std::vector<std::string> expected;
    if (target == kSAP_BW35 || target == kTamarind11) expected.push_back("MDSCHEMA_DIMENSIONS");
    expected.push_back("MDSCHEMA_HIERARCHIES");
    for (int i = 0; i < 2; ++i) expected.insert(expected.end(), each.begin(), each.end());
    EXPECT_EQ(Types(Import(WholeCube(), target)), expected) << target;
  }
}

TEST(HierarchyImport, AllRequestsAreForTheChosenCube) {
  for (const auto target : {kAnalysisServices2005, kSAP_BW35, kTamarind11}) {
    const Imported result = Import(WholeCube(), target);
    EXPECT_GE(result.requests.size(), 9u);
    for (const std::string& request : result.requests) {
      EXPECT_THAT(request, HasSubstr("<RestrictionList><CATALOG_NAME>C</CATALOG_NAME>"
                                     "<CUBE_NAME>Q</CUBE_NAME>"));
      EXPECT_THAT(request, HasSubstr("<PropertyList><DataSourceInfo>S</DataSourceInfo>"
                                     "<Catalog>C</Catalog></PropertyList>"));
    }
  }
}

TEST(HierarchyImport, AppendsToTheHostsTexts) {
  CubeScript cube = WholeCube();
  cube.hierarchies = Row({{"HIERARCHY_UNIQUE_NAME", "[skipped]"}}) + cube.hierarchies;
  cube.levels["[b]"] = "fault:broken";
  cube.members["[a]"] = "fault:no such member";
  ScriptedServer server(cube);
  ImportProbe import(server.Url(), kAnalysisServices2005);
  std::vector<OTXMLAHierarchy> hierarchies;
  String errors = L"earlier error";
  String warnings = L"earlier warning\n";
  import.GetHierarchies(hierarchies, errors, warnings);
  EXPECT_THAT(support::Narrow(errors), testing::StartsWith("earlier error\n[64203] "));
  EXPECT_THAT(support::Narrow(warnings),
              testing::MatchesRegex("earlier warning\n\\[62013\\] [^\n]*\n\\[64203\\] [^\n]*\n"));
}

TEST_IN_CHILD(HierarchyImport, RequestsDimensionsIfLogged, {{"OT_XMLA_IMPORT_LOGGING", "1"}}) {
  support::TempDir dir;
  const support::LogInto log(dir.Path());
  const std::vector<std::string> types = Types(Import(WholeCube(), kAnalysisServices2005));
  ASSERT_GE(types.size(), 3u);
  EXPECT_EQ(types[0], "MDSCHEMA_HIERARCHIES");
  EXPECT_EQ(types[1], "MDSCHEMA_DIMENSIONS");
  EXPECT_EQ(types[2], "MDSCHEMA_MEMBERS");
}

TEST(HierarchyImport, WithoutHierarchiesIsEmptyWithoutMessage) {
  for (const auto target : {kAnalysisServices2005, kSAP_BW35, kTamarind11}) {
    const Imported result = Import({}, target);
    EXPECT_TRUE(result.hierarchies.empty());
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.warnings, "");
  }
}

struct FailureCase {
  const char* name;
  std::function<void(CubeScript&)> breakIt;
  std::size_t left;
};

TEST(HierarchyImport, FailedRequestEndsItAndKeepsCompleteHierarchies) {
  const FailureCase cases[] = {
      {"dimensions", [](CubeScript& cube) { cube.dimensions = "fault:broken"; }, 0},
      {"hierarchies", [](CubeScript& cube) { cube.hierarchies = "fault:broken"; }, 0},
      {"first levels", [](CubeScript& cube) { cube.levels["[a]"] = "fault:broken"; }, 0},
      {"second levels", [](CubeScript& cube) { cube.levels["[b]"] = "fault:broken"; }, 1},
      {"properties", [](CubeScript& cube) { cube.properties["[l1]"] = "fault:broken"; }, 0},
      {"ill-formed", [](CubeScript& cube) { cube.levels["[b]"] = "<row>"; }, 1},
  };
  for (const FailureCase& failure : cases) {
    CubeScript cube = WholeCube();
    failure.breakIt(cube);
    const Imported result = Import(cube, kSAP_BW35);
    EXPECT_EQ(result.hierarchies.size(), failure.left) << failure.name;
    EXPECT_NE(result.errors, "") << failure.name;
    EXPECT_EQ(result.warnings, "") << failure.name;
  }
}

TEST(HierarchyImport, CostIsProportionalToTheReply) {
  // Levels in descending order, the slowest case for sorting, and one with a very long list of
  // properties.
  CubeScript cube;
  std::vector<int> numbers(200);
  for (int i = 0; i < 200; ++i) numbers[static_cast<std::size_t>(i)] = 199 - i;
  cube.levels["[D].[H]"] = LevelRows(numbers);
  std::string& properties = cube.properties["[l100]"];
  for (int i = 0; i < 50000; ++i)
    properties += "<row><PROPERTY_NAME>p" + std::to_string(i) + "</PROPERTY_NAME></row>";
  const Imported result = ImportOne({{"STRUCTURE", "0"}}, kAnalysisServices2005, cube);
  EXPECT_EQ(result.errors, "");
  const OTXMLALevels& levels = result.hierarchies.at(0).m_levels;
  ASSERT_EQ(levels.size(), 200u);
  for (std::size_t i = 0; i < levels.size(); ++i)
    ASSERT_EQ(levels[i].m_levelNumber, static_cast<int>(i));
  ASSERT_EQ(levels[100].m_memberProperties.size(), 50000u);
  EXPECT_EQ(levels[100].m_memberProperties[49999].m_name, String(L"p49999"));
}

TEST(HierarchyImport, AcceptsRowsWithoutColumnsAndNumbersOutOfRange) {
  CubeScript cube;
  cube.hierarchies = "<row/>" + Row({{"HIERARCHY_UNIQUE_NAME", "[D].[H]"},
                                     {"STRUCTURE", "999999999999999999999"},
                                     {"DIMENSION_TYPE", "-999999999999999999999"}});
  cube.levels["[D].[H]"] = Row({{"LEVEL_NUMBER", "999999999999999999999"}}) + "<row/>" +
                           Row({{"LEVEL_NUMBER", "-999999999999999999999"}});
  const Imported result = Import(cube, kSAP_BW35);
  EXPECT_EQ(result.errors, "");
  ASSERT_EQ(result.hierarchies.size(), 2u);
  EXPECT_EQ(result.hierarchies[0].m_hierarchyName, String());
  ASSERT_EQ(result.hierarchies[1].m_levels.size(), 3u);
  EXPECT_EQ(result.hierarchies[1].m_levels[0].m_levelNumber, -32768);
  EXPECT_EQ(result.hierarchies[1].m_levels[1].m_levelNumber, 0);
  EXPECT_EQ(result.hierarchies[1].m_levels[2].m_levelNumber, 32767);
}

}  // namespace
