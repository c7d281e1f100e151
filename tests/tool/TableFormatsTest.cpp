// The formats csv, xlsx and markdown have every value of the JSON document, cell by cell.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <set>

#include "diff/RecordRules.h"
#include "results/Cells.h"
#include "support/TempDir.h"
#include "tool/ScriptedProvider.h"
#include "tool/TableReading.h"
#include "tool/ToolProcess.h"

namespace tool::table_formats {
namespace {

using Cells = std::map<std::string, Json>;  // by heading
using Strings = std::vector<std::string>;

/// The words of enumerators in formats for people.
const std::map<std::string, std::string> kWords = {
    {"kAggrUnknown", ""},
    {"kAggrSum", "sum"},
    {"kAggrCount", "count"},
    {"kAggrMin", "min"},
    {"kAggrMax", "max"},
    {"kAggrExternal", "calculated by server"},
    {"kMemberTypeUnknown", "unknown"},
    {"kMemberTypeRegular", "regular"},
    {"kMemberTypeAll", "all"},
    {"kMemberTypeFormula", "calculated"},
    {"kMemberTypeMeasure", "measure"},
    {"kHierarchyTypeUnknown", "structure unknown"},
    {"kHierarchyFullyBalanced", "balanced"},
    {"kHierarchyUnBalanced", "unbalanced"},
    {"kHierarchyRaggedBalanced", "ragged"},
    {"kHierarchyNetwork", "network"},
    {"kDimensionTypeUnknown", ""},
    {"kDimensionTypeOther", ""},
    {"kDimensionTypeTime", "time"},
    {"kDimensionTypeMeasure", "measures"},
    {"kDimensionQuantitative", "quantitative"},
    {"kDimensionAccounts", "accounts"},
    {"kDimensionCustomers", "customers"},
    {"kDimensionProducts", "products"},
    {"kDimensionScenario", "scenario"},
    {"kDimensionUtiliy", "utility"},
    {"kDimensionCurrency", "currency"},
    {"kDimensionRates", "rates"},
    {"kDimensionChannel", "channel"},
    {"kDimensionPromotion", "promotion"},
    {"kDimensionOrganization", "organization"},
    {"kDimensionBill_of_materials", "bill of materials"},
    {"kDimensionGeography", "geography"},
    {"kDimensionAttribute", "attribute"},
    {"VXBitData", "Bit"},
    {"VXCharData", "Char"},
    {"VXVarCharData", "VarChar"},
    {"VXLongVarCharData", "LongVarChar"},
    {"VXLongVarBinaryData", "LongVarBinary"},
    {"VXInt1Data", "Int1"},
    {"VXFloatData", "Float"},
    {"VXDoubleData", "Double"},
    {"VXNumericData", "Numeric"},
    {"VXDecimalData", "Decimal"},
    {"VXDateData", "Date"},
    {"VXUnknown", "Unknown"},
    {"SAP_VAR_TYPE_MEMBER", "member"},
    {"SAP_VAR_TYPE_NUMERIC", "number"},
    {"SAP_VAR_TYPE_HIERARCHY", "hierarchy"},
    {"SAP_VAR_SEL_TYPE_VALUE", "one value"},
    {"SAP_VAR_SEL_TYPE_INTERVAL", "interval"},
    {"SAP_VAR_SEL_TYPE_COMPLEX", "ranges"},
    {"SAP_VAR_SEL_TYPE_MULTI_SINGLE_VALUES", "several values"},
    {"SAP_VAR_INPUT_TYPE_OPTIONAL", "optional"},
    {"SAP_VAR_INPUT_TYPE_MANDATORY", "mandatory"},
    {"SAP_VAR_INPUT_TYPE_MANDATORY_NOT_INITIAL", "mandatory (not initial)"},
};

bool IsEnumerator(const std::string& key) { return key == "type" || key.ends_with("Type"); }

enum class Form { kCsv, kPeople };

/// Adds the members of a JSON object that are neither lists, objects nor constants.
void Add(const Json& object, Form form, const std::string& prefix, Cells& cells) {
  for (const auto& [key, value] : object.items()) {
    if (value.is_structured() || IsConstant(key)) continue;
    const bool isWord = form == Form::kPeople && IsEnumerator(key) && value.is_string();
    const std::string heading = form == Form::kCsv ? prefix + key : Heading(key);
    cells[heading] = isWord ? Json(kWords.at(value.get<std::string>())) : value;
  }
}

std::string State(const Json& cube) {
  if (cube["errors"].empty()) return "complete";
  const bool isEmpty =
      cube["hierarchies"].empty() && cube["measures"].empty() && cube["sapVariables"].empty();
  return isEmpty ? "not read" : "incomplete";
}

/// Every row of the csv result that belongs to the document of an import.
std::vector<Cells> ExpectedCsv(const Json& document) {
  std::vector<Cells> rows;
  Cells& provider = rows.emplace_back();
  provider["kind"] = "provider";
  Add(document["provider"], Form::kCsv, "", provider);
  for (const Json& cube : document["cubes"]) {
    Cells names;
    Add(cube, Form::kCsv, "", names);
    names["state"] = State(cube);
    const auto add = [&](const char* kind, const Cells& more) {
      rows.push_back(names);
      rows.back().insert(more.begin(), more.end());
      rows.back()["kind"] = kind;
    };
    if (cube["hierarchies"].empty() && cube["measures"].empty() && cube["sapVariables"].empty())
      add("cube", {});
    for (const Json& hierarchy : cube["hierarchies"]) {
      Cells parents;
      Add(hierarchy, Form::kCsv, "hierarchy.", parents);
      if (hierarchy["levels"].empty()) add("hierarchy", parents);
      for (const Json& level : hierarchy["levels"]) {
        Add(level, Form::kCsv, "level.", parents);
        Cells field = parents;
        Add(level["unit"], Form::kCsv, "", field);
        add("level", field);
        for (const Json& property : level["memberProperties"]) {
          field = parents;
          Add(property, Form::kCsv, "", field);
          add("property", field);
        }
      }
    }
    for (const auto& [list, kind] :
         {std::pair{"measures", "measure"}, {"sapVariables", "variable"}})
      for (const Json& each : cube[list]) {
        Cells field;
        Add(each, Form::kCsv, "", field);
        add(kind, field);
      }
    for (const auto& [list, kind] : {std::pair{"errors", "error"}, {"warnings", "warning"}})
      for (const Json& line : cube[list]) add(kind, {{"message", line}});
  }
  for (const auto& [list, kind] : {std::pair{"errors", "error"}, {"warnings", "warning"}})
    for (const Json& line : document[list]) rows.push_back({{"kind", kind}, {"message", line}});
  return rows;
}

/// In formats for people, servers' -1 for an unknown number is an empty cell, and so is the
/// precision 65535, which is -1 in 16 bits, beside the scale -1.
std::vector<Cells> WithoutUnknown(std::vector<Cells> rows) {
  for (Cells& row : rows) {
    if (row.contains("scale") && row["scale"] == -1 && row["precision"] == 65535)
      row["precision"] = "";
    for (auto& [heading, value] : row)
      if (value == -1) value = "";
  }
  return rows;
}

/// The rows of a table of a cube in a format for people.
std::vector<Cells> ExpectedRows(const Json& cube, const std::string& table) {
  std::vector<Cells> rows;
  const auto add = [&](const Json& record, const Cells& parents) {
    rows.push_back(parents);
    Add(record, Form::kPeople, "", rows.back());
  };
  if (table == "measures" || table == "variables")
    for (const Json& each : cube[table == "measures" ? "measures" : "sapVariables"]) add(each, {});
  for (const Json& hierarchy : cube["hierarchies"]) {
    if (table == "hierarchies") add(hierarchy, {});
    Cells parents{{"hierarchy", hierarchy["name"]},
                  {"hierarchy's name on the server", hierarchy["externalName"]}};
    for (const Json& level : hierarchy["levels"]) {
      if (table == "levels") add(level, parents);
      Cells parent = parents;
      parent["level"] = level["name"];
      parent["level's name on the server"] = level["externalName"];
      if (table == "properties")
        for (const Json& property : level["memberProperties"]) add(property, parent);
    }
  }
  return WithoutUnknown(rows);
}

constexpr const char* kTableNames[] = {"hierarchies", "levels", "properties", "measures",
                                       "variables"};

/// Compares the rows of a table. A cell of csv and Markdown is text, an empty one of a workbook is
/// null. In Markdown, a column may be missing if all its cells are empty or 0.
void ExpectRows(const ReadTable& table, const std::vector<Cells>& expected) {
  ASSERT_EQ(table.rows.size(), expected.size()) << testing::PrintToString(table.name);
  for (std::size_t row = 0; row < expected.size(); ++row) {
    ASSERT_EQ(table.rows[row].size(), table.headings.size());
    Cells found;
    for (std::size_t i = 0; i < table.headings.size(); ++i) {
      const Json& cell = table.rows[row][i];
      found[table.headings[i]] = cell.is_null() ? Json("") : cell;
    }
    const bool isWorkbook = !table.frozen.empty();
    for (const auto& [heading, value] : expected[row]) {
      const Json text = value.is_number() && !isWorkbook ? Json(value.dump()) : value;
      if (found.contains(heading))
        EXPECT_EQ(found[heading], text) << heading << " in row " << row;
      else
        EXPECT_TRUE(text == "" || text == "0") << heading << " in row " << row << ": " << text;
      found.erase(heading);
    }
    for (const auto& [heading, cell] : found)
      EXPECT_TRUE(cell == "" || cell == 0) << heading << " in row " << row << ": " << cell;
  }
}

const ReadTable* Find(const std::vector<ReadTable>& tables, const Strings& name) {
  for (const ReadTable& table : tables)
    if (table.name == name) return &table;
  return nullptr;
}

void ExpectCsv(const std::string& bytes, const Json& document) {
  const std::vector<ReadTable> tables = ReadTables("csv", bytes);
  ASSERT_EQ(tables.size(), 1u);
  ExpectRows(tables[0], ExpectedCsv(document));
  // Every line ends with CR and LF.
  EXPECT_TRUE(bytes.ends_with("\r\n"));
}

/// True for a warning that needs no action.
bool IsNote(const Json& line) { return line.get<std::string>().starts_with("[62012] "); }

/// The headings of Tamarind's columns without a value.
Strings EmptyOfTamarind(const ReadTable& sheet) {
  const Strings ofTamarind{"attribute hierarchy", "generation", "kind of property"};
  Strings empty;
  for (std::size_t i = 0; i < sheet.headings.size(); ++i)
    if (std::ranges::count(ofTamarind, sheet.headings[i]) > 0 &&
        std::ranges::all_of(sheet.rows,
                            [&](const auto& row) { return row[i].is_null() || row[i] == 0; }))
      empty.push_back(sheet.headings[i]);
  return empty;
}

/// The words of the page of a cube, and of the page of a comparison.
TEST(TableFormats, HeadingsAreTheWordsOfTheReport) {
  const std::string page = support::ReadFile(TOOL_SOURCES "/results/report/cube.js");
  for (const char* const key :
       {"name", "externalName", "type", "aggrType", "tamarindAttributeHierarchyName",
        "tamarindGenerationNumber", "tamarindPropertyType", "selectionType", "entryType",
        "referenceDimension", "referenceHierarchy", "defaultLow", "defaultHigh", "caption"}) {
    std::string heading = Heading(key);
    heading[0] = static_cast<char>(heading[0] - 'a' + 'A');
    EXPECT_NE(page.find("title: \"" + heading + '"'), page.npos) << heading;
  }
  std::set<std::string> words;
  const RecordRule& cube = *kImportRule.lists.front().record;
  for (const FieldRule& field : cube.lists.front().record->fields) words.emplace(field.what);
  for (const char* const key :
       {"dimensionUniqueName", "memberType", "hierarchyType", "dimensionType"})
    EXPECT_TRUE(words.contains(Heading(key))) << Heading(key);
}

void ExpectWorkbook(const std::string& bytes, const Json& document) {
  const std::vector<ReadTable> sheets = ReadTables("xlsx", bytes);
  Strings names;
  for (const ReadTable& sheet : sheets) names.push_back(sheet.name.at(0));
  EXPECT_EQ(names, (Strings{"cubes", "hierarchies", "levels", "properties", "measures", "variables",
                            "messages"}));
  std::map<std::string, std::vector<Cells>> expected;
  const Json& provider = document["provider"];
  const auto text = [&](const char* key) { return provider[key].get<std::string>(); };
  expected["messages"].push_back(
      {{"kind", "provider"},
       {"message", text("name") + ", version " + text("version") + ", kind " + text("target")}});
  const auto addMessages = [&](const Json& object, const Cells& cube) {
    for (const auto& [list, kind] : {std::pair{"errors", "error"}, {"warnings", "warning"}})
      for (const Json& line : object[list]) {
        expected["messages"].push_back(cube);
        expected["messages"].back()["kind"] = IsNote(line) ? "note" : kind;
        expected["messages"].back()["message"] = line;
      }
  };
  for (const Json& cube : document["cubes"]) {
    Cells cubeNames;
    Add(cube, Form::kPeople, "", cubeNames);
    Cells summary = cubeNames;
    summary["state"] = State(cube);
    summary["errors"] = cube["errors"].size();
    summary["warnings"] =
        std::ranges::count_if(cube["warnings"], [](const Json& line) { return !IsNote(line); });
    for (const char* const table : kTableNames) {
      const std::vector<Cells> rows = ExpectedRows(cube, table);
      summary[table] = rows.size();
      for (const Cells& row : rows) {
        expected[table].push_back(cubeNames);
        expected[table].back().insert(row.begin(), row.end());
      }
    }
    expected["cubes"].push_back(summary);
    addMessages(cube, cubeNames);
  }
  addMessages(document, {});
  for (const ReadTable& sheet : sheets) {
    SCOPED_TRACE(sheet.name.at(0));
    ExpectRows(sheet, expected[sheet.name.at(0)]);
    EXPECT_EQ(sheet.frozen, "A2");
    EXPECT_EQ(sheet.hidden, EmptyOfTamarind(sheet));
    EXPECT_TRUE(sheet.filter.starts_with("A1:")) << sheet.filter;
    EXPECT_TRUE(sheet.filter.ends_with(std::to_string(sheet.rows.size() + 1))) << sheet.filter;
  }
}

void ExpectMarkdown(const std::string& bytes, const Json& document) {
  const std::vector<ReadTable> tables = ReadTables("markdown", bytes);
  std::size_t count = 0;
  const auto expectTable = [&](const Strings& name, const std::vector<Cells>& rows) {
    SCOPED_TRACE(testing::PrintToString(name));
    const ReadTable* const table = Find(tables, name);
    EXPECT_EQ(table == nullptr, rows.empty());
    if (!table) return;
    ++count;
    ExpectRows(*table, rows);
  };
  const auto expectMessages = [&](const Json& object, const Strings& path) {
    for (const auto& [list, heading, kind] : {std::tuple{"errors", "Errors", "error"},
                                              {"warnings", "Warnings", "warning"},
                                              {"warnings", "Notes", "note"}}) {
      std::vector<Cells> rows;
      for (const Json& line : object[list])
        if (IsNote(line) == (kind == std::string("note"))) rows.push_back({{kind, line}});
      Strings name = path;
      name.push_back(heading);
      expectTable(name, rows);
    }
  };
  Cells provider;
  Add(document["provider"], Form::kPeople, "", provider);
  expectTable({"Import"}, {provider});
  expectMessages(document, {"Import"});
  std::vector<Cells> cubes;
  for (const Json& cube : document["cubes"]) {
    const std::string name = cube["cube"].get<std::string>();
    Cells summary{
        {"data source", cube["dataSource"]}, {"catalog", cube["catalog"]}, {"state", State(cube)}};
    for (const char* const table : kTableNames) {
      const std::vector<Cells> rows = ExpectedRows(cube, table);
      summary[table] = rows.size();
      std::string heading = table;
      heading[0] = static_cast<char>(heading[0] - 'a' + 'A');
      expectTable({"Import", name, heading}, rows);
    }
    expectTable({"Import", name}, {summary});
    expectMessages(cube, {"Import", name});
    cubes.push_back(summary);
    cubes.back()["cube"] = cube["cube"];
  }
  expectTable({"Import", "Cubes"}, cubes);
  EXPECT_EQ(count, tables.size());
}

void ExpectAllFormats(const Arguments& call) {
  const auto result = [&](const char* format) {
    Arguments more = call;
    more.insert(more.end(), {"--format", format});
    return RunTool(more).out;
  };
  const Json document = Json::parse(result("json"));
  ExpectCsv(result("csv"), document);
  ExpectWorkbook(result("xlsx"), document);
  ExpectMarkdown(result("markdown"), document);
}

TEST(TableFormats, HaveEveryValueOfTheSampleProvider) {
  if (!CanReadTables()) GTEST_SKIP() << "python3-openpyxl or cmark-gfm is missing";
  for (const char* const kind : {"analysis-services", "sap-bw", "tamarind"}) {
    SCOPED_TRACE(kind);
    ExpectAllFormats({"--quiet", "--sample", kind, "import"});
  }
}

TEST(TableFormats, HaveTheErrorsOfIncompleteCubes) {
  if (!CanReadTables()) GTEST_SKIP() << "python3-openpyxl or cmark-gfm is missing";
  ExpectAllFormats({"--sample", "tamarind", "--target", "sap-bw", "import"});
  ExpectAllFormats({"--sample", "tamarind", "import", "--cube", "Log", "--cube", "Nothing"});
}

std::string Repeated(const std::string& text, std::size_t count) {
  std::string all;
  for (; count > 0; --count) all += text;
  return all;
}

/// Names that are dangerous in one of the formats, as in XML.
const Strings kHostile = {
    "&lt;/script&gt;",
    "&lt;img src=x onerror=alert(1)&gt;",
    "&lt;!-- x --&gt;",
    "&amp;lt;b&amp;gt; &amp;#124; &amp;amp;",
    "\"a\", 'b', \"\"",
    "a,b;c",
    "\xE2\x80\xAE"
    "abc\xE2\x81\xA6",
    "a\xE2\x80\x8B"
    "b\xEF\xBB\xBF",
    Repeated("0123456789", 1000),
    "\xED\xA0\x80 and \xF0\x9F\x91\x95",
    "a&#10;b&#13;c&#9;d",
    "a&#13;&#10;b",
    "=cmd|' /C calc'!A0",
    "=1+1",
    "+1",
    "-1",
    "@x",
    "42",
    "1e5",
    "http://server.example/?a=b&amp;c#d",
    "www.server.example",
    "mailto:ann@server.example",
    "ann@server.example",
    "`code` and ``more`",
    "a | b \\| c \\\\| d \\",
    "**b** _i_ ~~s~~ [l](u) ![i](u) [^1] $x$ &lt;u&gt; http://x.example",
    "# h",
    "1. x",
    "- x",
    "&gt; x",
    "---",
    "| --- |",
    "    code",
    "  padded  ",
    " ",
    "_x0041_ _x000D_",
    "internal:Sheet!A1",
    "",
};

ScriptedProvider::Script HostileNames() {
  ScriptedProvider::Script script = OneCube();
  for (const char* const rowset : {"MDSCHEMA_MEASURES", "MDSCHEMA_HIERARCHIES"}) {
    std::vector<Row>& rows = script.rows[rowset];
    const Row example = rows.front();
    rows.clear();
    for (std::size_t i = 0; i < kHostile.size(); ++i) {
      Row& row = rows.emplace_back(example);
      for (auto& [column, value] : row) {
        if (column.ends_with("_CAPTION")) value = kHostile[i];
        if (column.ends_with("_NAME") && column != "DIMENSION_UNIQUE_NAME")
          value = "n" + std::to_string(i) + kHostile[i];
      }
    }
  }
  return script;
}

TEST(TableFormats, KeepHostileNames) {
  if (!CanReadTables()) GTEST_SKIP() << "python3-openpyxl or cmark-gfm is missing";
  const ScriptedProvider provider(HostileNames());
  ExpectAllFormats({"--url", provider.Url(), "import"});
  const Json document = RunTool({"--url", provider.Url(), "import", "--format", "json"}).Document();
  EXPECT_EQ(document["cubes"][0]["measures"].size(), kHostile.size());
}

TEST(TableFormats, KeepAHostileCube) {
  if (!CanReadTables()) GTEST_SKIP() << "python3-openpyxl or cmark-gfm is missing";
  for (const std::string& name : kHostile) {
    if (name.empty() || name.find("&#1") != name.npos) continue;  // not a name of a cube
    SCOPED_TRACE(name);
    ScriptedProvider::Script script = OneCube();
    script.rows["MDSCHEMA_CUBES Lone"] = {{{"CUBE_NAME", name}}};
    const ScriptedProvider provider(std::move(script));
    const auto result = [&](const char* format) {
      return RunTool({"--url", provider.Url(), "import", "--format", format}).out;
    };
    ExpectMarkdown(result("markdown"), Json::parse(result("json")));
  }
}

TEST(TableFormats, HaveTheTree) {
  if (!CanReadTables()) GTEST_SKIP() << "python3-openpyxl or cmark-gfm is missing";
  const ScriptedProvider provider(TwoSources());
  const auto tables = [&](const char* format) {
    return ReadTables(format, RunTool({"--url", provider.Url(), "tree", "--format", format}).out);
  };
  std::vector<Cells> rows;
  for (const char* const source : {"Alpha", "Beta"}) {
    for (const char* const cube : {"Sales", "Stock"})
      rows.push_back({{"kind", "cube"},
                      {"dataSource", source},
                      {"catalog", "One"},
                      {"name", cube},
                      {"secondName", cube}});
    rows.push_back({{"kind", "catalog"}, {"dataSource", source}, {"catalog", "Two"}});
  }
  ExpectRows(tables("csv").at(0), rows);
  for (Cells& row : rows) {
    row.erase("kind");
    Cells renamed;
    for (const auto& [key, value] : row) renamed[Heading(key)] = value;
    row = renamed;
  }
  const std::vector<ReadTable> sheets = tables("xlsx");
  ASSERT_EQ(sheets.size(), 2u);
  EXPECT_EQ(sheets[0].name, Strings{"cubes"});
  ExpectRows(sheets[0], rows);
  EXPECT_EQ(sheets[1].name, Strings{"messages"});
  const std::vector<ReadTable> pages = tables("markdown");
  ASSERT_EQ(pages.size(), 2u);
  EXPECT_EQ(pages[1].name, (Strings{"Beta", "One"}));
  ExpectRows(pages[1], {{{"name", "Sales"}, {"second name", "Sales"}},
                        {{"name", "Stock"}, {"second name", "Stock"}}});
}

TEST(TableFormats, MarkdownEscapesAColonOnlyWhereItMayBeMarkup) {
  ScriptedProvider::Script script = OneCube();
  script.rows["MDSCHEMA_CUBES Lone"] = {{{"CUBE_NAME", "Plan: :smile:x http://h/ end:"}}};
  const ScriptedProvider provider(std::move(script));
  EXPECT_THAT(RunTool({"--url", provider.Url(), "import", "--format", "markdown"}).out,
              testing::HasSubstr("\n## Plan: \\:smile\\:x http\\://h/ end:\n"));
}

TEST(TableFormats, HaveTheErrorsOfAFailedCall) {
  if (!CanReadTables()) GTEST_SKIP() << "python3-openpyxl or cmark-gfm is missing";
  ScriptedProvider::Script script = OneCube();
  script.answer = [](const std::string&, const std::string&) -> std::string {
    return "<a>&#0;</a>";  // no XML document can contain this
  };
  const ScriptedProvider provider(std::move(script));
  for (const char* const format : {"csv", "xlsx", "markdown"})
    for (const char* const command : {"tree", "cube", "import"}) {
      SCOPED_TRACE(std::string(format) + " " + command);
      const Arguments call{"--url", provider.Url(), command, "--format"};
      Arguments asJson = call;
      asJson.emplace_back("json");
      const std::string error = RunTool(asJson).Document()["errors"][0].get<std::string>();
      Arguments asTable = call;
      asTable.emplace_back(format);
      const Outcome outcome = RunTool(asTable);
      EXPECT_EQ(outcome.status, 1);
      bool isFound = false;
      for (const ReadTable& table : ReadTables(format, outcome.out))
        for (const auto& row : table.rows)
          for (const Json& cell : row) isFound = isFound || cell == error;
      EXPECT_TRUE(isFound) << error;
    }
}

}  // namespace
}  // namespace tool::table_formats
