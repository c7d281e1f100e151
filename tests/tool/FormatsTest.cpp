// docs/formats.md agrees with the tool: keys, constant values, enumerators, words of the text, and
// the output of its examples, in which jq reads imports of the sample provider.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>

#include "Import/EnumNames.h"
#include "results/Cells.h"
#include "results/TextLegend.h"
#include "support/ChildProcess.h"
#include "support/TempDir.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

std::vector<std::string> DocumentLines() {
  std::istringstream document(support::ReadFile(FORMATS_DOCUMENT));
  std::vector<std::string> lines;
  for (std::string line; std::getline(document, line);) lines.push_back(line);
  return lines;
}

/// The cells of a table row, without blanks and code marks; empty for another line.
std::vector<std::string> Cells(const std::string& line) {
  std::vector<std::string> cells;
  if (!line.starts_with("| ")) return cells;
  std::istringstream row(line.substr(1));
  for (std::string cell; std::getline(row, cell, '|');) {
    const std::size_t first = cell.find_first_not_of(" `");
    const std::size_t last = cell.find_last_not_of(" `");
    cells.push_back(first == cell.npos ? "" : cell.substr(first, last - first + 1));
  }
  return cells;
}

/// The first cells of the rows below a table's heading line, by the heading above the table.
std::map<std::string, std::vector<std::string>> Tables(const std::string& headingLine) {
  std::map<std::string, std::vector<std::string>> tables;
  std::string heading;
  bool isInside = false;
  for (const std::string& line : DocumentLines()) {
    if (line.starts_with("#")) heading = line.substr(line.find(' ') + 1);
    const std::vector<std::string> cells = Cells(line);
    if (cells.empty()) isInside = false;
    if (isInside && !cells[0].starts_with("---")) tables[heading].push_back(cells[0]);
    if (line == headingLine) isInside = true;
  }
  return tables;
}

using Keys = std::vector<std::string>;

Keys KeysOf(const Json& object) {
  Keys keys;
  for (const auto& [key, member] : object.items()) keys.push_back(key);
  return keys;
}

/// Calls `use` for the value and each object in it.
template <class Use>
void ForEachObject(const Json& value, const Use& use) {
  if (value.is_object()) use(value);
  if (value.is_structured())
    for (const Json& member : value) ForEachObject(member, use);
}

/// Everything that the tool writes about the sample provider, and about a usage error.
std::vector<Json> Documents() {
  std::vector<Json> documents{RunTool({"--format", "json"}).Document()};
  for (const char* kind : {"analysis-services", "sap-bw", "tamarind"})
    for (const char* command : {"sources", "tree", "import", "check"})
      documents.push_back(RunTool({"--sample", kind, "--format", "json", command}).Document());
  const support::TempDir folder;
  const Options options = WithServers(folder.Path() / "servers.toml", "[a]\nurl = 'http://h/'\n");
  documents.push_back(RunTool({"--format", "json", "servers"}, options).Document());
  const std::string old = folder.Path() / "old.json";
  const std::string sorted = folder.Path() / "sorted.json";
  RunTool({"--sample", "tamarind", "import", "-o", old});
  RunTool({"--sample", "tamarind", "import", "--sort", "-o", sorted});
  documents.push_back(RunTool({"diff", old, sorted, "--format", "json"}).Document());
  return documents;
}

TEST(Formats, DocumentListsTheKeysOfEveryObjectInOrder) {
  std::set<Keys> written;
  for (const Json& document : Documents())
    ForEachObject(document, [&](const Json& object) { written.insert(KeysOf(object)); });
  std::set<Keys> listed;
  for (const auto& [heading, keys] : Tables("| key | value | meaning |")) listed.insert(keys);
  EXPECT_EQ(listed, written);
}

TEST(Formats, DocumentListsExactlyTheConstantValues) {
  const auto tables = Tables("| key | value | meaning |");
  std::set<std::pair<Keys, std::string>> constants;
  std::set<std::pair<Keys, std::string>> promised;
  const std::vector<Json> documents = Documents();
  bool isInside = false;
  for (const std::string& line : DocumentLines()) {
    const std::vector<std::string> cells = Cells(line);
    if (line == "| object | key | value |") isInside = true;
    if (cells.empty()) isInside = false;
    if (!isInside || cells[0] == "object" || cells[0].starts_with("---")) continue;
    ASSERT_EQ(tables.count(cells[0]), 1u) << line;
    const Keys& keys = tables.at(cells[0]);
    const Json expected = Json::parse(cells[2]);
    std::size_t count = 0;
    for (const Json& document : documents)
      ForEachObject(document, [&](const Json& object) {
        if (KeysOf(object) != keys) return;
        ++count;
        EXPECT_EQ(object.at(cells[1]), expected) << line;
      });
    EXPECT_GT(count, 0u) << line;
    promised.emplace(keys, cells[1]);
  }
  EXPECT_GE(promised.size(), 10u);
  // The key tables refer to this table for exactly these keys.
  std::string heading;
  for (const std::string& line : DocumentLines()) {
    if (line.starts_with("#")) heading = line.substr(line.find(' ') + 1);
    const std::vector<std::string> cells = Cells(line);
    if (cells.size() == 3 && cells[2].starts_with("always the same"))
      constants.emplace(tables.at(heading), cells[0]);
  }
  EXPECT_EQ(constants, promised);
}

template <class Enum>
void AddNames(int count, std::set<std::string>& names) {
  for (int value = 0; value < count; ++value) {
    const std::string_view name = EnumName(static_cast<Enum>(value));
    if (!name.empty()) names.emplace(name);
  }
}

/// Tables have no columns for these.
TEST(Formats, TheConstantValuesAreThoseThatAreNoColumns) {
  std::set<std::string> documented;
  bool isInside = false;
  for (const std::string& line : DocumentLines()) {
    const std::vector<std::string> cells = Cells(line);
    if (line == "| object | key | value |") isInside = true;
    if (cells.empty()) isInside = false;
    // Lists are no columns anyway.
    if (isInside && cells[2] != "[]" && cells[0] != "object" && !cells[0].starts_with("---"))
      documented.insert(cells[1]);
  }
  EXPECT_GE(documented.size(), 5u);
  for (const Json& document : Documents())
    ForEachObject(document, [&](const Json& object) {
      for (const auto& [key, value] : object.items())
        if (!value.is_structured()) {
          EXPECT_EQ(IsConstant(key), documented.contains(key)) << key;
        }
    });
}

TEST(Formats, DocumentListsEveryEnumeratorThatCanBeWritten) {
  constexpr int kAll = 300;  // more than the largest value
  std::set<std::string> written;
  AddNames<OTXMLAUnit::AggrType>(kAll, written);
  AddNames<OTXMLAUnit::DimPropType>(kAll, written);
  AddNames<VXDataType>(VXMaxType + 1, written);
  AddNames<OTXMLAHierarchy::MemberType>(kAll, written);
  AddNames<OTXMLAHierarchy::HierarchyType>(kAll, written);
  AddNames<OTXMLAHierarchy::DimensionType>(kAll, written);
  AddNames<XmlACubeVariable::VariableType>(kAll, written);
  AddNames<XmlACubeVariable::VariableSelType>(kAll, written);
  AddNames<XmlACubeVariable::VariableEntryType>(kAll, written);
  std::set<std::string> listed;
  for (const auto& [heading, names] : Tables("| name | used | meaning |"))
    listed.insert(names.begin(), names.end());
  EXPECT_EQ(listed, written);
}

TEST(Formats, DocumentMarksTheEnumeratorsThatAreUsed) {
  std::set<std::string> unused;
  std::size_t used = 0;
  for (const std::string& line : DocumentLines()) {
    const std::vector<std::string> cells = Cells(line);
    if (cells.size() != 3) continue;
    if (cells[1].empty() && (cells[0].starts_with('k') || cells[0].starts_with("VX")))
      unused.insert(cells[0]);
    if (cells[1] == "yes") ++used;
  }
  EXPECT_GE(unused.size(), 20u);
  EXPECT_GE(used, 20u);
  for (const Json& document : Documents())
    ForEachObject(document, [&](const Json& object) {
      for (const Json& value : object)
        if (value.is_string()) {
          EXPECT_EQ(unused.count(value.get<std::string>()), 0u) << value;
        }
    });
}

TEST(Formats, DocumentListsTheWordsOfTheText) {
  std::vector<std::string> rows;
  for (const LegendEntry& each : TextLegend())
    rows.push_back("| `" + std::string(each.word) + "` | " + std::string(each.meaning) + " |");
  const std::vector<std::string> lines = DocumentLines();
  const auto heading = std::ranges::find(lines, "| word | meaning |");
  ASSERT_GT(lines.end() - heading, static_cast<std::ptrdiff_t>(rows.size()) + 2);
  EXPECT_EQ(std::vector<std::string>(heading + 2, std::ranges::find(heading + 2, lines.end(), "")),
            rows);
}

struct DocumentExample {
  std::string command;
  std::string output;
};

/// The indented blocks that start with a prompt. A command ends where its quotes are closed.
std::vector<DocumentExample> Examples() {
  const std::string indent = "    ";
  std::vector<DocumentExample> examples;
  bool isInside = false;
  bool isQuoted = false;
  for (const std::string& line : DocumentLines()) {
    if (!line.starts_with(indent)) {
      isInside = false;
      continue;
    }
    std::string text = line.substr(indent.size());
    if (text.starts_with("$ ")) {
      examples.emplace_back();
      text.erase(0, 2);
      isInside = true;
      isQuoted = true;
    } else if (!isInside) {
      continue;
    }
    if (!isQuoted) {
      examples.back().output += text + "\n";
      continue;
    }
    examples.back().command += text + "\n";
    isQuoted = std::ranges::count(examples.back().command, '\'') % 2 != 0;
  }
  return examples;
}

TEST(Formats, ExamplesGiveTheOutputInTheDocument) {
  const support::TempDir folder;
  const std::string path = std::filesystem::path(ToolPath()).parent_path().string() + ":" +
                           std::string(std::getenv("PATH"));
  const auto run = [&](const std::string& command) {
    return support::RunChild("/bin/sh", {"-c", "cd '" + folder.Path().string() + "' && " + command},
                             {{"PATH", path}});
  };
  const bool hasJq = run("jq --version").exitStatus == 0;
  std::size_t recipes = 0;
  for (const DocumentExample& example : Examples()) {
    const bool isRecipe = example.command.starts_with("jq ");
    if (isRecipe && !hasJq) continue;
    const support::ChildResult result = run(example.command);
    EXPECT_EQ(result.out, example.output) << example.command << result.err;
    if (!isRecipe) continue;
    ++recipes;
    EXPECT_EQ(result.exitStatus, 0) << example.command << result.err;
    EXPECT_NE(example.output, "") << example.command;
  }
  if (hasJq) {
    EXPECT_GE(recipes, 10u);
    return;
  }
  const char* const missing = "the package jq is missing, so the recipes were not run";
  if (std::getenv("XMLA_REQUIRE_ALL_TESTS")) FAIL() << missing;
  GTEST_SKIP() << missing;
}

}  // namespace
}  // namespace tool
