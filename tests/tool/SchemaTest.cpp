// The JSON Schemas in docs/schema. DocumentCheck validates every document of the tests; here are
// documents of every command, and what the schemas must reject.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "Import/EnumNames.h"
#include "support/TempDir.h"
#include "tool/DocumentCheck.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

/// A document of each command and sample, and their schemas.
std::vector<CollectedDocument> DocumentsOfEachCommand() {
  std::vector<CollectedDocument> documents{{"usage-error", "", RunTool({"--format", "json"}).out}};
  const support::TempDir folder;
  const Options options = WithServers(folder.Path() / "servers.toml", "[a]\nurl = 'http://h/'\n");
  documents.push_back({"servers", "", RunTool({"--format", "json", "servers"}, options).out});
  for (const char* const kind : {"analysis-services", "sap-bw", "tamarind"})
    for (const char* const command : {"sources", "tree", "import", "check"})
      documents.push_back(
          {command, kind, RunTool({"--sample", kind, "--format", "json", command}).out});
  documents.push_back({"cube", "",
                       RunTool({"--sample", "sap-bw", "cube", "--catalog", "ZVSALES", "--cube",
                                "ZVSALES/ZVSALES_Q001", "--format", "json"})
                           .out});
  const std::string old = folder.Path() / "old.json";
  RunTool({"--sample", "sap-bw", "import", "-o", old});
  Json changed = Json::parse(support::ReadFile(old));
  changed["cubes"][0]["measures"].erase(0);
  changed["cubes"][0]["hierarchies"][0]["name"] = "other";
  const std::string changedFile = folder.Path() / "new.json";
  std::ofstream(changedFile) << changed.dump();
  documents.push_back({"diff", "", RunTool({"diff", old, changedFile, "--format", "json"}).out});
  std::istringstream lines(RunTool({"--sample", "sap-bw", "import", "--format", "ndjson"}).out);
  for (std::string line; std::getline(lines, line);)
    documents.push_back({"import-lines", "", line});
  return documents;
}

TEST(Schema, RejectsEveryMissingOrAdditionalKeyAndWrongType) {
  if (!CanValidate()) GTEST_SKIP() << "skipped: the JSON Schema validator is missing";
  const std::vector<CollectedDocument> documents = DocumentsOfEachCommand();
  EXPECT_EQ(Validate(documents), "");
  EXPECT_EQ(Validate(documents, true), "");
}

TEST(Schema, TheValidatorReportsAnInvalidDocument) {
  if (!CanValidate()) GTEST_SKIP() << "skipped: the JSON Schema validator is missing";
  const std::string valid = R"({"dataSources": ["a"], "errors": [], "warnings": []})";
  EXPECT_EQ(Validate({{"sources", "", valid}}), "");
  for (const char* const invalid :
       {R"({"dataSources": [1], "errors": [], "warnings": []})",
        R"({"dataSources": [], "errors": ["a\nb"], "warnings": []})",
        R"({"dataSources": [], "errors": []})", R"({"dataSources": [], )", R"([])"})
    EXPECT_NE(Validate({{"sources", "", invalid}}), "") << invalid;
}

/// An enumerator without an entry would make a valid document invalid.
TEST(Schema, ListsTheEnumeratorsOfEveryEnumeration) {
  const Json records = Json::parse(support::ReadFile(SCHEMA_FOLDER "/records.json"))["$defs"];
  std::set<std::string> listed;
  for (const Json& record : records) {
    if (!record.contains("properties")) continue;
    for (const Json& property : record["properties"])
      if (property.contains("anyOf"))
        for (const Json& name : property["anyOf"][0]["enum"])
          listed.insert(name.get<std::string>());
  }
  std::set<std::string> written;
  const auto add = [&]<class Enum>(Enum, int first = -1000, int last = 1000) {
    for (int i = first; i <= last; ++i)
      if (const std::string_view name = EnumName(static_cast<Enum>(i)); !name.empty())
        written.emplace(name);
  };
  add(OTXMLAUnit::AggrType());
  add(OTXMLAUnit::DimPropType());
  add(VXDataType(), 0, VXMaxType);  // has no other values
  add(OTXMLAHierarchy::MemberType());
  add(OTXMLAHierarchy::HierarchyType());
  add(OTXMLAHierarchy::DimensionType());
  add(XmlACubeVariable::VariableType());
  add(XmlACubeVariable::VariableSelType());
  add(XmlACubeVariable::VariableEntryType());
  EXPECT_EQ(listed, written);
}

}  // namespace
}  // namespace tool
