#include <gmock/gmock.h>

#include <set>

#include "Metadata.h"
#include "SampleClient.h"

// The sample data must contain every case for which a reader of such metadata has a rule.
namespace sample_test {
namespace {

using sample::DataSource;
using sample::Kind;
using sample::MetadataOf;
using sample::Row;
using testing::Contains;
using testing::IsSupersetOf;

constexpr Kind kAs = Kind::kAnalysisServices;
constexpr Kind kBw = Kind::kSapBw;
constexpr Kind kKelvora = Kind::kTamarind;
const std::string kAbsent = "(absent)";

std::vector<const Row*> RowsOf(Kind kind, const std::string& rowset) {
  std::vector<const Row*> rows;
  for (const DataSource& source : MetadataOf(kind).sources) {
    const auto found = source.rows.find(rowset);
    if (found == source.rows.end()) continue;
    for (const Row& row : found->second) rows.push_back(&row);
  }
  return rows;
}

std::string Text(const Row& row, const std::string& column) {
  const std::string* text = row.Find(column);
  return text ? *text : kAbsent;
}

std::set<std::string> Values(Kind kind, const std::string& rowset, const std::string& column) {
  std::set<std::string> values;
  for (const Row* row : RowsOf(kind, rowset)) values.insert(Text(*row, column));
  return values;
}

std::set<std::string> Numbers(int first, int last) {
  std::set<std::string> numbers;
  for (int i = first; i <= last; ++i) numbers.insert(std::to_string(i));
  return numbers;
}

TEST(DataCoverage, EachColumnHasEveryRelevantValue) {
  struct Case {
    Kind kind;
    std::string rowset;
    std::string column;
    std::set<std::string> values;
  };
  const Case cases[] = {
      {kAs, "MDSCHEMA_HIERARCHIES", "STRUCTURE", {"0", "1", "2", "3", "9", kAbsent}},
      {kAs, "MDSCHEMA_HIERARCHIES", "IS_VIRTUAL", {"true", "false"}},
      {kAs, "MDSCHEMA_HIERARCHIES", "DIMENSION_MASTER_UNIQUE_NAME", {kAbsent, "[Store]"}},
      {kAs, "MDSCHEMA_HIERARCHIES", "HIERARCHY_CAPTION", {"", "Product Range"}},
      {kAs, "MDSCHEMA_HIERARCHIES", "DEFAULT_MEMBER", {kAbsent}},
      {kAs, "MDSCHEMA_HIERARCHIES", "ALL_MEMBER", {kAbsent}},
      {kAs, "MDSCHEMA_HIERARCHIES", "DIMENSION_TYPE", {"0", "1", "2", "3", "6", kAbsent}},
      {kAs, "MDSCHEMA_LEVELS", "LEVEL_CAPTION", {"", "(All)"}},
      {kAs, "MDSCHEMA_PROPERTIES", "PROPERTY_CAPTION", {""}},
      {kAs, "MDSCHEMA_PROPERTIES", "DATA_TYPE", {"2",   "3",   "4",   "5",   "6",     "7",
                                                 "8",   "11",  "12",  "14",  "16",    "17",
                                                 "18",  "19",  "20",  "21",  "129",   "130",
                                                 "131", "133", "134", "135", "16384", kAbsent}},
      {kAs,
       "MDSCHEMA_MEASURES",
       "MEASURE_AGGREGATOR",
       {"0", "1", "2", "3", "4", "5", "6", "7", "8", "127"}},
      {kAs, "MDSCHEMA_MEASURES", "MEASURE_CAPTION", {""}},
      {kAs, "MDSCHEMA_MEASURES", "NUMERIC_SCALE", {"-1", "4", kAbsent}},
      {kAs, "MDSCHEMA_MEMBERS", "MEMBER_TYPE", {"0", "1", "2", "3", "4"}},
      {kBw, "MDSCHEMA_HIERARCHIES", "STRUCTURE", {"0", "1", "2", "3", kAbsent}},
      {kBw, "MDSCHEMA_HIERARCHIES", "HIERARCHY_CAPTION", {"", kAbsent}},
      {kBw, "MDSCHEMA_HIERARCHIES", "HIERARCHY_NAME", {kAbsent}},
      {kBw, "MDSCHEMA_HIERARCHIES", "IS_VIRTUAL", {"true"}},
      {kBw, "MDSCHEMA_DIMENSIONS", "DEFAULT_HIERARCHY", {kAbsent, "[ZVPLANT]"}},
      {kBw, "MDSCHEMA_LEVELS", "LEVEL_NAME", {kAbsent, "(All)", "LEVEL01"}},
      {kBw, "MDSCHEMA_LEVELS", "LEVEL_CAPTION", {kAbsent, ""}},
      {kBw,
       "MDSCHEMA_PROPERTIES",
       "DATA_TYPE",
       {"CHAR", "CURR", "DATS", "DEC", "FLTP", "NUMC", "TIMS"}},
      {kBw, "MDSCHEMA_MEASURES", "DATA_TYPE", {"CHAR", "CURR", "FLTP", "INT4", "QUAN", kAbsent}},
      {kBw, "MDSCHEMA_MEASURES", "MEASURE_AGGREGATOR", {"-1", "1", "2", "3", "4", "5", "8", "127"}},
      {kBw, "MDSCHEMA_MEASURES", "NUMERIC_PRECISION", {"65535", kAbsent}},
      {kBw, "MDSCHEMA_MEASURES", "NUMERIC_SCALE", {"-1", "2", kAbsent}},
      {kBw, "MDSCHEMA_MEASURES", "MEASURE_NAME", {kAbsent}},
      {kBw,
       "MDSCHEMA_MEASURES",
       "MEASURE_UNIQUE_NAME",
       {"[Measures].[]", "[Measures].[Q]", "[MEASURES].[ZVFATPCT]", "ZVRECORDS"}},
      {kBw, "SAP_VARIABLES", "VARIABLE_TYPE", {"1", "2", "3", kAbsent}},
      {kBw, "SAP_VARIABLES", "VARIABLE_SELECTION_TYPE", {"1", "2", "3", "4", kAbsent}},
      {kBw, "SAP_VARIABLES", "VARIABLE_ENTRY_TYPE", {"0", "1", "2", kAbsent}},
      {kBw, "SAP_VARIABLES", "DEFAULT_LOW", {"2.5", kAbsent}},
      {kBw, "SAP_VARIABLES", "DEFAULT_HIGH", {"[0CALMONTH].[202406]", kAbsent}},
      {kBw, "MDSCHEMA_MEMBERS", "MEMBER_TYPE", {"1", "2"}},
      {kKelvora, "MDSCHEMA_HIERARCHIES", "STRUCTURE", {"0", "1", "2", "3", kAbsent}},
      {kKelvora,
       "MDSCHEMA_DIMENSIONS",
       "KELVORA_DIMENSION_IS_ATTRIBUTE",
       {"true", "TRUE", "false"}},
      {kKelvora, "MDSCHEMA_DIMENSIONS", "DIMENSION_TYPE", {"256", "17", kAbsent}},
      {kKelvora, "MDSCHEMA_DIMENSIONS", "DIMENSION_TYPE", Numbers(0, 16)},
      {kKelvora, "MDSCHEMA_HIERARCHIES", "DIMENSION_TYPE", {"2"}},
      {kKelvora, "MDSCHEMA_HIERARCHIES", "IS_VIRTUAL", {"true"}},
      {kKelvora,
       "MDSCHEMA_PROPERTIES",
       "KELVORA_ATTRIBUTE_GENERATION",
       {"1", "2", "3", "4", kAbsent}},
      {kKelvora, "MDSCHEMA_PROPERTIES", "KELVORA_PROPERTY_TYPE", {"1", "2", "3", kAbsent}},
      {kKelvora,
       "MDSCHEMA_PROPERTIES",
       "PROPERTY_ATTRIBUTE_HIERARCHY_NAME",
       {"[Sea Area]", kAbsent}},
      {kKelvora, "MDSCHEMA_PROPERTIES", "DATA_TYPE", {"3", "5"}},
      {kKelvora, "MDSCHEMA_MEASURES", "MEASURE_AGGREGATOR", {"0", "1", "2", "3", "4", "5", "127"}},
  };
  for (const Case& c : cases) {
    EXPECT_THAT(Values(c.kind, c.rowset, c.column), IsSupersetOf(c.values))
        << NameOfKind(c.kind) << " " << c.rowset << " " << c.column;
  }
}

std::size_t Characters(const std::string& text) {
  std::size_t count = 0;
  for (const char c : text) count += (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
  return count;
}

TEST(DataCoverage, SomeCaptionsAndGeneratedNamesAreLong) {
  std::size_t captions = 0;
  std::size_t names = 0;
  for (const Row* row : RowsOf(kAs, "MDSCHEMA_HIERARCHIES")) {
    const std::string caption = Text(*row, "HIERARCHY_CAPTION");
    captions += Characters(caption) > 128;
    // Names generated from unique names ignore blanks and points.
    std::string name = Text(*row, "HIERARCHY_UNIQUE_NAME");
    std::erase_if(
        name, [](char c) { return std::string_view(" .[]'?*").find(c) != std::string_view::npos; });
    names += caption.empty() && Characters(name) > 128;
  }
  EXPECT_GT(captions, 0U);
  EXPECT_GT(names, 0U);
}

TEST(DataCoverage, CalculatedMeasuresHaveAnExpressionOneIsEmpty) {
  EXPECT_THAT(Values(kAs, "MDSCHEMA_MEASURES", "EXPRESSION"), Contains(testing::HasSubstr("IIF")));
  EXPECT_THAT(Values(kBw, "MDSCHEMA_MEASURES", "EXPRESSION"), Contains(""));
}

TEST(DataCoverage, NamesContainEverySpecialCharacter) {
  std::string names;
  for (const char* column : {"CUBE_NAME", "CUBE_CAPTION"})
    for (const std::string& value : Values(kAs, "MDSCHEMA_CUBES", column)) names += value;
  std::string captions;
  for (const std::string& v : Values(kAs, "MDSCHEMA_HIERARCHIES", "HIERARCHY_UNIQUE_NAME"))
    captions += v;
  for (const char c : std::string_view("&<>'\"[]")) {
    EXPECT_THAT(names, Contains(c));
    EXPECT_THAT(captions, Contains(c));
  }
  EXPECT_NE(names.find("売上"), std::string::npos);
  EXPECT_NE(names.find("\xF0\x9F"), std::string::npos) << "no astral character";
  EXPECT_NE(captions.find("]]"), std::string::npos) << "no doubled bracket";
}

TEST(DataCoverage, SomeLevelsAreOutOfOrder) {
  std::vector<std::string> numbers;
  for (const Row* row : RowsOf(kAs, "MDSCHEMA_LEVELS")) {
    if (Text(*row, "CUBE_NAME") != "Sales") continue;
    if (Text(*row, "HIERARCHY_UNIQUE_NAME") == "[Date].[Trading Week]")
      numbers.push_back(Text(*row, "LEVEL_NUMBER"));
  }
  EXPECT_EQ(numbers, (std::vector<std::string>{"2", "0", "1"}));
}

TEST(DataCoverage, TamarindDefaultMembersCoverAllMemberCases) {
  bool equal = false;
  bool bothEmpty = false;
  bool different = false;
  for (const Row* row : RowsOf(kKelvora, "MDSCHEMA_HIERARCHIES")) {
    const std::string member = Text(*row, "DEFAULT_MEMBER");
    const std::string all = Text(*row, "ALL_MEMBER");
    equal |= member == all && !member.empty();
    bothEmpty |= member.empty() && all.empty();
    different |= member != all;
  }
  EXPECT_TRUE(equal && bothEmpty && different);
}

// Consistency of a server's replies: each row's parent row exists.
TEST(DataCoverage, ParentRowsExist) {
  struct Case {
    std::string below;
    std::string above;
    std::vector<std::string> keys;
  };
  const Case cases[] = {
      {"MDSCHEMA_CUBES", "DBSCHEMA_CATALOGS", {"CATALOG_NAME"}},
      {"MDSCHEMA_DIMENSIONS", "MDSCHEMA_CUBES", {"CATALOG_NAME", "CUBE_NAME"}},
      {"MDSCHEMA_HIERARCHIES", "MDSCHEMA_DIMENSIONS", {"CUBE_NAME", "DIMENSION_UNIQUE_NAME"}},
      {"MDSCHEMA_LEVELS", "MDSCHEMA_HIERARCHIES", {"CUBE_NAME", "HIERARCHY_UNIQUE_NAME"}},
      {"MDSCHEMA_PROPERTIES", "MDSCHEMA_LEVELS", {"CUBE_NAME", "LEVEL_UNIQUE_NAME"}},
      {"MDSCHEMA_MEMBERS", "MDSCHEMA_LEVELS", {"CUBE_NAME", "LEVEL_UNIQUE_NAME"}},
      {"MDSCHEMA_MEASURES", "MDSCHEMA_CUBES", {"CATALOG_NAME", "CUBE_NAME"}},
      {"SAP_VARIABLES", "MDSCHEMA_CUBES", {"CATALOG_NAME", "CUBE_NAME"}},
  };
  for (const Kind kind : kKinds) {
    for (const Case& c : cases) {
      const auto key = [&](const Row& row) {
        std::string text;
        for (const std::string& column : c.keys) text += Text(row, column) + "|";
        return text;
      };
      std::set<std::string> above;
      for (const Row* row : RowsOf(kind, c.above)) above.insert(key(*row));
      for (const Row* row : RowsOf(kind, c.below)) {
        EXPECT_EQ(key(*row).find(kAbsent), std::string::npos) << c.below << " " << key(*row);
        EXPECT_TRUE(above.contains(key(*row)))
            << NameOfKind(kind) << " " << c.below << " " << key(*row);
      }
    }
  }
}

TEST(DataCoverage, UniqueNamesAndLevelNumbersAreUnique) {
  struct Case {
    std::string rowset;
    std::vector<std::string> key;
  };
  const Case cases[] = {
      {"MDSCHEMA_CUBES", {"CATALOG_NAME", "CUBE_NAME"}},
      {"MDSCHEMA_HIERARCHIES", {"CATALOG_NAME", "CUBE_NAME", "HIERARCHY_UNIQUE_NAME"}},
      {"MDSCHEMA_LEVELS", {"CATALOG_NAME", "CUBE_NAME", "LEVEL_UNIQUE_NAME"}},
      {"MDSCHEMA_LEVELS", {"CATALOG_NAME", "CUBE_NAME", "HIERARCHY_UNIQUE_NAME", "LEVEL_NUMBER"}},
      {"MDSCHEMA_MEASURES", {"CATALOG_NAME", "CUBE_NAME", "MEASURE_UNIQUE_NAME"}},
  };
  for (const Kind kind : kKinds) {
    for (const Case& c : cases) {
      std::set<std::string> seen;
      for (const Row* row : RowsOf(kind, c.rowset)) {
        std::string key;
        for (const std::string& column : c.key) key += Text(*row, column) + "|";
        EXPECT_TRUE(seen.insert(key).second) << NameOfKind(kind) << " " << c.rowset << " " << key;
      }
    }
  }
}

TEST(DataCoverage, DefaultMembersExistIfTheirLookUpSucceeds) {
  // The sample data makes their look-up fail.
  const std::set<std::string> faulting = {"[Customer].[Club Card]",
                                          "[ZVFARM                        ZVCOOP]", "[Crew]"};
  for (const Kind kind : kKinds) {
    std::set<std::string> members;
    for (const Row* row : RowsOf(kind, "MDSCHEMA_MEMBERS"))
      members.insert(Text(*row, "CUBE_NAME") + Text(*row, "MEMBER_UNIQUE_NAME"));
    for (const Row* row : RowsOf(kind, "MDSCHEMA_HIERARCHIES")) {
      const std::string member = Text(*row, "DEFAULT_MEMBER");
      const bool lookedUp = kind != kKelvora || member != Text(*row, "ALL_MEMBER");
      if (member == kAbsent || !lookedUp) continue;
      if (faulting.contains(Text(*row, "HIERARCHY_UNIQUE_NAME"))) continue;
      EXPECT_TRUE(members.contains(Text(*row, "CUBE_NAME") + member))
          << NameOfKind(kind) << " " << member;
    }
  }
}

TEST(DataCoverage, ErrorsInADataFileNameTheLine) {
  struct Case {
    const char* json;
    const char* text;
  };
  const Case cases[] = {
      {"{", "parse error"},
      {"{}", "sources"},
      {R"({"sources":[{"DataSourceName":"a","catalogs":[{"CATALOG":"x"}]}]})",
       "DBSCHEMA_CATALOGS 0: no column CATALOG"},
      {R"({"sources":[{"DataSourceName":"a","catalogs":[7]}]})", "object or a text"},
      {R"({"sources":[{"DataSourceName":1.5}]})", "1.5"},
      {R"({"defaults":{"DISCOVER_DATASOURCES":{"URL":"{URL}"}},"sources":[{}]})", "circular"},
      {R"({"sources":[{"catalogs":[{"cubes":[{"variables":["v"]}]}]}]})", "no such rowset"},
  };
  for (const Case& c : cases) {
    try {
      sample::LoadMetadata(c.json, kAs);
      ADD_FAILURE() << "accepted: " << c.json;
    } catch (const std::runtime_error& error) {
      EXPECT_THAT(error.what(), testing::HasSubstr(c.text));
    }
  }
}

}  // namespace
}  // namespace sample_test
