// The command import: every cube, or those that the filters leave, so many at a time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/TempDir.h"
#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;

/// "source/catalog/cube" of every imported cube.
std::vector<std::string> CubesOf(const Json& document) {
  std::vector<std::string> cubes;
  for (const Json& cube : document["cubes"])
    cubes.push_back(cube["dataSource"].get<std::string>() + "/" +
                    cube["catalog"].get<std::string>() + "/" + cube["cube"].get<std::string>());
  return cubes;
}

ScriptedProvider::Script Cubes() {
  ScriptedProvider::Script script = TwoSources();
  script.rows["MDSCHEMA_CUBES Two"] = {{{"CUBE_NAME", "Sales"}}};
  script.rows["MDSCHEMA_MEASURES"] = OneCube().rows["MDSCHEMA_MEASURES"];
  return script;
}

Outcome Import(const ScriptedProvider& provider, const Arguments& more) {
  Arguments arguments{"--url", provider.Url(), "--format", "json", "import"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return RunTool(arguments);
}

TEST(Import, ReadsEveryCubeInTheProvidersOrderWhateverTheJobs) {
  const ScriptedProvider provider(Cubes());
  Json former;
  for (const char* jobs : {"1", "3", "64"}) {
    const Outcome outcome = Import(provider, {"--jobs", jobs});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_THAT(CubesOf(outcome.Document()),
                ElementsAre("Alpha/One/Sales", "Alpha/One/Stock", "Alpha/Two/Sales",
                            "Beta/One/Sales", "Beta/One/Stock", "Beta/Two/Sales"));
    if (!former.is_null()) {
      EXPECT_EQ(outcome.Document(), former);
    }
    former = outcome.Document();
  }
  EXPECT_EQ(
      former["provider"],
      Json({{"name", "Test Server"}, {"version", "9.0.1"}, {"target", "analysis-services-2005"}}));
}

TEST(Import, EachCubeHasTheKeysOfACubeDocument) {
  const ScriptedProvider provider(OneCube());
  const Json document = Import(provider, {}).Document();
  EXPECT_EQ(document["cubes"][0],
            RunTool({"--url", provider.Url(), "--format", "json", "cube"}).Document());
}

TEST(Import, FiltersBeforeAnyCubeIsRead) {
  const ScriptedProvider provider(Cubes());
  EXPECT_THAT(CubesOf(Import(provider, {"--catalog", "One", "--cube", "Sales"}).Document()),
              ElementsAre("Alpha/One/Sales", "Beta/One/Sales"));
  EXPECT_THAT(CubesOf(Import(provider, {"--source", "Beta", "--cube", "Sales"}).Document()),
              ElementsAre("Beta/One/Sales", "Beta/Two/Sales"));
  EXPECT_THAT(CubesOf(Import(provider, {"--source", "Beta", "--source", "Alpha", "--cube", "Stock"})
                          .Document()),
              ElementsAre("Alpha/One/Stock", "Beta/One/Stock"));
  for (const support::Request& request : provider.Requests()) {
    const bool ofStock = support::RequestType(request.body) == "MDSCHEMA_MEASURES" &&
                         request.body.find("Stock") != std::string::npos;
    EXPECT_TRUE(!ofStock || request.body.find("<Catalog>One</Catalog>") != std::string::npos);
  }
}

TEST(Import, ReadsOnlyTheTreesOfNamedSources) {
  const ScriptedProvider provider(Cubes());
  Import(provider, {"--source", "Beta"});
  for (const support::Request& request : provider.Requests())
    EXPECT_THAT(request.body, Not(testing::HasSubstr("Alpha")));
}

TEST(Import, OfAnUnknownNameListsWhatThereIsAndReadsNoCube) {
  const std::pair<Arguments, const char*> cases[] = {
      {{"--source", "Gamma"}, "there is no data source \"Gamma\"; there are: \"Alpha\", \"Beta\""},
      {{"--catalog", "Three"}, "there is no catalog \"Three\"; there are: \"One\", \"Two\""},
      {{"--catalog", "Two", "--cube", "Stock"}, "there is no cube \"Stock\"; there are: \"Sales\""},
  };
  for (const auto& [arguments, says] : cases) {
    const ScriptedProvider provider(Cubes());
    const Outcome outcome = Import(provider, arguments);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.Document()["errors"], Json({says}));
    EXPECT_EQ(outcome.Document()["cubes"], Json::array());
    EXPECT_THAT(provider.RequestTypes(), Not(Contains("MDSCHEMA_HIERARCHIES")));
  }
}

TEST(Import, KeepsTheOthersWhenACubeFails) {
  ScriptedProvider::Script script = Cubes();
  script.answer = [](const std::string& type, const std::string& body) {
    const bool fails = type == "MDSCHEMA_HIERARCHIES" && body.find("Stock") != std::string::npos;
    return fails ? support::FaultReply("Server", "broken") : std::string();
  };
  const ScriptedProvider provider(std::move(script));
  const Outcome outcome = Import(provider, {"--source", "Alpha"});
  EXPECT_EQ(outcome.status, 3);
  const Json document = outcome.Document();
  ASSERT_EQ(document["cubes"].size(), 3u);
  EXPECT_EQ(document["cubes"][0]["errors"].size(), 0u);
  EXPECT_EQ(document["cubes"][1]["errors"].size(), 2u);
  EXPECT_EQ(document["errors"], Json::array());
  EXPECT_THAT(outcome.err, testing::HasSubstr("error: \"Stock\": [64203] "));
}

TEST(Import, KeepsTheOthersWhenPartOfTheTreeFails) {
  ScriptedProvider::Script script = Cubes();
  script.answer = [](const std::string& type, const std::string& body) {
    const bool fails = type == "DBSCHEMA_CATALOGS" && body.find("Beta") != std::string::npos;
    return fails ? support::FaultReply("Server", "broken") : std::string();
  };
  const ScriptedProvider provider(std::move(script));
  const Outcome outcome = Import(provider, {});
  EXPECT_EQ(outcome.status, 3);
  EXPECT_EQ(outcome.Document()["cubes"].size(), 3u);
  EXPECT_EQ(outcome.Document()["errors"].size(), 2u);
}

TEST(Import, OfNothingIsAFailure) {
  const ScriptedProvider empty(ScriptedProvider::Script{});
  const Outcome outcome = Import(empty, {});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.Document()["errors"], Json({"the provider has no cubes to import"}));

  ScriptedProvider::Script script = Cubes();
  script.answer = [](const std::string& type, const std::string&) {
    return type == "MDSCHEMA_HIERARCHIES" ? support::FaultReply("Server", "broken") : std::string();
  };
  const ScriptedProvider broken(std::move(script));
  EXPECT_EQ(Import(broken, {}).status, 1);
}

TEST(Import, WarnsOfADisagreeingKindOnce) {
  const ScriptedProvider provider(Cubes());
  const Outcome outcome = Import(
      provider, {"--target", "tessera", "--source", "Provider=alpha", "--source", "Provider=beta"});
  EXPECT_EQ(outcome.Document()["warnings"].size(), 1u) << outcome.out;
  EXPECT_EQ(outcome.Document()["provider"]["name"], "Test Server");
}

TEST(Import, LogsEachCubeInAFolderOfItsOwn) {
  const ScriptedProvider provider(Cubes());
  const support::TempDir logs;
  EXPECT_EQ(Import(provider, {"--source", "Alpha", "--jobs", "3", "--log", logs.Path()}).status, 0);
  std::vector<std::string> folders;
  for (const auto& file : logs.Files())
    folders.push_back(file.parent_path().lexically_relative(logs.Path()));
  EXPECT_THAT(folders, testing::UnorderedElementsAre(".", "cube-1", "cube-2", "cube-3"));
}

}  // namespace
}  // namespace tool
