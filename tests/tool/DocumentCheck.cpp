#include "tool/DocumentCheck.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>

#include "support/ChildProcess.h"
#include "support/TempDir.h"

namespace tool {
namespace {

constexpr std::string_view kCommands[] = {"sources", "tree", "cube",   "import",
                                          "check",   "diff", "servers"};
constexpr std::string_view kFlags[] = {"--quiet", "--verbose", "--sort",
                                       "--help",  "-h",        "--version"};
// Longer documents differ from shorter ones only in the number of their elements.
constexpr std::size_t kMaxBytes = std::size_t{16} << 20;

/// The values that matter of a command line.
struct CallParts {
  std::string command, format, output;
};

CallParts PartsOf(const Arguments& call) {
  CallParts parts;
  for (std::size_t i = 0; i < call.size(); ++i) {
    const std::string& word = call[i];
    const std::size_t equals = word.find('=');
    const bool isOption = word.size() > 1 && word[0] == '-';
    const bool isFlag = std::ranges::count(kFlags, word) > 0;
    if (!isOption) {
      if (parts.command.empty() && std::ranges::count(kCommands, word) > 0) parts.command = word;
      continue;
    }
    if (isFlag) continue;
    const bool isLong = word.starts_with("--");
    const std::string name = isLong ? word.substr(0, equals) : word.substr(0, 2);
    std::string value;
    if (isLong && equals != word.npos)
      value = word.substr(equals + 1);
    else if (!isLong && word.size() > 2)
      value = word.substr(2);
    else if (i + 1 < call.size())
      value = call[++i];
    if (name == "--format") parts.format = value;
    if (name == "-o" || name == "--output") parts.output = value;
  }
  for (const std::string extension : {"json", "ndjson"})
    if (parts.format.empty() && parts.output.ends_with("." + extension)) parts.format = extension;
  return parts;
}

/// The documents of this test program, written to a file at once: they may be many.
class Collection : public testing::Environment {
 public:
  void Add(const CollectedDocument& document) {
    const std::lock_guard lock(m_mutex);
    if (!m_known.insert(std::hash<std::string>()(document.schema + document.text)).second) return;
    if (!m_folder) m_folder.emplace();
    if (document.text.size() > kMaxBytes) {
      ++m_tooLong;
      return;
    }
    // Fast, because the caller may measure the time of the call.
    const std::string file = m_folder->Path() / std::to_string(m_known.size());
    std::ofstream(file, std::ios::binary) << document.text;
    std::ofstream(Index(), std::ios::app)
        << Json{{"schema", document.schema}, {"call", document.call}, {"file", file}}.dump(
               -1, ' ', true, Json::error_handler_t::replace)
        << '\n';
  }

  void TearDown() override {
    if (m_known.empty()) return;
    if (!CanValidate()) {
      std::puts("skipped: the JSON Schema validator is missing, run tests/node/install");
      return;
    }
    const support::ChildResult result =
        support::RunChild("/bin/sh", {"-c", "exec node '" VALIDATE "' '" VALIDATOR_FOLDER
                                            "' '" SCHEMA_FOLDER "' < '" +
                                                Index() + "'"});
    EXPECT_EQ(result.exitStatus, 0) << result.out << result.err;
    std::printf("validated against the JSON schemas: %zu different documents%s\n", m_known.size(),
                m_tooLong > 0
                    ? (", without " + std::to_string(m_tooLong) + " very long ones").c_str()
                    : "");
    m_folder.reset();
  }

 private:
  std::string Index() const { return m_folder->Path() / "index"; }

  std::mutex m_mutex;  // tests run the tool on several threads
  std::optional<support::TempDir> m_folder;
  std::set<std::size_t> m_known;
  std::size_t m_tooLong = 0;
};

/// Owned by GoogleTest.
Collection& Documents() {
  static auto* const collection =
      dynamic_cast<Collection*>(testing::AddGlobalTestEnvironment(new Collection()));
  return *collection;
}
// GoogleTest needs the environment before it runs tests.
[[maybe_unused]] const Collection& g_documents = Documents();

void AddText(const CallParts& parts, const std::string& call, const Outcome& outcome,
             const std::string& text) {
  // After a usage error, the command may be another word than the first that looks like one.
  constexpr int kUsageError = 2;
  const std::string document = parts.command.empty() ? "usage-error" : parts.command;
  if (parts.format != "ndjson")
    return Documents().Add({outcome.status == kUsageError ? "any" : document, call, text});
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) Documents().Add({"import-lines", call, line});
}

}  // namespace

void CollectDocuments(const Arguments& call, const Outcome& outcome) {
  const CallParts parts = PartsOf(call);
  if (parts.format != "json" && parts.format != "ndjson") return;
  const bool isTruncated = outcome.err.find("truncated") != std::string::npos ||
                           outcome.err.find("cannot be written") != std::string::npos;
  if (outcome.signal != 0 || outcome.status < 0) return;
  std::string words;
  for (const std::string& word : call) words += (words.empty() ? "" : " ") + word;
  if (outcome.out.starts_with('{') && !isTruncated) AddText(parts, words, outcome, outcome.out);
  const bool isReplaced = outcome.status == 0 || outcome.status == 3;
  const std::string file = isReplaced ? parts.output : parts.output + ".partial";
  std::error_code error;
  if (parts.output.empty() || !std::filesystem::is_regular_file(file, error)) return;
  const std::string text = support::ReadFile(file);
  if (text.starts_with('{')) AddText(parts, words, outcome, text);
}

std::string Validate(const std::vector<CollectedDocument>& documents, bool damages) {
  if (!CanValidate()) throw std::runtime_error("the validator is not installed");
  const support::TempDir folder;
  const std::string file = folder.Path() / "documents";
  std::ofstream lines(file);
  for (const CollectedDocument& each : documents)
    lines << Json{{"schema", each.schema}, {"call", each.call}, {"document", each.text}}.dump()
          << '\n';
  lines.close();
  const support::ChildResult result = support::RunChild(
      "/bin/sh",
      {"-c", std::string("exec node '" VALIDATE "' '" VALIDATOR_FOLDER "' '" SCHEMA_FOLDER "' ") +
                 (damages ? "--damage" : "") + " < '" + file + "'"});
  return result.exitStatus == 0 ? std::string() : result.out + result.err;
}

bool CanValidate() {
  static const bool can = std::filesystem::exists(VALIDATOR_FOLDER "/node_modules/ajv") &&
                          support::RunChild("/bin/sh", {"-c", "node --version"}).exitStatus == 0;
  if (!can && std::getenv("XMLA_REQUIRE_ALL_TESTS"))
    ADD_FAILURE() << "the JSON Schema validator is missing; run tests/node/install";
  return can;
}

}  // namespace tool
