// Every call of the tool in the documents can be parsed, and every relative link leads somewhere.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "CommandTable.h"
#include "call/Arguments.h"
#include "results/Formats.h"
#include "support/TempDir.h"

namespace tool {
namespace {

namespace fs = std::filesystem;

/// All documents of the project.
std::vector<fs::path> Documents() {
  std::vector<fs::path> documents;
  for (const char* const folder : {".", "docs", "tests", "tests/real"})
    for (const auto& entry : fs::directory_iterator(fs::path(PROJECT_FOLDER) / folder))
      if (entry.path().extension() == ".md") documents.push_back(entry.path().lexically_normal());
  return documents;
}

/// Words of a shell command. A backslash has no meaning in single quotes.
std::vector<std::string> WordsOfCall(const std::string& command) {
  std::vector<std::string> words;
  std::string word;
  char quote = 0;
  bool hasWord = false;
  for (const char c : command + " ") {
    if (quote != 0 ? c == quote : c == '\'' || c == '"') {
      quote = quote != 0 ? char{0} : c;
      hasWord = true;
    } else if (c != ' ' || quote != 0) {
      word += c;
      hasWord = true;
    } else if (hasWord) {
      words.push_back(std::exchange(word, {}));
      hasWord = false;
    }
  }
  return words;
}

/// The calls in code, in lines of their own or within a text. What a shell adds is left out: a
/// prompt, and what follows a pipe, a redirection or the call.
std::vector<std::string> CallsIn(std::string text) {
  text = std::regex_replace(text, std::regex("\\\\\n +"), "");  // continued lines
  std::vector<std::string> code;
  const std::regex line("(?:^|\n)(?: {4}(?:\\$ )?|\\$ )?((?:build/bin/)?xmla-import [^\n]*)");
  // A command alone is a name in a sentence, not a call.
  const std::regex span("`(?:build/bin/)?(xmla-import (?![a-z]+`)[^`]+)`");
  for (const std::regex& pattern : {line, span})
    for (std::sregex_iterator each(text.begin(), text.end(), pattern), end; each != end; ++each)
      code.push_back((*each)[1]);
  std::vector<std::string> calls;
  for (std::string& call : code) {
    std::ranges::replace(call, '\n', ' ');
    call = std::regex_replace(call, std::regex("(\\)| [|&>]| [0-9]>|;( |$)).*$"), "");
    // Words in capitals stand for others. Square brackets enclose what may be left out.
    for (const auto& [name, example] : std::map<std::string, std::string>{
             {"COMMAND", "tree"}, {"TOPIC", "formats"}, {"SHELL", "bash"}, {"N", "4"}})
      call = std::regex_replace(call, std::regex(" " + name + "(?= |$)"), " " + example);
    if (call.find('[') == call.npos && call.starts_with("xmla-import ")) calls.push_back(call);
    if (call.starts_with("build/bin/")) calls.push_back(call.substr(sizeof "build/bin/" - 1));
  }
  return calls;
}

TEST(Documents, CallsAreValid) {
  int count = 0;
  for (const fs::path& document : Documents())
    for (const std::string& call : CallsIn(support::ReadFile(document))) {
      ++count;
      const std::vector<std::string> words = WordsOfCall(call);
      std::vector<const char*> argv;
      for (const std::string& word : words) argv.push_back(word.c_str());
      ::Arguments arguments;
      EXPECT_NO_THROW(ParseArguments(static_cast<int>(argv.size()), argv.data(), CommandForms(),
                                     Formats(), arguments))
          << document << ": " << call;
    }
  EXPECT_GE(count, 45);
}

/// Without the code in it, in which brackets are no links.
std::string WithoutCode(const std::string& text) {
  std::string kept;
  std::istringstream lines(text);
  bool isCode = false;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("```")) isCode = !isCode;
    if (!isCode && !line.starts_with("    "))
      kept += std::regex_replace(line, std::regex("`[^`]*`"), "code") + '\n';
  }
  return kept;
}

/// The anchors that forges give to the headings of a document.
std::set<std::string> Anchors(const fs::path& document) {
  std::set<std::string> anchors;
  std::istringstream lines(support::ReadFile(document));
  bool isCode = false;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("```")) isCode = !isCode;
    if (isCode || !line.starts_with('#')) continue;
    std::string anchor;
    for (char c : line.substr(std::min(line.find(' ') + 1, line.size()))) {
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
      if (c == ' ') anchor += '-';
      if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_') anchor += c;
    }
    const std::string first = anchor;
    for (int i = 1; !anchors.insert(anchor).second; ++i) anchor = first + '-' + std::to_string(i);
  }
  return anchors;
}

TEST(Documents, LinksLeadSomewhere) {
  int count = 0;
  const std::regex link("\\]\\(([^)\\s]+)\\)|(?:src|href)=\"([^\"]+)\"");
  for (const fs::path& document : Documents()) {
    const std::string text = WithoutCode(support::ReadFile(document));
    for (std::sregex_iterator each(text.begin(), text.end(), link), end; each != end; ++each) {
      const std::string target = (*each)[1].matched ? (*each)[1] : (*each)[2];
      if (target.find("://") != target.npos) continue;
      ++count;
      const std::size_t hash = std::min(target.find('#'), target.size());
      const fs::path file = hash == 0 ? document : document.parent_path() / target.substr(0, hash);
      ASSERT_TRUE(fs::exists(file)) << document << ": " << target;
      if (hash < target.size()) {
        EXPECT_TRUE(Anchors(file).contains(target.substr(hash + 1))) << document << ": " << target;
      }
    }
  }
  EXPECT_GE(count, 50);
}

/// A new document is found from the README, directly or through others.
TEST(Documents, CanBeReachedFromTheReadme) {
  std::set<fs::path> reached;
  std::vector<fs::path> open{fs::path(PROJECT_FOLDER) / "README.md"};
  const std::regex link("\\]\\(([^)#\\s]+\\.md)(?:#[^)]*)?\\)");
  while (!open.empty()) {
    const fs::path document = open.back().lexically_normal();
    open.pop_back();
    if (!reached.insert(document).second) continue;
    const std::string text = support::ReadFile(document);
    for (std::sregex_iterator each(text.begin(), text.end(), link), end; each != end; ++each)
      if (const fs::path next = document.parent_path() / (*each)[1].str(); fs::exists(next))
        open.push_back(next);
  }
  for (const fs::path& document : Documents())
    EXPECT_TRUE(reached.contains(document)) << document << " has no link to it";
}

}  // namespace
}  // namespace tool
