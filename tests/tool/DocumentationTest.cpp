// The examples of docs/xmla-import.md show the tool's actual output.

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace tool
