// docs/connecting.md agrees with the tool: its calls are valid, and its error texts exist.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <sstream>

#include "CommandTable.h"
#include "call/Arguments.h"
#include "results/Formats.h"
#include "support/Text.h"

namespace tool {
namespace {

std::vector<std::string> LinesOf(const std::string& text, const std::regex& pattern) {
  std::vector<std::string> found;
  std::istringstream lines(text);
  std::smatch match;
  for (std::string line; std::getline(lines, line);)
    if (std::regex_match(line, match, pattern)) found.push_back(match[1]);
  return found;
}

/// Splits a shell command in which only single quotes are special.
std::vector<std::string> ShellWords(const std::string& command) {
  std::vector<std::string> words;
  std::string word;
  bool isQuoted = false;
  bool hasWord = false;
  for (const char c : command + " ") {
    if (c == '\'') {
      isQuoted = !isQuoted;
      hasWord = true;
    } else if (c != ' ' || isQuoted) {
      word += c;
      hasWord = true;
    } else if (hasWord) {
      words.push_back(std::exchange(word, {}));
      hasWord = false;
    }
  }
  return words;
}

TEST(Connecting, CallsAreValid) {
  const std::vector<std::string> calls =
      LinesOf(support::ReadFile(CONNECTING_DOCUMENT), std::regex("    (xmla-import .*)"));
  ASSERT_GE(calls.size(), 12u);
  for (const std::string& call : calls) {
    const std::vector<std::string> words = ShellWords(call);
    std::vector<const char*> argv;
    for (const std::string& word : words) argv.push_back(word.c_str());
    ::Arguments arguments;
    EXPECT_NO_THROW(ParseArguments(static_cast<int>(argv.size()), argv.data(), CommandForms(),
                                   Formats(), arguments))
        << call;
  }
}

TEST(Connecting, ErrorTextsExist) {
  std::string sources;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(SERVER_FOLDER))
    if (entry.path().extension() == ".cpp") sources += support::ReadFile(entry.path());
  sources = std::regex_replace(sources, std::regex("\"\\s+L?\""), "");  // one literal
  const std::vector<std::string> texts =
      LinesOf(support::ReadFile(CONNECTING_DOCUMENT), std::regex("\\| `([^`]+)` \\| [A-Z`].*"));
  ASSERT_GE(texts.size(), 30u);
  for (std::string text : texts) {
    // A status and a number are composed.
    text = std::regex_replace(text, std::regex("^HTTP ([0-9]+) (.*)"), "{$1, L\"$2\"");
    if (text.starts_with('[')) text = "= " + text.substr(1, 5) + ";";
    if (text.starts_with("= "))
      EXPECT_THAT(support::ReadFile(MESSAGE_NUMBERS), testing::HasSubstr(text));
    else
      EXPECT_THAT(sources.find(text) != std::string::npos, true) << text;
  }
}

}  // namespace
}  // namespace tool
