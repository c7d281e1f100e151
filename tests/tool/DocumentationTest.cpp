// docs/xmla-import.md agrees with the tool: output of its examples, options, and JSON keys.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <sstream>

#include "support/TempDir.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

struct Example {
  Arguments arguments;
  std::string output;
};

/// Splits a shell command in which only double quotes are special.
Arguments Words(const std::string& command) {
  Arguments words;
  std::string word;
  bool quoted = false;
  for (const char c : command + " ") {
    if (c == '"') {
      quoted = !quoted;
    } else if (c != ' ' || quoted) {
      word += c;
    } else if (!word.empty()) {
      words.push_back(std::move(word));
      word.clear();
    }
  }
  return words;
}

/// Indented blocks that start with a prompt and a call of the tool.
std::vector<Example> Examples(const std::string& document) {
  const std::string indent = "    ";
  const std::string prompt = indent + "$ xmla-import ";
  std::vector<Example> examples;
  bool inside = false;
  std::istringstream lines(document);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(prompt)) {
      examples.push_back({Words(line.substr(prompt.size())), ""});
      inside = true;
    } else if (inside && line.starts_with(indent)) {
      examples.back().output += line.substr(indent.size()) + "\n";
    } else {
      inside = false;
    }
  }
  return examples;
}

TEST(Documentation, ExamplesAreTheToolsOutput) {
  const std::vector<Example> examples = Examples(support::ReadFile(TOOL_DOCUMENT));
  ASSERT_GE(examples.size(), 4u);
  for (const Example& example : examples)
    EXPECT_EQ(RunTool(example.arguments).out, example.output)
        << testing::PrintToString(example.arguments);
}

TEST(Documentation, MentionsEveryOption) {
  const std::string document = support::ReadFile(TOOL_DOCUMENT);
  const std::regex option("--[a-z][a-z-]*");
  std::set<std::string> options;
  for (const char* command : {"sources", "tree", "cube", "import", ""}) {
    Arguments call{"--help"};
    if (*command) call.insert(call.begin(), command);
    const std::string help = RunTool(call).out;
    for (std::sregex_iterator found(help.begin(), help.end(), option), end; found != end; ++found)
      options.insert(found->str());
  }
  EXPECT_GE(options.size(), 15u);
  for (const std::string& each : options) {
    const std::regex mention("[`\\[ ]" + each + "[`\\] ]");
    EXPECT_TRUE(std::regex_search(document, mention)) << each;
  }
}

using Keys = std::vector<std::string>;

/// The quoted words of each pair of braces, without those in brackets.
std::set<Keys> KeysInBraces(const std::string& text) {
  std::set<Keys> all;
  std::vector<Keys> open;
  int brackets = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '[') ++brackets;
    if (c == ']') --brackets;
    if (c == '{') open.emplace_back();
    if (c == '}') {
      all.insert(open.back());
      open.pop_back();
    }
    if (c == '"') {
      const std::size_t end = text.find('"', i + 1);
      if (!open.empty() && brackets == 0) open.back().push_back(text.substr(i + 1, end - i - 1));
      i = end;
    }
  }
  return all;
}

void CollectKeys(const nlohmann::ordered_json& value, std::set<Keys>& all) {
  if (value.is_object()) {
    Keys keys;
    for (const auto& [key, member] : value.items()) keys.push_back(key);
    // A cube is documented without its messages.
    if (keys.front() == "dataSource") keys.resize(keys.size() - 2);
    all.insert(keys);
  }
  if (value.is_structured())
    for (const auto& member : value) CollectKeys(member, all);
}

TEST(Documentation, ListsTheKeysOfEveryJsonObjectInOrder) {
  const std::string document = support::ReadFile(TOOL_DOCUMENT);
  const std::size_t begin = document.find("    sources  {");
  const std::size_t end = document.find("`errors` and `warnings`", begin);
  ASSERT_NE(end, std::string::npos);
  std::set<Keys> written;
  for (const char* kind : {"analysis-services", "sap-bw", "tamarind"})
    for (const char* command : {"sources", "tree", "import"}) {
      const Outcome outcome = RunTool({"--sample", kind, "--format", "json", command});
      CollectKeys(nlohmann::ordered_json::parse(outcome.out), written);
    }
  EXPECT_EQ(KeysInBraces(document.substr(begin, end - begin)), written);
}

}  // namespace
}  // namespace tool
