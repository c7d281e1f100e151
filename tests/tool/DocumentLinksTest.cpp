// Every relative link in the documents leads somewhere, every other link to one of a few hosts, and
// every document can be reached. The benchmarks that they name exist.

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

/// Without the code in it, in which brackets and addresses are no links. A piece of code in a
/// sentence can go on in the next line.
std::string WithoutCode(const std::string& text) {
  std::string kept;
  std::istringstream lines(text);
  bool isCode = false;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("```")) isCode = !isCode;
    if (!isCode && !line.starts_with("    ")) kept += line + '\n';
  }
  return std::regex_replace(kept, std::regex("`[^`\n]*(\n[^`\n]+)?`"), "code");
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

/// The hosts of all links to other places. Nothing is fetched: a test must not need the network.
constexpr const char* kHosts[] = {"duckdb.org", "keepachangelog.com", "semver.org"};

TEST(Documents, ExternalLinksLeadToKnownHosts) {
  std::set<std::string> used;
  const std::regex link("[A-Za-z]*:/+[^\\s)>\"]*");
  const std::regex valid("https://([a-z0-9.-]+)(/[A-Za-z0-9._~/#-]*)?");
  for (const fs::path& document : Documents()) {
    const std::string text = WithoutCode(support::ReadFile(document));
    for (std::sregex_iterator each(text.begin(), text.end(), link), end; each != end; ++each) {
      const std::string target = each->str();
      std::smatch parts;
      EXPECT_TRUE(std::regex_match(target, parts, valid)) << document << ": " << target;
      const std::string host = parts.size() > 1 ? parts[1].str() : "";
      EXPECT_TRUE(std::ranges::count(kHosts, host) > 0)
          << document << ": " << target << ": correct the host, or add it to kHosts";
      used.insert(host);
    }
  }
  for (const std::string host : kHosts)
    EXPECT_TRUE(used.contains(host)) << host << " has no link; remove it from kHosts";
}

/// The benchmarks that documents tell to run exist.
TEST(Documents, NameBenchmarksThatExist) {
  const auto found = [](const std::string& text, const std::regex& pattern) {
    std::set<std::string> names;
    for (std::sregex_iterator each(text.begin(), text.end(), pattern), end; each != end; ++each)
      names.insert((*each)[1]);
    return names;
  };
  const fs::path folder = fs::path(PROJECT_FOLDER) / "bench";
  std::set<std::string> known =
      found(support::ReadFile(folder / "Bench.cpp"), std::regex("\\{\"([a-z]+)\", +&"));
  known.insert("report");
  EXPECT_GE(known.size(), 10u);
  std::set<std::string> named;
  for (const fs::path& document : Documents())
    for (const std::string& name :
         found(support::ReadFile(document), std::regex("bench/run[ \n]([a-z]+)"))) {
      EXPECT_TRUE(known.contains(name)) << document << ": bench/run " << name;
      named.insert(name);
    }
  EXPECT_GE(named.size(), 4u);
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
