// docs/xmla-import.md agrees with the tool: output of its examples, and options.

#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <sstream>

#include "support/TempDir.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

struct DocumentedCall {
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
std::vector<DocumentedCall> Examples(const std::string& document) {
  const std::string indent = "    ";
  const std::string prompt = indent + "$ xmla-import ";
  std::vector<DocumentedCall> examples;
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
  const std::vector<DocumentedCall> examples = Examples(support::ReadFile(TOOL_DOCUMENT));
  ASSERT_GE(examples.size(), 1u);
  for (const DocumentedCall& example : examples)
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

}  // namespace
}  // namespace tool
