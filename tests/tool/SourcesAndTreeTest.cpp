// Tests the commands sources and tree with a scripted provider: complete documents and texts.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

Json CubeRef(const char* name) {
  return {{"name", name},
          {"secondName", name},
          {"variables", Json::array()},
          {"aliases", Json::array()},
          {"memberNameUnique", true},
          {"dateFormat", ""},
          {"sapVariables", Json::array()}};
}

Json Catalog(const char* name, Json cubes) {
  return {{"name", name},
          {"asoType", false},
          {"variables", Json::array()},
          {"cubes", std::move(cubes)}};
}

Json Source(const char* name) {
  return {{"name", name},
          {"variables", Json::array()},
          {"catalogs",
           {Catalog("One", {CubeRef("Sales"), CubeRef("Stock")}), Catalog("Two", Json::array())}}};
}

Json Document(Json sources) {
  return {
      {"dataSources", std::move(sources)}, {"errors", Json::array()}, {"warnings", Json::array()}};
}

TEST(Sources, TextHasOneNamePerLine) {
  const ScriptedProvider provider(TwoSources());
  const Outcome outcome = RunTool({"--url", provider.Url(), "sources"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "Alpha\nBeta\n");
  EXPECT_EQ(outcome.err, "");
}

TEST(Sources, JsonDocument) {
  const ScriptedProvider provider(TwoSources());
  const Outcome outcome = RunTool({"--url", provider.Url(), "--format", "json", "sources"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.Document(), Document({"Alpha", "Beta"})) << outcome.out;
  EXPECT_TRUE(outcome.out.ends_with("}\n"));
  EXPECT_EQ(outcome.err, "");
}

TEST(Sources, NoSources) {
  const ScriptedProvider provider(ScriptedProvider::Script{});
  const Outcome text = RunTool({"--url", provider.Url(), "sources"});
  EXPECT_EQ(text.status, 0);
  EXPECT_EQ(text.out, "");
  EXPECT_EQ(RunTool({"--url", provider.Url(), "sources", "--format", "json"}).Document(),
            Document(Json::array()));
}

TEST(Tree, IsIndented) {
  const ScriptedProvider provider(TwoSources());
  const Outcome outcome = RunTool({"--url", provider.Url(), "tree"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out,
            "Alpha\n  One\n    Sales\n    Stock\n  Two (no cubes)\n"
            "Beta\n  One\n    Sales\n    Stock\n  Two (no cubes)\n");
}

TEST(Tree, JsonDocument) {
  const ScriptedProvider provider(TwoSources());
  const Outcome outcome = RunTool({"--url", provider.Url(), "tree", "--format", "json"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.Document(), Document({Source("Alpha"), Source("Beta")})) << outcome.out;
}

TEST(Tree, OneSourceRequestsOnlyThatSource) {
  const ScriptedProvider provider(TwoSources());
  const Outcome outcome = RunTool({"--url", provider.Url(), "--target", "analysis-services-2005",
                                   "tree", "--source", "Beta", "--format", "json"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.Document(), Document(Json::array({Source("Beta")}))) << outcome.out;
  EXPECT_THAT(provider.RequestTypes(),
              ElementsAre("DISCOVER_PROPERTIES", "DISCOVER_PROPERTIES", "DBSCHEMA_CATALOGS",
                          "MDSCHEMA_CUBES", "MDSCHEMA_CUBES"));
}

TEST(Tree, UnknownSourceListsExistingOnes) {
  ScriptedProvider::Script script = TwoSources();
  for (const bool fault : {true, false}) {
    script.answer = [fault](const std::string& type, const std::string& body) -> std::string {
      if (type != "DBSCHEMA_CATALOGS" || body.find("Gamma") == std::string::npos) return {};
      return fault ? support::FaultReply("Server", "no such thing") : support::RowsetReply("");
    };
    const ScriptedProvider provider(script);
    const Outcome outcome =
        RunTool({"--url", provider.Url(), "tree", "--source", "Gamma", "--format", "json"});
    EXPECT_EQ(outcome.status, 2);
    const Json document = outcome.Document();
    EXPECT_EQ(document["dataSources"], Json::array());
    EXPECT_EQ(document["errors"].back(),
              "there is no data source \"Gamma\"; there are: \"Alpha\", \"Beta\"");
  }
}

TEST(Tree, KnownSourceWithoutCatalogsIsEmpty) {
  ScriptedProvider::Script script = TwoSources();
  script.rows.erase("DBSCHEMA_CATALOGS");
  const ScriptedProvider provider(std::move(script));
  const Outcome outcome = RunTool({"--url", provider.Url(), "tree", "--source", "Alpha"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.out, "Alpha (no catalogs)\n");
}

TEST(Tree, KeepsObjectsReadBeforeAFault) {
  ScriptedProvider::Script script = TwoSources();
  script.answer = [](const std::string& type, const std::string& body) -> std::string {
    if (type != "DBSCHEMA_CATALOGS" || body.find("Beta") == std::string::npos) return {};
    return support::FaultReply("Server.7", "out of order");
  };
  const ScriptedProvider provider(std::move(script));
  const Outcome outcome = RunTool({"--url", provider.Url(), "tree", "--format", "json"});
  EXPECT_EQ(outcome.status, 3);
  const Json document = outcome.Document();
  EXPECT_EQ(document["dataSources"], Json::array({Source("Alpha")}));
  ASSERT_EQ(document["errors"].size(), 2u);
  EXPECT_THAT(document["errors"][0].get<std::string>(), testing::StartsWith("[64203] "));
  EXPECT_THAT(outcome.err, HasSubstr("xmla-import: error: [64203] "));
  const Outcome text = RunTool({"--url", provider.Url(), "tree"});
  EXPECT_EQ(text.out, "Alpha\n  One\n    Sales\n    Stock\n  Two (no cubes)\n");
}

TEST(Tree, KeepsNamesUnchanged) {
  ScriptedProvider::Script script = OneCube();
  script.rows["MDSCHEMA_CUBES Lone"] = {{{"CUBE_NAME", " a &lt;b&gt; &amp; \"c\" 'd' [e]] \\ "}},
                                        {{"CUBE_NAME",
                                          "売上\xE2\x80\xAE"
                                          "x"}}};
  const ScriptedProvider provider(std::move(script));
  const Json document = RunTool({"--url", provider.Url(), "tree", "--format", "json"}).Document();
  const Json& cubes = document["dataSources"][0]["catalogs"][0]["cubes"];
  EXPECT_EQ(cubes[0]["name"], " a <b> & \"c\" 'd' [e]] \\ ");
  EXPECT_EQ(cubes[1]["name"],
            "売上\xE2\x80\xAE"
            "x");
  EXPECT_EQ(RunTool({"--url", provider.Url(), "tree"}).out,
            "Solo\n  Lone\n     a <b> & \"c\" 'd' [e]] \\ \n    売上\xE2\x80\xAE"
            "x\n");
}

TEST(Tree, UnknownSourceListsTheFirstHundred) {
  ScriptedProvider::Script script;
  std::vector<Row>& rows = script.rows["DISCOVER_DATASOURCES"];
  rows.push_back({{"DataSourceName", std::string(5000, 'x')}});
  for (int i = 1; i < 150; ++i) rows.push_back({{"DataSourceName", "s" + std::to_string(i)}});
  const ScriptedProvider provider(std::move(script));
  const Outcome outcome = RunTool({"--url", provider.Url(), "tree", "--source", "none"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_THAT(outcome.err, HasSubstr("x... (4000 more characters)\", \"s1\", "));
  EXPECT_THAT(outcome.err, HasSubstr("\"s99\" and 50 more\n"));
}

}  // namespace
}  // namespace tool
