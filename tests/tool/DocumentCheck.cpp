#include "tool/DocumentCheck.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <stdexcept>

#include "support/ChildProcess.h"
#include "support/TempDir.h"

namespace tool {
namespace {

constexpr std::string_view kCommands[] = {"sources", "tree", "cube",   "import",
                                          "check",   "diff", "servers"};
constexpr std::string_view kFlags[] = {"--quiet", "--verbose", "--sort",
                                       "--help",  "-h",        "--version"};

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

/// The documents of this test program, in files of a folder: they may be many. Copying them is all
/// that happens at once, because the test may measure the time of the call.
class Collection : public testing::Environment {
 public:
  void AddText(const std::string& schema, const std::string& call, const std::string& text) {
    const std::lock_guard lock(m_mutex);
    std::ofstream(NewFile(schema, call), std::ios::binary) << text;
  }
  void AddFile(const std::string& schema, const std::string& call, const std::string& file) {
    const std::lock_guard lock(m_mutex);
    std::filesystem::copy_file(file, NewFile(schema, call));
  }

  void TearDown() override {
    if (m_count == 0) return;
    if (!CanValidate()) {
      std::puts("skipped: the JSON Schema validator is missing, run tests/node/install");
      return;
    }
    const support::ChildResult result =
        support::RunChild("/bin/sh", {"-c", "exec node '" VALIDATE "' '" VALIDATOR_FOLDER
                                            "' '" SCHEMA_FOLDER "' < '" +
                                                Index() + "'"});
    EXPECT_EQ(result.exitStatus, 0) << result.out << result.err;
    std::printf("JSON documents against their schemas: %s", result.out.c_str());
    m_folder.reset();
  }

 private:
  std::string Index() const { return m_folder->Path() / "index"; }
  /// The name of a file for the next document, which is added to the index.
  std::string NewFile(const std::string& schema, const std::string& call) {
    if (!m_folder) m_folder.emplace();
    std::string file = m_folder->Path() / std::to_string(++m_count);
    std::ofstream(Index(), std::ios::app)
        << Json{{"schema", schema}, {"call", call}, {"file", file}}.dump(
               -1, ' ', true, Json::error_handler_t::replace)
        << '\n';
    return file;
  }

  std::mutex m_mutex;  // tests run the tool on several threads
  std::optional<support::TempDir> m_folder;
  std::size_t m_count = 0;
};

/// Owned by GoogleTest.
Collection& Documents() {
  static auto* const collection =
      dynamic_cast<Collection*>(testing::AddGlobalTestEnvironment(new Collection()));
  return *collection;
}
// GoogleTest needs the environment before it runs tests.
[[maybe_unused]] const Collection& g_documents = Documents();

/// The schema of the documents of a call.
std::string SchemaOf(const CallParts& parts, const Outcome& outcome) {
  constexpr int kUsageError = 2;
  if (parts.format == "ndjson") return "import-lines";
  // After a usage error, the command may be another word than the first that looks like one.
  if (outcome.status == kUsageError) return "any";
  return parts.command.empty() ? "usage-error" : parts.command;
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
  const std::string schema = SchemaOf(parts, outcome);
  if (outcome.out.starts_with('{') && !isTruncated) Documents().AddText(schema, words, outcome.out);
  const bool isReplaced = outcome.status == 0 || outcome.status == 3;
  const std::string file = isReplaced ? parts.output : parts.output + ".partial";
  std::error_code error;
  if (parts.output.empty() || !std::filesystem::is_regular_file(file, error)) return;
  if (std::ifstream(file).peek() == '{') Documents().AddFile(schema, words, file);
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
