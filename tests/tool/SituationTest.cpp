// Compares the output of the tool in many situations with the files in
// tests/tool/expected: the complete help and checks, the beginning of other results, and all
// messages. The first line of a file is the call:
//
//     $ [NAME=VALUE]... xmla-import ARGUMENT...
//
// An argument or value may contain {analysis-services}, {sap-bw} and {tamarind}, the URLs of the
// sample provider, {locked}, a provider that requires the user ann with the password secret,
// {refused}, where nothing listens, {https-on-http}, {https-on-greeter} and {http-on-https}, where
// the other scheme is expected (the greeter does not wait for a request), and {folder}, a temporary
// folder. The name INPUT is standard input; TERMINAL=1 makes standard error a terminal. With
// XMLA_UPDATE_EXPECTED set, the test writes the files.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>

#include "SampleProvider.h"
#include "support/Certificate.h"
#include "support/TempDir.h"
#include "support/Text.h"
#include "support/WireServer.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

namespace fs = std::filesystem;

std::vector<fs::path> ExpectedFiles() {
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(EXPECTED_FOLDER)) files.push_back(entry.path());
  std::ranges::sort(files);
  return files;
}

/// Splits at spaces, except inside double quotes.
std::vector<std::string> Words(const std::string& line) {
  std::vector<std::string> words;
  bool isQuoted = false;
  bool isInWord = false;
  for (const char c : line) {
    if (c == '"') {
      isQuoted = !isQuoted;
    } else if (c == ' ' && !isQuoted) {
      isInWord = false;
      continue;
    }
    if (!isInWord) words.emplace_back();
    isInWord = true;
    if (c != '"') words.back() += c;
  }
  return words;
}

void Replace(std::string& text, const std::string& from, const std::string& to) {
  for (std::size_t at = text.find(from); at != text.npos; at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
}

class Situations : public testing::TestWithParam<fs::path> {
 protected:
  static sample::Options Locked() {
    sample::Options options;
    options.user = "ann";
    options.password = "secret";
    return options;
  }

  std::string Filled(std::string text) const {
    for (const auto& [name, value] : Places()) Replace(text, name, value);
    return text;
  }

  /// The output without what differs between runs.
  std::string Stable(std::string text) const {
    Replace(text, "\r\n", "\n");
    // The progress line depends on the time. What follows its last update counts.
    text = std::regex_replace(text, std::regex("\r\x1b\\[K[^\r\n]*(?=\r)"), "");
    Replace(text, "\r\x1b[K", "");
    Replace(text, m_folder.Path().string(), "{folder}");
    text = std::regex_replace(text, std::regex("127\\.0\\.0\\.1:[0-9]{4,5}"), "127.0.0.1:PORT");
    text = std::regex_replace(text, std::regex("OpenSSL/[0-9.]+"), "OpenSSL/VERSION");
    text = std::regex_replace(text, std::regex("[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}"), "TIME");
    return std::regex_replace(text, std::regex("\\b[0-9]+\\.[0-9]+ (s|ms)\\b"), "N $1");
  }

  std::string Run(const std::string& call) {
    std::vector<std::string> words = Words(Filled(call.substr(2)));
    Options options;
    while (words.front() != "xmla-import") {
      const std::size_t equals = words.front().find('=');
      const std::string name = words.front().substr(0, equals);
      const std::string value = words.front().substr(equals + 1);
      if (name == "TERMINAL")
        options.err = Stream::kTerminal;
      else if (name == "INPUT")
        options.input = value + "\n";
      else
        options.environment[name] = value;
      words.erase(words.begin());
    }
    words.erase(words.begin());
    const Outcome outcome = RunTool(words, options);
    std::string text = call + "\nstatus " + std::to_string(outcome.status) + "\n";
    if (!outcome.out.empty()) {
      const bool isWhole = call.find("help") != call.npos || call.find(" check") != call.npos;
      text += "--- standard output\n" + Stable(isWhole ? outcome.out : Beginning(outcome.out));
    }
    if (!outcome.err.empty()) text += "--- standard error\n" + Stable(outcome.err);
    for (const fs::path& file : m_folder.Files())
      text += "--- " + file.filename().string() + ": " +
              std::to_string(std::min<std::size_t>(support::ReadFile(file).size(), 1)) + "\n";
    return text;
  }

 private:
  std::vector<std::pair<std::string, std::string>> Places() const {
    return {{"{analysis-services}", m_open.Url(sample::Kind::kAnalysisServices)},
            {"{sap-bw}", m_open.Url(sample::Kind::kSapBw)},
            {"{tamarind}", m_open.Url(sample::Kind::kTamarind)},
            {"{locked}", m_locked.Url(sample::Kind::kSapBw)},
            {"{https-on-http}", "https" + m_open.Url(sample::Kind::kSapBw).substr(4)},
            {"{https-on-greeter}", "https://" + m_greeter.Authority() + "/xmla"},
            {"{http-on-https}", "http://" + m_tls.Authority() + "/xmla"},
            {"{refused}", "http://127.0.0.1:1/xmla"},
            {"{folder}", m_folder.Path().string()}};
  }

  /// At most 12 lines.
  static std::string Beginning(const std::string& text) {
    std::size_t end = 0;
    for (int i = 0; i < 12 && end != text.npos; ++i) end = text.find('\n', end ? end + 1 : 0);
    if (end == text.npos || end + 1 == text.size()) return text;
    return text.substr(0, end) + "\n[and so on]\n";
  }

  const sample::Provider m_open;
  const sample::Provider m_locked{Locked()};
  const Certificate m_certificate{"IP:127.0.0.1", 3600};
  const WireServer m_greeter{"HTTP/1.1 400 Bad Request\r\n\r\n", WireServer::Greets{}};
  const WireServer m_tls{[](loopback::Connection&, const loopback::Request&) {},
                         m_certificate.Context()};
  const support::TempDir m_folder;
};

TEST_P(Situations, HaveTheExpectedOutput) {
  const std::string expected = support::ReadFile(GetParam());
  const std::string found = Run(expected.substr(0, expected.find('\n')));
  if (std::getenv("XMLA_UPDATE_EXPECTED"))
    std::ofstream(GetParam()) << found;
  else
    EXPECT_EQ(found, expected);
}

TEST(Help, HasAtMost80Columns) {
  int files = 0;
  for (const fs::path& file : ExpectedFiles()) {
    if (!file.filename().string().starts_with("help-")) continue;
    ++files;
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);)
      EXPECT_LE(line.size(), 80u) << file << ": " << line;
  }
  EXPECT_GE(files, 10);
}

INSTANTIATE_TEST_SUITE_P(Tool, Situations, testing::ValuesIn(ExpectedFiles()),
                         [](const auto& each) {
                           std::string name = each.param.stem().string();
                           std::erase(name, '-');
                           return name;
                         });

}  // namespace
}  // namespace tool
