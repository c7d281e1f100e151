// --sort and reproducible results: a result changes only if the metadata change.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "commands/Sorting.h"
#include "results/Formats.h"
#include "support/TempDir.h"
#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

using testing::HasSubstr;
using Texts = std::vector<std::string>;

/// Two catalogs with cubes of several hierarchies, properties and measures, in this order or in the
/// reverse one. Names differ in case, script and only in the external name.
ScriptedProvider::Script Shuffled(bool isReversed) {
  ScriptedProvider::Script script = OneCube();
  script.answer = {};
  const auto put = [&](const std::string& type, std::vector<Row> rows) {
    if (isReversed) std::ranges::reverse(rows);
    script.rows[type] = std::move(rows);
  };
  put("DBSCHEMA_CATALOGS",
      {{{"CATALOG_NAME", "b"}}, {{"CATALOG_NAME", "B"}}, {{"CATALOG_NAME", "a"}}});
  put("MDSCHEMA_CUBES a", {{{"CUBE_NAME", "Z"}}, {{"CUBE_NAME", "10"}}, {{"CUBE_NAME", "9"}}});
  put("MDSCHEMA_CUBES b", {{{"CUBE_NAME", "Ä"}}, {{"CUBE_NAME", "z"}}});
  std::vector<Row> hierarchies;
  for (const char* const name : {"Year", "Art", "Ñ", "Day"}) {
    hierarchies.push_back(script.rows["MDSCHEMA_HIERARCHIES"].front());
    for (auto& [column, value] : hierarchies.back()) {
      if (column == "HIERARCHY_UNIQUE_NAME") value = std::string("[Shop].[") + name + "]";
      // Two hierarchies have the same display name.
      if (column == "HIERARCHY_CAPTION") value = name == std::string("Day") ? "Art" : name;
    }
  }
  put("MDSCHEMA_HIERARCHIES", hierarchies);
  put("MDSCHEMA_PROPERTIES", {{{"PROPERTY_NAME", "P2"}, {"PROPERTY_CAPTION", "x"}},
                              {{"PROPERTY_NAME", "P1"}, {"PROPERTY_CAPTION", "x"}},
                              {{"PROPERTY_NAME", "P3"}, {"PROPERTY_CAPTION", "A"}}});
  put("MDSCHEMA_MEASURES",
      {{{"MEASURE_NAME", "m"}, {"MEASURE_CAPTION", "m"}, {"MEASURE_AGGREGATOR", "1"}},
       {{"MEASURE_NAME", "k"}, {"MEASURE_CAPTION", "売上"}, {"MEASURE_AGGREGATOR", "2"}},
       {{"MEASURE_NAME", "l"}, {"MEASURE_CAPTION", "M"}, {"MEASURE_AGGREGATOR", "3"}}});
  return script;
}

TEST(Sort, TheSameMetadataInAnotherOrderGiveTheSameBytes) {
  const ScriptedProvider one(Shuffled(false));
  const ScriptedProvider other(Shuffled(true));
  for (const OutputFormat& format : Formats())
    for (const std::string command : {"tree", "cube", "import"}) {
      if (!Supports(format, command)) continue;
      SCOPED_TRACE(std::string(format.name) + " " + command);
      const auto run = [&](const ScriptedProvider& provider, bool isSorted) {
        Arguments call{"--url", provider.Url(), "--format", std::string(format.name), command};
        if (isSorted) call.emplace_back("--sort");
        if (command == "cube") call.insert(call.end(), {"--catalog", "a", "--cube", "9"});
        if (command == "import" && &provider == &other) call.insert(call.end(), {"--jobs", "3"});
        const Outcome outcome = RunTool(call);
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        return outcome.out;
      };
      const std::string sorted = run(one, true);
      EXPECT_EQ(run(other, true), sorted);
      EXPECT_NE(run(one, false), run(other, false));
      // Nothing varies between runs.
      EXPECT_EQ(run(one, true), sorted);
    }
}

TEST(Sort, SortsByDisplayNameThenByExternalNameInCodePointOrder) {
  const ScriptedProvider provider(Shuffled(false));
  const Json document =
      RunTool({"--url", provider.Url(), "--format", "json", "--sort", "import"}).Document();
  Texts cubes;
  for (const Json& cube : document["cubes"])
    cubes.push_back(cube["catalog"].get<std::string>() + "/" + cube["cube"].get<std::string>());
  EXPECT_EQ(cubes, (Texts{"a/10", "a/9", "a/Z", "b/z", "b/Ä"}));
  const Json& cube = document["cubes"][0];
  const auto names = [](const Json& list) {
    Texts texts;
    for (const Json& each : list)
      texts.push_back(each["name"].get<std::string>() + "/" +
                      each["externalName"].get<std::string>());
    return texts;
  };
  EXPECT_EQ(names(cube["hierarchies"]),
            (Texts{"Art/Shop.Art", "Art/Shop.Day", "Year/Shop.Year", "Ñ/Shop.Ñ"}));
  EXPECT_EQ(names(cube["measures"]), (Texts{"M/l", "m/m", "売上/k"}));
  // Levels keep their order.
  const Json& levels = cube["hierarchies"][0]["levels"];
  EXPECT_EQ(levels[0]["externalName"], "(All)");
  EXPECT_EQ(levels[1]["externalName"], "Town");
  EXPECT_EQ(names(levels[1]["memberProperties"]), (Texts{"A/P3", "x/P1", "x/P2"}));
}

TEST(Sort, DiffKnowsWhatIsSorted) {
  const ScriptedProvider provider(Shuffled(false));
  const support::TempDir folder;
  const std::string plain = folder.Path() / "plain.json";
  const std::string sorted = folder.Path() / "sorted.json";
  std::set<std::string_view> ids(std::begin(kSortedLists), std::end(kSortedLists));
  for (const char* const command : {"import", "tree"}) {
    RunTool({"--url", provider.Url(), "-o", plain, command});
    RunTool({"--url", provider.Url(), "-o", sorted, command, "--sort"});
    const Outcome outcome = RunTool({"diff", plain, sorted, "--format", "json"});
    EXPECT_THAT(outcome.err, HasSubstr("note: only the order differs; "));
    const Json document = outcome.Document();
    for (const Json& change : document["changes"]) ids.erase(change["id"].get<std::string>());
  }
  EXPECT_THAT(ids, testing::IsEmpty());
}

TEST(Sort, VariablesKeepTheirOrder) {
  const auto variables = [](const Arguments& more) {
    Arguments call{"--sample", "sap-bw", "--format", "json", "import"};
    call.insert(call.end(), more.begin(), more.end());
    std::map<std::string, Texts> names;
    const Json document = RunTool(call).Document();
    for (const Json& cube : document["cubes"])
      for (const Json& each : cube["sapVariables"])
        names[cube["cube"].get<std::string>()].push_back(each["caption"].get<std::string>());
    return names;
  };
  const auto usual = variables({});
  EXPECT_EQ(variables({"--sort"}), usual);
  // The order of the sample is not the sorted one.
  Texts sorted = usual.at("ZVSALES/ZVSALES_Q001");
  std::ranges::sort(sorted);
  EXPECT_NE(sorted, usual.at("ZVSALES/ZVSALES_Q001"));
}

}  // namespace
}  // namespace tool
