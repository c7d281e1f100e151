// Tests the command cube: the complete record of one cube, and the choices that lead to it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SampleProvider.h"
#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

Json Unit(const char* name, const char* externalName, const char* aggregation, const char* type,
          int precision, int scale) {
  return {{"name", name},
          {"externalName", externalName},
          {"aggrType", aggregation},
          {"type", type},
          {"precision", precision},
          {"scale", scale},
          {"nullable", 1},
          {"dimPropType", "kDimPropNone"},
          {"tamarindAttributeHierarchyName", ""},
          {"tamarindGenerationNumber", 0},
          {"tamarindPropertyType", 0}};
}

Json TextUnit(const char* name, const char* externalName) {
  return Unit(name, externalName, "kAggrUnknown", "VXVarCharData", 128, 0);
}

Json Level(const char* name, const char* externalName, int number, Json properties) {
  return {{"name", name},
          {"externalName", externalName},
          {"number", number},
          {"unit", TextUnit(name, externalName)},
          {"memberProperties", std::move(properties)}};
}

/// The only cube of SmallProvider.
Json UnitCube() {
  Json date = TextUnit("Opened on", "Opened");
  date["type"] = "VXDateData";
  const Json hierarchy = {{"name", "Ort"},
                          {"externalName", "Shop.Place"},
                          {"dimensionUniqueName", "Shop"},
                          {"memberType", "kMemberTypeAll"},
                          {"hierarchyType", "kHierarchyFullyBalanced"},
                          {"dimensionType", "kDimensionTypeOther"},
                          {"defaultMember", ""},
                          {"alternateHierarchyNames", Json::array()},
                          {"udas", Json::array()},
                          {"levels",
                           {Level("[Shop].[Place].[(All)]", "(All)", 0, Json::array()),
                            Level("Stadt", "Town", 1, Json::array({date}))}}};
  return {{"dataSource", "Solo"},
          {"catalog", "Lone"},
          {"cube", "Unit"},
          {"hierarchies", Json::array({hierarchy})},
          {"measures",
           {Unit("Stück", "Pieces", "kAggrSum", "VXDoubleData", 15, 2),
            Unit("Ratio", "Ratio", "kAggrExternal", "VXCharData", 128, 0)}},
          {"sapVariables", Json::array()},
          {"errors", Json::array()},
          {"warnings", Json::array()}};
}

TEST(Cube, JsonDocument) {
  const ScriptedProvider provider(OneCube());
  const Outcome outcome = RunTool({"--url", provider.Url(), "cube", "--format", "json"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.Document(), UnitCube()) << outcome.out;
}

TEST(Cube, TextTree) {
  const ScriptedProvider provider(OneCube());
  EXPECT_EQ(RunTool({"--url", provider.Url(), "cube"}).out,
            "cube Unit\n"
            "  data source Solo, catalog Lone\n"
            "  1 hierarchy, 2 levels, 1 property, 2 measures\n"
            "  dimension Shop\n"
            "    hierarchy Ort (Shop.Place): balanced, default: all\n"
            "      0 (All)\n"
            "      1 Stadt (Town)\n"
            "        property Opened on (Opened): Date\n"
            "  measures\n"
            "    Stück (Pieces): sum, Double(15, 2)\n"
            "    Ratio: calculated by server, Char\n");
}

TEST(Cube, CompleteChoicesNeedNoLookUp) {
  const ScriptedProvider provider(OneCube());
  const Outcome outcome =
      RunTool({"--url", provider.Url(), "--target", "analysis-services-2005", "cube", "--source",
               "Solo", "--catalog", "Lone", "--cube", "Unit", "--format", "json"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.Document(), UnitCube());
  EXPECT_EQ(provider.RequestTypes().front(), "MDSCHEMA_HIERARCHIES");
  EXPECT_THAT(provider.RequestTypes(), testing::Not(testing::Contains("DISCOVER_DATASOURCES")));
}

/// One choice at a time is absent. `lookUps`: the requests before the cube is read.
struct AbsentChoice {
  Arguments choices;
  std::vector<std::string> lookUps;
};
const AbsentChoice kAbsentChoices[] = {
    {{"--source", "Solo"}, {"DBSCHEMA_CATALOGS", "MDSCHEMA_CUBES"}},
    {{"--source", "Solo", "--catalog", "Lone"}, {"DBSCHEMA_CATALOGS", "MDSCHEMA_CUBES"}},
    {{"--catalog", "Lone", "--cube", "Unit"}, {"DISCOVER_DATASOURCES"}},
    {{"--cube", "Unit"}, {"DISCOVER_DATASOURCES", "DBSCHEMA_CATALOGS", "MDSCHEMA_CUBES"}},
};

TEST(Cube, LooksUpOnlyAbsentChoices) {
  for (const AbsentChoice& each : kAbsentChoices) {
    const ScriptedProvider provider(OneCube());
    Arguments arguments{"--url",    provider.Url(), "--target", "analysis-services-2005",
                        "--format", "json",         "cube"};
    arguments.insert(arguments.end(), each.choices.begin(), each.choices.end());
    const Outcome outcome = RunTool(arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.Document(), UnitCube());
    std::vector<std::string> types = provider.RequestTypes();
    types.erase(std::ranges::find(types, "MDSCHEMA_HIERARCHIES"), types.end());
    std::erase(types, "DISCOVER_PROPERTIES");  // identification by the library
    EXPECT_EQ(types, each.lookUps);
  }
}

/// Two of the catalogs have a cube with the same name.
ScriptedProvider::Script ThreeCatalogs() {
  ScriptedProvider::Script script = TwoSources();
  script.rows["DBSCHEMA_CATALOGS"].push_back({{"CATALOG_NAME", "Three"}});
  script.rows["MDSCHEMA_CUBES Three"] = {{{"CUBE_NAME", "Sales"}}, {{"CUBE_NAME", "Plan"}}};
  return script;
}

TEST(Cube, NameDecidesAboutTheCatalogIfOnlyOneHasTheCube) {
  const ScriptedProvider provider(ThreeCatalogs());
  const std::pair<const char*, const char*> kCatalogs[] = {{"Stock", "One"}, {"Plan", "Three"}};
  for (const auto& [cube, catalog] : kCatalogs) {
    const Outcome outcome = RunTool(
        {"--url", provider.Url(), "--format", "json", "cube", "--source", "Beta", "--cube", cube});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.Document()["catalog"], catalog);
    EXPECT_EQ(outcome.Document()["cube"], cube);
  }
}

struct WrongChoice {
  const char* name;
  Arguments choices;
  const char* says;
};

void PrintTo(const WrongChoice& choice, std::ostream* out) { *out << choice.name; }

class WrongChoices : public testing::TestWithParam<WrongChoice> {};

TEST_P(WrongChoices, ExitWithStatus2AndListExistingOnes) {
  const ScriptedProvider provider(ThreeCatalogs());
  Arguments arguments{"--url", provider.Url(), "--format", "json", "cube"};
  arguments.insert(arguments.end(), GetParam().choices.begin(), GetParam().choices.end());
  const Outcome outcome = RunTool(arguments);
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.Document()["errors"].back(), GetParam().says);
}

INSTANTIATE_TEST_SUITE_P(
    Cube, WrongChoices,
    testing::Values(
        WrongChoice{"OpenSource",
                    {},
                    "the provider has several data sources; choose one with --source: \"Alpha\", "
                    "\"Beta\""},
        WrongChoice{"UnknownSource",
                    {"--source", "Gamma"},
                    "there is no data source \"Gamma\"; there are: \"Alpha\", \"Beta\""},
        WrongChoice{"OpenCatalog",
                    {"--source", "Beta"},
                    "the data source \"Beta\" has several catalogs; choose one with --catalog, and "
                    "its cube with --cube: "
                    "\"One\", \"Two\", \"Three\""},
        WrongChoice{"OpenCatalogOfACube",
                    {"--source", "Beta", "--cube", "Sales"},
                    "the cube \"Sales\" is in several catalogs; choose one with --catalog: "
                    "\"One\", \"Three\""},
        WrongChoice{"UnknownCubeOfAllCatalogs",
                    {"--source", "Beta", "--cube", "Salesx"},
                    "there is no cube \"Salesx\" in the data source \"Beta\" (did you mean "
                    "\"Sales\"?); there are: \"Sales\", \"Stock\", \"Plan\""},
        WrongChoice{"UnknownCatalog",
                    {"--source", "Beta", "--catalog", "Four"},
                    "there is no catalog \"Four\" in the data source \"Beta\"; there are: \"One\", "
                    "\"Two\", \"Three\""},
        WrongChoice{"OpenCube",
                    {"--source", "Beta", "--catalog", "One"},
                    "the catalog \"One\" has several cubes; choose one with --cube: "
                    "\"Sales\", \"Stock\""},
        WrongChoice{"UnknownCubeOfAll",
                    {"--source", "Beta", "--catalog", "One", "--cube", "Nope"},
                    "there is no cube \"Nope\" in the catalog \"One\"; there are: \"Sales\", "
                    "\"Stock\""},
        WrongChoice{"UnknownCatalogOfAll",
                    {"--source", "Beta", "--catalog", "Four", "--cube", "Sales"},
                    "there is no catalog \"Four\" in the data source \"Beta\"; there are: \"One\", "
                    "\"Two\", \"Three\""},
        WrongChoice{"UnknownSourceOfAll",
                    {"--source", "Gamma", "--catalog", "One", "--cube", "Sales"},
                    "there is no data source \"Gamma\"; there are: \"Alpha\", \"Beta\""},
        WrongChoice{"CubeOfACatalogWithout",
                    {"--source", "Beta", "--catalog", "Two", "--cube", "Sales"},
                    "there are no cubes in the catalog \"Two\""}),
    [](const auto& each) { return std::string(each.param.name); });

struct Unnamed {
  const char* rowset;
  const char* column;
  const char* says;
};
constexpr Unnamed kUnnamed[] = {
    {"DISCOVER_DATASOURCES", "DataSourceName",
     "the provider has several data sources; choose one with --source: \"\", \"Other\""},
    {"DBSCHEMA_CATALOGS", "CATALOG_NAME",
     "the data source \"Solo\" has several catalogs; choose one with --catalog, and its cube with "
     "--cube: "
     "\"\", \"Other\""},
    {"MDSCHEMA_CUBES Lone", "CUBE_NAME",
     "the catalog \"Lone\" has several cubes; choose one with --cube: \"\", "
     "\"Other\""},
};

TEST(Cube, MissingChoiceDiffersFromAnEmptyName) {
  for (const Unnamed& each : kUnnamed) {
    ScriptedProvider::Script script = OneCube();
    script.rows[each.rowset] = {{{each.column, ""}}, {{each.column, "Other"}}};
    const ScriptedProvider provider(std::move(script));
    const Outcome outcome = RunTool({"--url", provider.Url(), "cube", "--format", "json"});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.Document()["errors"], Json({each.says}));
  }
}

TEST(Cube, MissingChoiceIsTheOnlyObjectEvenIfUnnamed) {
  ScriptedProvider::Script script = OneCube();
  script.rows["MDSCHEMA_CUBES Lone"] = {{{"CUBE_NAME", ""}}};
  const ScriptedProvider provider(std::move(script));
  const Outcome outcome = RunTool({"--url", provider.Url(), "cube", "--format", "json"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.Document()["measures"].size(), 2u);
}

TEST(Cube, DocumentOfAFailedLookUpHasTheChoices) {
  const ScriptedProvider provider(TwoSources());
  const Json document =
      RunTool({"--url", provider.Url(), "--format", "json", "cube", "--source", "Beta"}).Document();
  EXPECT_EQ(document["dataSource"], "Beta");
  EXPECT_EQ(document["catalog"], "");
  EXPECT_EQ(document["cube"], "");
}

TEST(Cube, ProviderWithoutObjectsIsAnError) {
  const ScriptedProvider provider(ScriptedProvider::Script{});
  const Outcome outcome = RunTool({"--url", provider.Url(), "cube"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, HasSubstr("the provider has no data sources"));
}

TEST(Cube, EmptyCubeIsNoError) {
  ScriptedProvider::Script script = OneCube();
  script.rows.erase("MDSCHEMA_HIERARCHIES");
  script.rows.erase("MDSCHEMA_MEASURES");
  const ScriptedProvider provider(std::move(script));
  const Outcome outcome = RunTool({"--url", provider.Url(), "cube", "--source", "Solo", "--catalog",
                                   "Lone", "--cube", "Unit", "--format", "json"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_THAT(outcome.Document()["errors"], testing::IsEmpty());
}

TEST(Cube, KeepsMeasuresIfTheHierarchiesFail) {
  ScriptedProvider::Script script = OneCube();
  script.answer = [](const std::string& type, const std::string&) {
    return type == "MDSCHEMA_LEVELS" ? support::FaultReply("Server", "no levels") : std::string();
  };
  const ScriptedProvider provider(std::move(script));
  const Outcome outcome = RunTool({"--url", provider.Url(), "cube", "--format", "json"});
  EXPECT_EQ(outcome.status, 3);
  EXPECT_EQ(outcome.Document()["measures"].size(), 2u);
  ASSERT_EQ(outcome.Document()["errors"].size(), 2u);
  EXPECT_EQ(outcome.Document()["errors"][1],
            "the failed request was MDSCHEMA_LEVELS of catalog \"Lone\", cube \"Unit\", hierarchy "
            "\"[Shop].[Place]\"");
}

TEST(Cube, NamesTheLevelWhosePropertiesFailed) {
  ScriptedProvider::Script script = OneCube();
  script.rows["MDSCHEMA_LEVELS"][1][1].second = "[Shop].[&lt;R&amp;D&gt; \"x\" 'y' &amp;amp;]";
  script.answer = [](const std::string& type, const std::string& body) {
    const bool second = body.find("R&amp;D") != std::string::npos;
    return type == "MDSCHEMA_PROPERTIES" && second ? support::FaultReply("Server", "no properties")
                                                   : std::string();
  };
  const ScriptedProvider provider(std::move(script));
  const Outcome outcome = RunTool({"--url", provider.Url(), "cube", "--format", "json"});
  EXPECT_EQ(outcome.status, 3);
  EXPECT_EQ(outcome.Document()["errors"][1],
            "the failed request was MDSCHEMA_PROPERTIES of catalog \"Lone\", cube \"Unit\", "
            "hierarchy \"[Shop].[Place]\", level "
            "\"[Shop].[<R&D> \"x\" 'y' &amp;]\"");
}

TEST(Cube, SapBwHasVariables) {
  ScriptedProvider::Script script = OneCube();
  script.name = "SAP BW";
  script.rows["SAP_VARIABLES"] = {{{"VARIABLE_NAME", "[V1]"},
                                   {"VARIABLE_CAPTION", "Year"},
                                   {"VARIABLE_TYPE", "1"},
                                   {"VARIABLE_SELECTION_TYPE", "4"},
                                   {"VARIABLE_ENTRY_TYPE", "9"},
                                   {"REFERENCE_DIMENSION", "[0YEAR]"},
                                   {"DEFAULT_LOW", "2020"}}};
  const ScriptedProvider provider(std::move(script));
  const Outcome outcome = RunTool({"--url", provider.Url(), "cube", "--format", "json"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  const Json expected = {{"name", "[V1]"},
                         {"caption", "Year"},
                         {"type", "SAP_VAR_TYPE_MEMBER"},
                         {"selectionType", "SAP_VAR_SEL_TYPE_MULTI_SINGLE_VALUES"},
                         {"entryType", 9},
                         {"referenceDimension", "[0YEAR]"},
                         {"referenceHierarchy", ""},
                         {"defaultLow", "2020"},
                         {"defaultHigh", ""},
                         {"overrideDefaultLow", ""},
                         {"overrideDefaultHigh", ""}};
  EXPECT_EQ(outcome.Document()["sapVariables"], Json::array({expected})) << outcome.out;
  EXPECT_THAT(RunTool({"--url", provider.Url(), "cube"}).out,
              HasSubstr("  variables\n"
                        "    Year ([V1]): member, several values, code 9\n"
                        "      of [0YEAR]\n"
                        "      default 2020\n"));
}

TEST(Cube, OtherKindsAreNotAskedForVariables) {
  const ScriptedProvider provider(OneCube());
  RunTool({"--url", provider.Url(), "cube"});
  EXPECT_THAT(provider.RequestTypes(), testing::Not(testing::Contains("SAP_VARIABLES")));
}

TEST(Cube, SapBwKeepsTheRestIfTheVariablesFail) {
  ScriptedProvider::Script script = OneCube();
  script.name = "SAP BW";
  script.answer = [](const std::string& type, const std::string&) {
    return type == "SAP_VARIABLES" ? support::FaultReply("Server", "none") : std::string();
  };
  const ScriptedProvider provider(std::move(script));
  const Outcome outcome = RunTool({"--url", provider.Url(), "cube", "--format", "json"});
  EXPECT_EQ(outcome.status, 3);
  EXPECT_EQ(outcome.Document()["hierarchies"].size(), 1u);
  EXPECT_EQ(outcome.Document()["errors"].size(), 2u);
}

/// All kinds of the sample provider have a cube with 175 hierarchies on request.
TEST(Cube, JobsReadAheadAndGiveTheSameDocument) {
  sample::Options options;
  options.wideCube = true;
  sample::Provider provider(options);
  struct {
    sample::Kind kind;
    const char* source;
    const char* catalog;
  } const kCubes[] = {
      {sample::Kind::kAnalysisServices, "NORTHQUAY", "Larkspur Retail"},
      {sample::Kind::kSapBw, "default", "$INFOCUBE"},
      {sample::Kind::kTamarind, "Provider=Kelvora;Data Source=localhost", "Ferries"},
  };
  for (const auto& cube : kCubes) {
    const auto read = [&](const char* jobs) {
      return RunTool({"--url", provider.Url(cube.kind), "--format", "json", "--verbose", "cube",
                      "--source", cube.source, "--catalog", cube.catalog, "--cube",
                      sample::kWideCube, "--jobs", jobs});
    };
    const Outcome one = read("1");
    EXPECT_EQ(one.status, 0) << cube.source << one.err;
    EXPECT_EQ(one.Document()["hierarchies"].size(), 175u);
    EXPECT_EQ(one.Document()["hierarchies"][174]["levels"].size(), 3u);
    EXPECT_THAT(one.err, testing::Not(HasSubstr("read ahead")));
    const std::size_t requests = provider.TakeRequests().size();
    EXPECT_GT(requests, 700u);
    const Outcome many = read("7");
    EXPECT_EQ(many.status, 0) << many.err;
    EXPECT_EQ(many.out, one.out);
    EXPECT_THAT(many.err, HasSubstr(" used, 0 failed and sent again, 0 not used\n"));
    EXPECT_THAT(many.err, HasSubstr("on the wire), read ahead, first byte after"));
    EXPECT_EQ(provider.TakeRequests().size(), requests);
    EXPECT_LE(provider.MaxRequestsInProgress(), 7);
    EXPECT_GT(provider.MaxRequestsInProgress(), 2);
  }
}

}  // namespace
}  // namespace tool
