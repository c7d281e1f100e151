// Every relative link in the documents leads somewhere, and every document can be reached.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <set>
#include <sstream>

#include "support/TempDir.h"
#include "tool/ProjectDocuments.h"

namespace tool {
namespace {

namespace fs = std::filesystem;

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
