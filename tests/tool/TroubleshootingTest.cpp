// docs/troubleshooting.md is complete and true: it explains every message number, every error text
// of connections, and every status with an advice, and its texts exist.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <set>
#include <sstream>

#include "Utility/Generic/HTTPClientWrapper.h"
#include "base/Text.h"
#include "support/TempDir.h"

namespace tool {
namespace {

using testing::Contains;

/// All matches of the pattern's first group.
std::vector<std::string> Found(const std::string& text, const std::string& pattern) {
  const std::regex regex(pattern);
  std::vector<std::string> found;
  for (std::sregex_iterator each(text.begin(), text.end(), regex), end; each != end; ++each)
    found.push_back((*each)[1]);
  return found;
}

/// The code in the first cells of all tables.
std::vector<std::string> ExplainedTexts() {
  std::istringstream lines(support::ReadFile(TROUBLESHOOTING_DOCUMENT));
  std::vector<std::string> texts;
  for (std::string line; std::getline(lines, line);)
    if (line.starts_with("| `"))
      for (const std::string& text : Found(line.substr(0, line.find(" | ", 1)), "`([^`]+)`"))
        texts.push_back(text);
  return texts;
}

/// The sources, with each literal in one piece and without escapes.
std::string Sources(const std::filesystem::path& folder) {
  std::string sources;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
    if (entry.path().extension() == ".cpp") sources += support::ReadFile(entry.path());
  sources = std::regex_replace(sources, std::regex("\"\\s+L?\""), "");
  return std::regex_replace(sources, std::regex(R"x(\\(["\\]))x"), "$1");
}

std::string SourceFile(const char* name) {
  return std::regex_replace(support::ReadFile(std::filesystem::path(SERVER_FOLDER) / "http" / name),
                            std::regex("\"\\s+L?\""), "");
}

TEST(Troubleshooting, ExplainsEveryMessageNumber) {
  const std::vector<std::string> explained = ExplainedTexts();
  const std::vector<std::string> numbers = Found(support::ReadFile(MESSAGE_NUMBERS), "= ([0-9]+);");
  ASSERT_GE(numbers.size(), 7u);
  for (const std::string& number : numbers) EXPECT_THAT(explained, Contains("[" + number + "]"));
}

/// The message and the page give the same advice.
TEST(Troubleshooting, RepeatsTheAdviceOfSkippedHierarchies) {
  const std::string page = support::ReadFile(TROUBLESHOOTING_DOCUMENT);
  for (const char* const number : {"62011", "62012", "62013"}) {
    const ErrorMessage error(std::stoi(number), L"[H]", L"source", L"catalog", L"cube");
    const std::string message = Lines(error).at(0);
    const std::string advice = message.substr(message.find("). ") + 3);
    EXPECT_THAT(Found(page, "\n(\\| `\\[" + std::string(number) + "\\]`[^\n]*)"),
                testing::ElementsAre(testing::EndsWith("| " + advice + " |")));
  }
}

/// The same for user name and password in a URL, also in the manual and its help.
TEST(Troubleshooting, RepeatsTheAdviceForPasswordsInURLs) {
  std::string advice = Utf8(kURLPasswordAdvice);
  advice = advice.substr(0, advice.find(", or leave")).substr(advice.find("write /"));
  for (const char* const file : {TROUBLESHOOTING_DOCUMENT, PROJECT_FOLDER "/docs/xmla-import.md",
                                 EXPECTED_FOLDER "/help-log-in.txt"}) {
    std::string page = std::regex_replace(support::ReadFile(file), std::regex("`"), "");
    page = std::regex_replace(page, std::regex("\n"), " ");
    const bool isTable = page.starts_with("# Trouble");
    const std::size_t first = page.find(advice);
    EXPECT_NE(first, page.npos) << file;
    EXPECT_EQ(page.find(advice, first + 1) != page.npos, isTable) << file;
  }
}

TEST(Troubleshooting, ExplainsEveryStatusWithAnAdvice) {
  const std::vector<std::string> explained = ExplainedTexts();
  const std::vector<std::string> statuses =
      Found(SourceFile("HTTPStatus.cpp"), R"x(\{([0-9]{3}), L"[^"]+",\s+(?:kElsewhere|L"[^"]))x");
  ASSERT_GE(statuses.size(), 25u);
  for (const std::string& status : statuses) EXPECT_THAT(explained, Contains("HTTP " + status));
}

/// What failed, in the tables and conditions of the sources. The longest part without a name.
std::vector<std::string> TextsOfFailures() {
  std::vector<std::string> texts;
  const auto add = [&](const char* file, const std::string& pattern, std::size_t atLeast) {
    const std::vector<std::string> found = Found(SourceFile(file), pattern);
    EXPECT_GE(found.size(), atLeast) << file << ": " << pattern;
    texts.insert(texts.end(), found.begin(), found.end());
  };
  add("HTTPFailure.cpp", R"x(return \{L"([^"]+)")x", 28);
  add("HTTPFailure.cpp", R"x(HTTPFailure::k\w+,\s+L"([^"]+)")x", 9);
  add("HTTPFailure.cpp", R"x(\{L"[^"]+",\s+L"(the server's[^"]+)")x", 3);
  add("HTTPFailure.cpp", R"x(result\.what =\s+L"([^"]+)")x", 1);
  add("HTTPOutcome.cpp", R"x(what \+=\s+L": ([^"]+)")x", 4);
  add("HTTPOutcome.cpp", R"x((?:\{|what = )L"(the [^"]+)")x", 4);
  add("KerberosProblem.cpp", R"x(\{"[^"]+",\s+L"([^"]+)")x", 4);
  add("KerberosProblem.cpp", R"x((?:kNoKDC|kKey) =\s*L"([^"]+)")x", 2);
  add("HTTPBearer.cpp", R"x(\{"[^"]*",\s+L"([^"]+)")x", 4);
  return texts;
}

TEST(Troubleshooting, ExplainsEveryTextOfAFailedConnection) {
  const std::vector<std::string> explained = ExplainedTexts();
  for (const std::string& text : TextsOfFailures())
    EXPECT_TRUE(std::ranges::any_of(
        explained, [&](const std::string& part) { return text.find(part) != text.npos; }))
        << "no row of docs/troubleshooting.md has a part of: " << text;
}

TEST(Troubleshooting, TextsExist) {
  const std::string sources =
      Sources(SERVER_FOLDER) + Sources(LIBRARY_SOURCES) + Sources(TOOL_SOURCES);
  const std::vector<std::string> texts = ExplainedTexts();
  ASSERT_GE(texts.size(), 100u);
  for (std::string text : texts) {
    if (text.starts_with('[')) continue;  // the numbers of a message, see above
    // A status is a number in a table.
    text = std::regex_replace(text, std::regex("^HTTP ([0-9]+)$"), "{$1, L\"");
    EXPECT_TRUE(sources.find(text) != std::string::npos) << text;
  }
  EXPECT_EQ(std::set<std::string>(texts.begin(), texts.end()).size(), texts.size());
}

}  // namespace
}  // namespace tool
