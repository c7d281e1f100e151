// Tests of the command diff: each kind of change, random edits, and files that cannot be compared.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <random>
#include <set>

#include "SampleProvider.h"
#include "diff/RecordRules.h"
#include "support/Effort.h"
#include "support/TempDir.h"
#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

/// The result of a command on the sample provider.
Json Sample(const char* kind, Arguments command) {
  Arguments arguments{"--sample", kind, "--format", "json"};
  arguments.insert(arguments.end(), command.begin(), command.end());
  return RunTool(arguments).Document();
}

const Json& SampleImport() {
  static const Json document = Sample("analysis-services", {"import"});
  return document;
}
const Json& SampleVariables() {
  static const Json document = Sample("sap-bw", {"import"});
  return document;
}
const Json& SampleTree() {
  static const Json document = Sample("analysis-services", {"tree"});
  return document;
}

class Diff : public testing::Test {
 protected:
  std::string File(const char* name, const std::string& text) const {
    const std::string file = m_folder.Path() / name;
    std::ofstream(file) << text;
    return file;
  }

  Outcome Compare(const Json& before, const Json& after, const Arguments& more = {}) const {
    Arguments arguments{"diff", File("old.json", before.dump()), File("new.json", after.dump())};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return RunTool(arguments);
  }

  /// The ids of the changes, each with its class.
  std::vector<std::string> Found(const Json& before, const Json& after) const {
    const Outcome outcome = Compare(before, after, {"--format", "json"});
    std::vector<std::string> found;
    const Json document = outcome.Document();
    for (const Json& change : document["changes"])
      found.push_back(std::string(change["id"]) + ' ' + std::string(change["class"]));
    const bool isIncomplete = after.dump().find("\"errors\":[\"") != std::string::npos;
    EXPECT_EQ(outcome.status, isIncomplete ? 3 : found.empty() ? 0 : 4) << outcome.err;
    return found;
  }

  const support::TempDir m_folder;
};

using Edit = void (*)(Json& document);

struct KindOfChange {
  const char* id;
  const char* severity;
  const Json& (*document)();
  Edit edit;
};

Json& Cube(Json& document) { return document["cubes"][0]; }
Json& Hierarchy(Json& document) { return Cube(document)["hierarchies"][0]; }
Json& Level(Json& document) { return Hierarchy(document)["levels"][1]; }
Json& Measure(Json& document) { return Cube(document)["measures"][0]; }
Json& Variable(Json& document) { return document["cubes"][2]["sapVariables"][0]; }
Json& Property(Json& document) {
  for (Json& hierarchy : Cube(document)["hierarchies"])
    for (Json& level : hierarchy["levels"])
      if (level["memberProperties"].size() > 1) return level["memberProperties"];
  throw std::runtime_error("no properties");
}
Json& Source(Json& document) { return document["dataSources"][0]; }
Json& Catalog(Json& document) { return Source(document)["catalogs"][0]; }
Json& CubeEntry(Json& document) { return Catalog(document)["cubes"][0]; }

void Reverse(Json& list) { std::reverse(list.begin(), list.end()); }
void Insert(Json& list, const char* key) {
  Json copy = list[0];
  copy[key] = "Something new";
  list.insert(list.begin() + 1, copy);
}

// One row for each kind of change.
const KindOfChange kKinds[] = {
    {"import-servers-name-changed", "cosmetic", &SampleImport,
     [](Json& d) { d["provider"]["name"] = "x"; }},
    {"import-servers-version-changed", "cosmetic", &SampleImport,
     [](Json& d) { d["provider"]["version"] = "x"; }},
    {"import-servers-kind-changed", "cosmetic", &SampleImport,
     [](Json& d) { d["provider"]["target"] = "tessera"; }},
    {"cube-removed", "breaking", &SampleImport, [](Json& d) { d["cubes"].erase(1); }},
    {"cube-added", "addition", &SampleImport, [](Json& d) { Insert(d["cubes"], "cube"); }},
    {"cubes-reordered", "cosmetic", &SampleImport, [](Json& d) { Reverse(d["cubes"]); }},
    {"hierarchy-removed", "breaking", &SampleImport,
     [](Json& d) { Cube(d)["hierarchies"].erase(1); }},
    {"hierarchy-added", "addition", &SampleImport,
     [](Json& d) { Insert(Cube(d)["hierarchies"], "externalName"); }},
    {"hierarchies-reordered", "cosmetic", &SampleImport,
     [](Json& d) { Reverse(Cube(d)["hierarchies"]); }},
    {"hierarchy-display-name-changed", "cosmetic", &SampleImport,
     [](Json& d) { Hierarchy(d)["name"] = "x"; }},
    {"hierarchy-dimension-changed", "breaking", &SampleImport,
     [](Json& d) { Hierarchy(d)["dimensionUniqueName"] = "x"; }},
    {"hierarchy-default-members-kind-changed", "breaking", &SampleImport,
     [](Json& d) { Hierarchy(d)["memberType"] = 77; }},
    {"hierarchy-structure-changed", "breaking", &SampleImport,
     [](Json& d) { Hierarchy(d)["hierarchyType"] = "kHierarchyNetwork"; }},
    {"hierarchy-dimensions-kind-changed", "breaking", &SampleImport,
     [](Json& d) { Hierarchy(d)["dimensionType"] = "kDimensionRates"; }},
    {"hierarchy-default-member-changed", "breaking", &SampleImport,
     [](Json& d) { Hierarchy(d)["defaultMember"] = "x"; }},
    {"hierarchy-other-names-changed", "breaking", &SampleImport,
     [](Json& d) { Hierarchy(d)["alternateHierarchyNames"] = {"x"}; }},
    {"hierarchy-user-defined-attributes-changed", "breaking", &SampleImport,
     [](Json& d) { Hierarchy(d)["udas"] = {"x"}; }},
    {"level-removed", "breaking", &SampleImport, [](Json& d) { Hierarchy(d)["levels"].erase(2); }},
    {"level-added", "addition", &SampleImport,
     [](Json& d) { Insert(Hierarchy(d)["levels"], "externalName"); }},
    {"levels-reordered", "cosmetic", &SampleImport,
     [](Json& d) { Reverse(Hierarchy(d)["levels"]); }},
    {"level-display-name-changed", "cosmetic", &SampleImport,
     [](Json& d) { Level(d)["name"] = Level(d)["unit"]["name"] = "x"; }},
    {"level-number-changed", "breaking", &SampleImport, [](Json& d) { Level(d)["number"] = 77; }},
    {"level-column-name-changed", "cosmetic", &SampleImport,
     [](Json& d) { Level(d)["unit"]["name"] = "x"; }},
    {"level-servers-column-name-changed", "breaking", &SampleImport,
     [](Json& d) { Level(d)["unit"]["externalName"] = "x"; }},
    {"level-aggregation-changed", "breaking", &SampleImport,
     [](Json& d) { Level(d)["unit"]["aggrType"] = "kAggrMin"; }},
    {"level-type-changed", "breaking", &SampleImport,
     [](Json& d) { Level(d)["unit"]["type"] = "VXDateData"; }},
    {"level-precision-changed", "breaking", &SampleImport,
     [](Json& d) { Level(d)["unit"]["precision"] = 7; }},
    {"level-scale-changed", "breaking", &SampleImport,
     [](Json& d) { Level(d)["unit"]["scale"] = 7; }},
    {"level-empty-values-changed", "breaking", &SampleImport,
     [](Json& d) { Level(d)["unit"]["nullable"] = 0; }},
    {"level-use-changed", "breaking", &SampleImport,
     [](Json& d) { Level(d)["unit"]["dimPropType"] = "kDimPropUDA"; }},
    {"level-attribute-hierarchy-changed", "breaking", &SampleImport,
     [](Json& d) { Level(d)["unit"]["tamarindAttributeHierarchyName"] = "x"; }},
    {"level-generation-changed", "breaking", &SampleImport,
     [](Json& d) { Level(d)["unit"]["tamarindGenerationNumber"] = 7; }},
    {"level-kind-of-property-changed", "breaking", &SampleImport,
     [](Json& d) { Level(d)["unit"]["tamarindPropertyType"] = 7; }},
    {"property-removed", "breaking", &SampleImport, [](Json& d) { Property(d).erase(0); }},
    {"property-added", "addition", &SampleImport,
     [](Json& d) { Insert(Property(d), "externalName"); }},
    {"properties-reordered", "cosmetic", &SampleImport, [](Json& d) { Reverse(Property(d)); }},
    {"property-display-name-changed", "cosmetic", &SampleImport,
     [](Json& d) { Property(d)[0]["name"] = "x"; }},
    {"property-aggregation-changed", "breaking", &SampleImport,
     [](Json& d) { Property(d)[0]["aggrType"] = "kAggrMin"; }},
    {"property-type-changed", "breaking", &SampleImport,
     [](Json& d) { Property(d)[0]["type"] = 77; }},
    {"property-precision-changed", "breaking", &SampleImport,
     [](Json& d) { Property(d)[0]["precision"] = 7; }},
    {"property-scale-changed", "breaking", &SampleImport,
     [](Json& d) { Property(d)[0]["scale"] = 7; }},
    {"property-empty-values-changed", "breaking", &SampleImport,
     [](Json& d) { Property(d)[0]["nullable"] = 0; }},
    {"property-use-changed", "breaking", &SampleImport,
     [](Json& d) { Property(d)[0]["dimPropType"] = "kDimPropUDA"; }},
    {"property-attribute-hierarchy-changed", "breaking", &SampleImport,
     [](Json& d) { Property(d)[0]["tamarindAttributeHierarchyName"] = "x"; }},
    {"property-generation-changed", "breaking", &SampleImport,
     [](Json& d) { Property(d)[0]["tamarindGenerationNumber"] = 7; }},
    {"property-kind-of-property-changed", "breaking", &SampleImport,
     [](Json& d) { Property(d)[0]["tamarindPropertyType"] = 7; }},
    {"measure-removed", "breaking", &SampleImport, [](Json& d) { Cube(d)["measures"].erase(1); }},
    {"measure-added", "addition", &SampleImport,
     [](Json& d) { Insert(Cube(d)["measures"], "externalName"); }},
    {"measures-reordered", "cosmetic", &SampleImport,
     [](Json& d) { Reverse(Cube(d)["measures"]); }},
    {"measure-display-name-changed", "cosmetic", &SampleImport,
     [](Json& d) { Measure(d)["name"] = "x"; }},
    {"measure-aggregation-changed", "breaking", &SampleImport,
     [](Json& d) { Measure(d)["aggrType"] = "kAggrMin"; }},
    {"measure-type-changed", "breaking", &SampleImport,
     [](Json& d) { Measure(d)["type"] = "VXDateData"; }},
    {"measure-precision-changed", "breaking", &SampleImport,
     [](Json& d) { Measure(d)["precision"] = 7; }},
    {"measure-scale-changed", "breaking", &SampleImport, [](Json& d) { Measure(d)["scale"] = 7; }},
    {"measure-empty-values-changed", "breaking", &SampleImport,
     [](Json& d) { Measure(d)["nullable"] = 0; }},
    {"measure-use-changed", "breaking", &SampleImport,
     [](Json& d) { Measure(d)["dimPropType"] = "kDimPropUDA"; }},
    {"measure-attribute-hierarchy-changed", "breaking", &SampleImport,
     [](Json& d) { Measure(d)["tamarindAttributeHierarchyName"] = "x"; }},
    {"measure-generation-changed", "breaking", &SampleImport,
     [](Json& d) { Measure(d)["tamarindGenerationNumber"] = 7; }},
    {"measure-kind-of-property-changed", "breaking", &SampleImport,
     [](Json& d) { Measure(d)["tamarindPropertyType"] = 7; }},
    {"variable-removed", "breaking", &SampleVariables,
     [](Json& d) { d["cubes"][2]["sapVariables"].erase(1); }},
    {"variable-added", "addition", &SampleVariables,
     [](Json& d) { Insert(d["cubes"][2]["sapVariables"], "name"); }},
    {"variables-reordered", "cosmetic", &SampleVariables,
     [](Json& d) { Reverse(d["cubes"][2]["sapVariables"]); }},
    {"variable-display-name-changed", "cosmetic", &SampleVariables,
     [](Json& d) { Variable(d)["caption"] = "x"; }},
    {"variable-type-changed", "breaking", &SampleVariables,
     [](Json& d) { Variable(d)["type"] = 77; }},
    {"variable-selection-changed", "breaking", &SampleVariables,
     [](Json& d) { Variable(d)["selectionType"] = 77; }},
    {"variable-entry-changed", "breaking", &SampleVariables,
     [](Json& d) { Variable(d)["entryType"] = 77; }},
    {"variable-dimension-changed", "breaking", &SampleVariables,
     [](Json& d) { Variable(d)["referenceDimension"] = "x"; }},
    {"variable-hierarchy-changed", "breaking", &SampleVariables,
     [](Json& d) { Variable(d)["referenceHierarchy"] = "x"; }},
    {"variable-default-changed", "breaking", &SampleVariables,
     [](Json& d) { Variable(d)["defaultLow"] = "x"; }},
    {"variable-upper-default-changed", "breaking", &SampleVariables,
     [](Json& d) { Variable(d)["defaultHigh"] = "x"; }},
    {"variable-own-default-changed", "breaking", &SampleVariables,
     [](Json& d) { Variable(d)["overrideDefaultLow"] = "x"; }},
    {"variable-own-upper-default-changed", "breaking", &SampleVariables,
     [](Json& d) { Variable(d)["overrideDefaultHigh"] = "x"; }},
    {"error-added", "cosmetic", &SampleImport, [](Json& d) { Cube(d)["errors"] = {"x"}; }},
    {"warning-added", "cosmetic", &SampleImport, [](Json& d) { d["warnings"].push_back("x"); }},
    {"warning-removed", "cosmetic", &SampleImport, [](Json& d) { Cube(d)["warnings"].erase(0); }},
    {"data-source-added", "addition", &SampleTree,
     [](Json& d) { Insert(d["dataSources"], "name"); }},
    {"data-source-removed", "breaking", &SampleTree, [](Json& d) { d["dataSources"].erase(0); }},
    {"data-source-variables-changed", "breaking", &SampleTree,
     [](Json& d) { Source(d)["variables"] = {"x"}; }},
    {"catalog-removed", "breaking", &SampleTree, [](Json& d) { Source(d)["catalogs"].erase(0); }},
    {"catalog-added", "addition", &SampleTree,
     [](Json& d) { Insert(Source(d)["catalogs"], "name"); }},
    {"catalogs-reordered", "cosmetic", &SampleTree,
     [](Json& d) { Reverse(Source(d)["catalogs"]); }},
    {"catalog-storage-changed", "breaking", &SampleTree,
     [](Json& d) { Catalog(d)["asoType"] = true; }},
    {"catalog-variables-changed", "breaking", &SampleTree,
     [](Json& d) { Catalog(d)["variables"] = {"x"}; }},
    {"cube-removed", "breaking", &SampleTree, [](Json& d) { Catalog(d)["cubes"].erase(0); }},
    {"cube-second-name-changed", "cosmetic", &SampleTree,
     [](Json& d) { CubeEntry(d)["secondName"] = "x"; }},
    {"cube-variables-changed", "breaking", &SampleTree,
     [](Json& d) { CubeEntry(d)["variables"] = {"x"}; }},
    {"cube-aliases-changed", "breaking", &SampleTree,
     [](Json& d) { CubeEntry(d)["aliases"] = {"x"}; }},
    {"cube-unique-member-names-changed", "breaking", &SampleTree,
     [](Json& d) { CubeEntry(d)["memberNameUnique"] = false; }},
    {"cube-date-format-changed", "breaking", &SampleTree,
     [](Json& d) { CubeEntry(d)["dateFormat"] = "x"; }},
};

TEST_F(Diff, FindsEachKindOfChangeAndNothingElse) {
  for (const KindOfChange& kind : support::Sampled(kKinds)) {
    SCOPED_TRACE(kind.id);
    Json after = kind.document();
    kind.edit(after);
    EXPECT_THAT(Found(kind.document(), after),
                ElementsAre(std::string(kind.id) + ' ' + kind.severity));
  }
}

TEST_F(Diff, TheTableOfTestsHasEveryKindOfChange) {
  std::set<std::string> tested{"error-removed", "data-sources-reordered"};  // need two
  for (const KindOfChange& kind : kKinds) tested.insert(kind.id);
  for (const ChangeKind& kind : ChangeKinds()) EXPECT_EQ(tested.count(kind.id), 1u) << kind.id;
  EXPECT_EQ(ChangeKinds().size(), tested.size());
}

TEST_F(Diff, TheDocumentListsEveryKindOfChange) {
  const std::string document = support::ReadFile(DIFF_DOCUMENT);
  std::string table;
  for (const ChangeKind& kind : ChangeKinds())
    table += "| `" + kind.id + "` | " + ClassName(kind.severity) + " |\n";
  EXPECT_THAT(document, testing::EndsWith("| --- | --- |\n" + table));
}

TEST_F(Diff, KindsThatNeedTwoRecords) {
  Json before = SampleTree();
  Insert(before["dataSources"], "name");
  Json after = before;
  Reverse(after["dataSources"]);
  EXPECT_THAT(Found(before, after), ElementsAre("data-sources-reordered cosmetic"));
  before = SampleImport();
  before["errors"] = {"x", "y"};
  after = before;
  after["errors"] = {"y"};
  EXPECT_THAT(Found(before, after), ElementsAre("error-removed cosmetic"));
}

TEST_F(Diff, IdenticalDocumentsHaveNoDifferences) {
  for (const char* const kind : {"analysis-services", "sap-bw", "tamarind"})
    for (const Arguments& command : {Arguments{"import"}, Arguments{"tree"}}) {
      const Json document = Sample(kind, command);
      EXPECT_THAT(Found(document, document), IsEmpty());
    }
  EXPECT_THAT(Compare(SampleImport(), SampleImport()).out, HasSubstr("found: no differences\n"));
}

TEST_F(Diff, AHierarchyOf1000LevelsInAnotherOrderIsOneCosmeticChange) {
  Json before = SampleImport();
  Json& levels = Hierarchy(before)["levels"];
  for (int i = 0; i < 1000; ++i) {
    Json level = levels[0];
    level["externalName"] = "level " + std::to_string(i);
    level["number"] = i;
    levels.push_back(level);
  }
  Json after = before;
  std::shuffle(Hierarchy(after)["levels"].begin(), Hierarchy(after)["levels"].end(),
               std::mt19937(1));
  EXPECT_THAT(Found(before, after), ElementsAre("levels-reordered cosmetic"));
}

TEST_F(Diff, RecordsWithTheSameNameAreMatchedInTheirOrder) {
  Json before = SampleImport();
  Json& measures = Cube(before)["measures"];
  measures.insert(measures.begin(), measures[0]);
  measures[1]["type"] = "VXDateData";
  EXPECT_THAT(Found(before, before), IsEmpty());
  Json after = before;
  Cube(after)["measures"].erase(1);
  EXPECT_THAT(Found(before, after), ElementsAre("measure-removed breaking"));
}

TEST_F(Diff, ARenamedRecordIsRemovedAndAddedWithARemark) {
  Json after = SampleImport();
  Measure(after)["externalName"] = Measure(after)["name"] = "Other name";
  const Json changes = Compare(SampleImport(), after, {"--format", "json"}).Document()["changes"];
  ASSERT_EQ(changes.size(), 2u);
  EXPECT_EQ(changes[0]["id"], "measure-removed");
  EXPECT_EQ(changes[0]["remark"], "perhaps renamed to \"Other name\", which has the same content");
  Measure(after)["type"] = "VXDateData";
  EXPECT_EQ(Compare(SampleImport(), after, {"--format", "json"}).Document()["changes"][0]["remark"],
            "");
}

/// Values of records that a random edit can change: key and new value.
const std::vector<std::pair<const char*, Json>> kMeasureEdits = {
    {"name", "edited"}, {"type", "VXDateData"}, {"precision", 7}, {"scale", 7}, {"nullable", 0}};
const std::vector<std::pair<const char*, Json>> kHierarchyEdits = {
    {"name", "edited"},
    {"hierarchyType", "kHierarchyNetwork"},
    {"dimensionType", "kDimensionRates"}};

TEST_F(Diff, FindsAllRandomEditsAndNothingElse) {
  const auto trials = support::Effort<std::size_t>(30, 1000);
  for (std::size_t seed = 1; seed <= trials; ++seed) {
    std::mt19937 random(static_cast<unsigned>(seed));
    const auto below = [&random](std::size_t count) { return random() % count; };
    Json after = SampleImport();
    std::multiset<std::string> expected;  // path of the record and what changed
    std::set<std::string> touched;
    for (std::size_t edits = 1 + below(8); edits > 0; --edits) {
      Json& cube = after["cubes"][below(after["cubes"].size())];
      const bool isMeasure = below(2) == 0;
      Json& list = cube[isMeasure ? "measures" : "hierarchies"];
      if (list.empty()) continue;
      const std::size_t at = below(list.size());
      const std::string name =
          std::string(cube["cube"]) + '/' + std::string(list[at]["externalName"]);
      if (!touched.insert(name).second) continue;  // one edit per record
      const auto& fields = isMeasure ? kMeasureEdits : kHierarchyEdits;
      switch (below(3)) {
        case 0:
          expected.insert(name + " removed");
          list.erase(at);
          break;
        case 1: {
          Json copy = list[at];
          copy["externalName"] = "copy " + std::to_string(edits);
          expected.insert(std::string(cube["cube"]) + '/' + std::string(copy["externalName"]) +
                          " added");
          touched.insert(std::string(cube["cube"]) + '/' + std::string(copy["externalName"]));
          list.insert(list.begin() + static_cast<std::ptrdiff_t>(at), copy);
          break;
        }
        default: {
          const auto& [key, value] = fields[below(fields.size())];
          if (list[at][key] == value) break;
          expected.insert(name + " " + key);
          list[at][key] = value;
        }
      }
    }
    std::multiset<std::string> found;
    const std::map<std::string, std::string> keys{{"display name", "name"},
                                                  {"empty values", "nullable"},
                                                  {"structure", "hierarchyType"},
                                                  {"dimension's kind", "dimensionType"}};
    const Json document = Compare(SampleImport(), after, {"--format", "json"}).Document();
    for (const Json& change : document["changes"]) {
      const std::string what = change["what"];
      const auto key = keys.find(what);
      found.insert(std::string(change["path"][2]["name"]) + '/' +
                   std::string(change["path"].back()["name"]) + ' ' +
                   (key == keys.end() ? what : key->second));
    }
    EXPECT_EQ(found, expected) << "seed " << seed;
  }
}

TEST_F(Diff, FailOnBreakingIgnoresOtherChanges) {
  Json after = SampleImport();
  Measure(after)["name"] = "x";
  EXPECT_EQ(Compare(SampleImport(), after).status, 4);
  EXPECT_EQ(Compare(SampleImport(), after, {"--fail-on", "any"}).status, 4);
  const Outcome outcome = Compare(SampleImport(), after, {"--fail-on", "breaking"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.out, HasSubstr("measure-display-name-changed"));
  Measure(after)["type"] = 77;
  EXPECT_EQ(Compare(SampleImport(), after, {"--fail-on", "breaking"}).status, 4);
}

TEST_F(Diff, ComparesWithTheServiceAsTheDocumentWasWritten) {
  ScriptedProvider provider(OneCube());
  for (const Arguments& command : {Arguments{"import"}, Arguments{"tree"},
                                   Arguments{"cube", "--catalog", "Lone", "--cube", "Unit"}}) {
    Arguments arguments{"--url", provider.Url(), "--format", "json"};
    arguments.insert(arguments.end(), command.begin(), command.end());
    const Outcome read = RunTool(arguments);
    ASSERT_EQ(read.status, 0) << read.err;
    const Outcome same = RunTool({"--url", provider.Url(), "diff", File("old.json", read.out)});
    EXPECT_EQ(same.status, 0) << same.out << same.err;
    EXPECT_THAT(same.out, HasSubstr("new  the service\n"));
  }
  const Json old = RunTool({"--url", provider.Url(), "--format", "json", "import"}).Document();
  ScriptedProvider::Script script = OneCube();
  script.rows["MDSCHEMA_MEASURES"].pop_back();
  ScriptedProvider changed(script);
  const Outcome outcome =
      RunTool({"--url", changed.Url(), "diff", File("old.json", old.dump()), "--format", "json"});
  EXPECT_EQ(outcome.status, 4);
  EXPECT_EQ(outcome.Document()["changes"][0]["id"], "measure-removed");
  const Outcome filtered =
      RunTool({"--url", changed.Url(), "diff", File("old.json", old.dump()), "--cube", "None"});
  EXPECT_EQ(filtered.status, 2) << filtered.err;
}

TEST_F(Diff, IncompleteSidesAreNamed) {
  Json after = SampleImport();
  Cube(after)["errors"] = {"[64203] x"};
  EXPECT_THAT(Compare(SampleImport(), after).err,
              HasSubstr("new.json\" is incomplete (1 cube has errors): parts that are missing"));
  EXPECT_EQ(Compare(SampleImport(), after).status, 3);
  EXPECT_EQ(Compare(after, SampleImport()).status, 4);
  ScriptedProvider::Script script = OneCube();
  script.answer = [](const std::string& type, const std::string&) {
    return type == "MDSCHEMA_MEASURES" ? std::string("<not xml") : std::string();
  };
  ScriptedProvider provider(OneCube());
  const std::string old = RunTool({"--url", provider.Url(), "--format", "json", "import"}).out;
  ScriptedProvider failing(script);
  const Outcome outcome = RunTool({"--url", failing.Url(), "diff", File("old.json", old)});
  EXPECT_EQ(outcome.status, 3);
  EXPECT_THAT(outcome.err, HasSubstr("error: \"Unit\": [46100]"));
}

TEST_F(Diff, SaysIfNothingIsInCommon) {
  ScriptedProvider::Script script = OneCube();
  script.rows["MDSCHEMA_CUBES Lone"] = {{{"CUBE_NAME", "Other"}}};
  const ScriptedProvider provider(OneCube());
  const ScriptedProvider other(script);
  for (const char* const command : {"import", "tree"}) {
    const auto read = [&](const ScriptedProvider& each) {
      return RunTool({"--url", each.Url(), "--format", "json", command}).out;
    };
    const std::string old = File("old.json", read(provider));
    const std::string end = " have no cube in common; check that both are of the same server\n";
    EXPECT_THAT(RunTool({"--url", other.Url(), "diff", old}).err,
                HasSubstr("warning: \"" + old + "\" and the service" + end));
    EXPECT_THAT(RunTool({"diff", old, File("new.json", read(other))}).err, HasSubstr(end));
    EXPECT_THAT(RunTool({"--url", provider.Url(), "diff", old}).err, Not(HasSubstr(end)));
  }
  Json nothing = SampleImport();
  nothing["cubes"] = Json::array();
  EXPECT_THAT(Compare(SampleImport(), nothing).err, Not(HasSubstr("in common")));
}

TEST_F(Diff, SaysIfOnlyTheOrderDiffers) {
  const sample::Provider provider;
  const Arguments url{"--url", provider.Url(sample::Kind::kAnalysisServices)};
  const auto run = [&url](Arguments more) {
    more.insert(more.begin(), url.begin(), url.end());
    return RunTool(more);
  };
  const std::string sorted = File("sorted.json", run({"--sort", "import", "--format", "json"}).out);
  const std::string plain = File("plain.json", run({"import", "--format", "json"}).out);
  const std::string note = "xmla-import: note: only the order differs; ";
  const struct {
    Outcome outcome;
    int status;
    const char* says;  // null: nothing about the order
  } cases[] = {
      {run({"diff", sorted}), 4, "if OLD was written with --sort, give --sort\n"},
      {run({"diff", sorted, "--fail-on", "breaking"}), 0, "if OLD was written with --sort, give"},
      {run({"diff", plain, "--sort"}), 4, "if OLD was written without --sort, leave out --sort\n"},
      {RunTool({"diff", plain, sorted}), 4, "write both files with --sort, or both without\n"},
      {run({"diff", sorted, "--sort"}), 0, nullptr},
      {run({"diff", plain}), 0, nullptr},
      {run({"diff", sorted, "--quiet"}), 4, nullptr},
  };
  for (const auto& [outcome, status, says] : cases) {
    EXPECT_EQ(outcome.status, status);
    if (says)
      EXPECT_THAT(outcome.err, HasSubstr(note + says));
    else
      EXPECT_THAT(outcome.err, Not(HasSubstr("only the order")));
  }
  Json levels = SampleImport();  // --sort keeps their order
  Reverse(Hierarchy(levels)["levels"]);
  EXPECT_THAT(Compare(SampleImport(), levels).err, Not(HasSubstr("only the order")));
  Json renamed = SampleImport();
  Reverse(renamed["cubes"]);
  Cube(renamed)["measures"][0]["name"] = "x";
  EXPECT_THAT(Compare(SampleImport(), renamed).err, Not(HasSubstr("only the order")));
}

TEST_F(Diff, CountsWhatItCompared) {
  nlohmann::json document = SampleImport();
  document["cubes"].erase(document["cubes"].begin() + 1, document["cubes"].end());
  const std::string file = File("one.json", document.dump());
  const Outcome outcome = RunTool({"diff", file, file});
  EXPECT_THAT(outcome.out, HasSubstr("compared: 1 cube, "));
  EXPECT_THAT(outcome.out, HasSubstr(" hierarchies, "));
}

TEST_F(Diff, OneSideMayBeStandardInput) {
  const std::string file = File("old.json", SampleImport().dump());
  Options options;
  options.input = SampleImport().dump();
  const Outcome outcome = RunTool({"diff", file, "-"}, options);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("new  standard input\n"));
  EXPECT_EQ(RunTool({"diff", "-", "-"}, options).status, 2);
}

struct Unusable {
  std::string_view text;
  const char* reason;
};
const Unusable kUnusable[] = {
    {"", "is not a JSON document: it is empty; give a document that xmla-import import"},
    {"\n \r\n\t", "is not a JSON document: it is empty; "},
    {"{\"cubes\": [\n{", "is not a JSON document: it was cut off in line 2; "},
    {"{\"cubes\": [\n\"a", "is not a JSON document: it was cut off in line 2; "},
    {"{\"cubes\": [}", "is not a JSON document: parse error at line 1, column 12"},
    {"{}\n{}\n", "is not a JSON document: it is ndjson; give a document that xmla-import import"},
    {"{}\n{\"a", "is not a JSON document: it is ndjson; "},
    {"{}\n\n\n{}\n", "is not a JSON document: it is ndjson; "},
    {"{}\nrubbish", "is not a JSON document: parse error at line 2, column 1"},
    {"{}\n}", "is not a JSON document: parse error at line 2, column 1"},
    {"[\n1\n2]", "is not a JSON document: parse error at line 3, column 1"},
    {"kind,dataSource,catalog\n", "is not a JSON document: it is csv; give a document that"},
    {" <!DOCTYPE html>\n<html>", "is not a JSON document: it is html; give a document that"},
    {"<?xml version=\"1.0\"?>", "is not a JSON document: it is XML; "},
    {"# Import\n", "is not a JSON document: it is markdown; "},
    {"PK\x03\x04\x14", "is not a JSON document: it is xlsx, or another zip file; "},
    {"\xFF\xFE{", "is not a JSON document: it is UTF-16; save it as UTF-8\n"},
    {{"{\0\"\0", 4}, "is not a JSON document: it is UTF-16; save it as UTF-8\n"},
    {{"\0{\0\"", 4}, "is not a JSON document: it is UTF-16; save it as UTF-8\n"},
    {"<!doctype html>", "is not a JSON document: it is html; "},
    {"<html>", "is not a JSON document: it is html; "},
    {"\xFE\xFF\x01{", "is not a JSON document: it is UTF-16; save it as UTF-8\n"},
    {"[]", "is not a document of import, cube or tree"},
    {"{\"servers\": []}", "is not a document of import, cube or tree"},
    {"{\"cubes\": []}",
     "cannot be compared: it has no \"errors\", so another version of xmla-import wrote it; write "
     "it again"},
    {R"({"provider": {"name": "", "version": ""}, "cubes": [], "errors": [], "warnings": []})",
     "it has no \"provider.target\""},
    {R"({"cubes": [], "errors": [], "warnings": []})",
     "it has no \"provider\", so another version"},
    {R"({"cubes": [{"dataSource": "", "catalog": ""}], "errors": [], "warnings": []})",
     "cubes[0] has no \"cube\""},
    {R"({"cubes": {}, "errors": [], "warnings": []})", "cubes is not a list"},
    {R"({"cubes": [7], "errors": [], "warnings": []})", "cubes[0] is not an object"},
    {R"({"cubes": [], "errors": [7], "warnings": []})", "errors[0] is not a text"},
};

TEST_F(Diff, OptionsOfTheServiceAreUsageErrorsIfBothFilesAreGiven) {
  const Json& document = SampleTree();
  const std::pair<std::string, std::string> kOptions[] = {
      {"--url", "http://h/"}, {"--server", "s"},      {"--sample", "sap-bw"}, {"--user", "ann"},
      {"--retry", "1"},       {"--target", "sap-bw"}, {"--log", "folder"},    {"--source", "A"},
      {"--catalog", "A"},     {"--cube", "A"},        {"--jobs", "2"},
  };
  for (const auto& [name, value] : kOptions) {
    const Outcome outcome = Compare(document, document, {name, value});
    EXPECT_EQ(outcome.status, 2) << name;
    EXPECT_THAT(outcome.err, HasSubstr("if both files are given; leave out " + name + "; see"));
  }
  EXPECT_THAT(Compare(document, document, {"--cube", "A", "--url", "http://h/"}).err,
              HasSubstr("leave out --url and --cube; see"));
  const Arguments allowed{"--fail-on", "breaking", "--sort", "--warnings", "all", "--verbose"};
  EXPECT_EQ(Compare(document, document, allowed).status, 0);
}

TEST_F(Diff, AFileThatCannotBeComparedIsAUsageErrorThatSaysWhy) {
  const std::string good = File("good.json", SampleImport().dump());
  for (const Unusable& each : kUnusable) {
    SCOPED_TRACE(each.text);
    const std::string bad = File("bad.json", std::string(each.text));
    for (const Arguments& files : {Arguments{"diff", bad, good}, Arguments{"diff", good, bad}}) {
      const Outcome outcome = RunTool(files);
      EXPECT_EQ(outcome.status, 2);
      EXPECT_THAT(outcome.err, testing::AllOf(HasSubstr("bad.json\""), HasSubstr(each.reason)));
    }
  }
  for (const char* const format : {"csv", "html", "markdown", "ndjson", "xlsx"}) {
    const std::string other =
        File("other", RunTool({"--sample", "sap-bw", "import", "--format", format}).out);
    EXPECT_THAT(RunTool({"diff", other, good}).err,
                HasSubstr(std::string("is not a JSON document: it is ") + format));
  }
  EXPECT_THAT(RunTool({"diff", m_folder.Path() / "none", good}).err,
              HasSubstr("none\" cannot be read: No such file"));
  EXPECT_THAT(RunTool({"diff", m_folder.Path(), good}).err,
              HasSubstr("cannot be read: Is a directory"));
  const Outcome mixed = RunTool({"diff", good, File("tree.json", SampleTree().dump())});
  EXPECT_EQ(mixed.status, 2);
  EXPECT_THAT(mixed.err, HasSubstr("is a document of import, and"));
}

TEST_F(Diff, EveryMissingKeyIsAnError) {
  // A document of one cube, with each key removed in turn.
  Json document = SampleImport();
  Json cube = Cube(document);
  cube["hierarchies"] = {Hierarchy(document)};
  cube["measures"] = {Measure(document)};
  document["cubes"] = {cube};
  const std::string good = File("good.json", document.dump());
  std::vector<Json::json_pointer> keys;
  const Json values = document.flatten();
  for (const auto& item : values.items()) {
    Json::json_pointer place(item.key());
    while (!place.empty()) {
      if (place.back().find_first_not_of("0123456789") != std::string::npos) keys.push_back(place);
      place.pop_back();
    }
  }
  std::ranges::sort(keys, {}, &Json::json_pointer::to_string);
  keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
  ASSERT_GT(keys.size(), 40u);
  for (const Json::json_pointer& place : support::Sampled(keys)) {
    Json bad = document;
    bad[place.parent_pointer()].erase(place.back());
    const Outcome outcome = RunTool({"diff", File("bad.json", bad.dump()), good});
    EXPECT_EQ(outcome.status, 2) << place.to_string();
    EXPECT_THAT(outcome.err, HasSubstr("bad.json")) << place.to_string();
  }
}

}  // namespace
}  // namespace tool
