// Every call in the documents runs: those of the tool, which can also be parsed, against the sample
// provider; those of the sample provider until it serves.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <regex>
#include <set>

#include "CommandTable.h"
#include "SampleProvider.h"
#include "call/Arguments.h"
#include "results/Formats.h"
#include "support/Certificate.h"
#include "support/ChildProcess.h"
#include "support/TempDir.h"
#include "tool/ProjectDocuments.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

namespace fs = std::filesystem;

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
  const std::regex line(
      "(?:^|\n)(?: {4}(?:\\$ )?|\\$ )?((?:xmla-import|xmla-sample-provider) [^\n]*)");
  // A command alone is a name in a sentence, not a call.
  const std::regex span("`((?:xmla-import|xmla-sample-provider) (?![a-z]+`)[^`]+)`");
  for (const std::regex& pattern : {line, span})
    for (std::sregex_iterator each(text.begin(), text.end(), pattern), end; each != end; ++each)
      code.push_back((*each)[1]);
  std::vector<std::string> calls;
  for (std::string& call : code) {
    std::ranges::replace(call, '\n', ' ');
    call = std::regex_replace(call, std::regex("(\\)| [|&>]| [0-9]>|;( |$)).*$"), "");
    // Words in capitals or in square brackets stand for others.
    for (const auto& [name, example] :
         std::map<std::string, std::string>{{"COMMAND", "tree"},
                                            {"TOPIC", "formats"},
                                            {"SHELL", "bash"},
                                            {"N", "4"},
                                            {"\\[options\\]", "--sample tamarind"},
                                            {"\\[command options\\]", "--quiet"}})
      call = std::regex_replace(call, std::regex(" " + name + "(?= |$)"), " " + example);
    calls.push_back(call);
  }
  return calls;
}

bool IsCallOfTool(const std::string& call) { return call.starts_with("xmla-import "); }

TEST(Documents, CallsAreValid) {
  int count = 0;
  for (const fs::path& document : Documents())
    for (const std::string& call : CallsIn(support::ReadFile(document))) {
      if (!IsCallOfTool(call)) continue;
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

constexpr int kNotRun = -1;
/// Calls that are not run, or do not end with status 0. Each is recognised by a part.
struct Exception {
  const char* part;
  int status;
  const char* reason;
};
constexpr Exception kExceptions[] = {
    {"--proxy http", kNotRun, "needs a proxy"},
    {"xmla-import cube --jobs 4", kNotRun, "mentions the option; it names no cube"},
    {"--catalog Nowhere", 2, "shows an error"},
    {"-o failed.json", 3, "shows errors of cubes"},
};

/// A folder with the files that the documents mention, a server file with the service that they
/// mention, and URLs of the sample provider in place of those in the documents.
class DocumentCalls : public testing::Test {
 protected:
  DocumentCalls() {
    const Certificate certificate("IP:127.0.0.1", kDay);
    const std::map<std::string, std::string> files{
        {"ann.p12", certificate.PKCS12("secret")},
        {"p12-password.txt", "secret\n"},
        {"ann.pem", support::ReadFile(certificate.Path())},
        {"ann.key", certificate.Key()},
        {"corp.pem", support::ReadFile(certificate.Path())},
        {"token.txt", "abc\n"},
        {"servers.toml", "[sales]\nurl = '" + Url("") + "'\n"},
    };
    for (const auto& [name, content] : files) std::ofstream(m_folder.Path() / name) << content;
    m_options.environment = {{"XMLA_IMPORT_SERVERS", m_folder.Path() / "servers.toml"},
                             {"XMLA_IMPORT_PASSWORD", "secret"}};
    m_options.prepare = [folder = m_folder.Path().string()] {
      if (chdir(folder.c_str()) != 0) _exit(1);
    };
  }

  /// The kind that the URL is about.
  std::string Url(const std::string& documented) const {
    const auto contains = [&](const char* part) {
      return documented.find(part) != documented.npos;
    };
    return m_provider.Url(contains("/sap/")       ? sample::Kind::kSapBw
                          : contains("tamarind.") ? sample::Kind::kTamarind
                                                  : sample::Kind::kAnalysisServices);
  }

  Outcome Run(std::vector<std::string> words) const {
    words.erase(words.begin());
    for (std::size_t i = 0; i < words.size(); ++i) {
      const std::string option = i > 0 ? words[i - 1] : "";
      if (option == "--url") words[i] = Url(words[i]);
      if (option == "--catalog" && words[i] == "C") words[i] = "Larkspur Retail";
      if (option == "--cube" && words[i] == "Q") words[i] = "Sales";
      if (!words[i].starts_with("~/")) continue;
      words[i].replace(0, 1, m_folder.Path());
      fs::create_directories(fs::path(words[i]).parent_path());
    }
    return RunTool(words, m_options);
  }

  /// Starts the sample provider, waits for its first address, and ends it. The status is 0 if it
  /// then ends well.
  static Outcome RunProvider(std::vector<std::string> words) {
    constexpr const char* kScript = R"x(
      coproc provider { exec "$0" "$@"; }
      pid=$provider_PID
      read -r -t 30 address <&"${provider[0]}" && [[ $address == http://127.0.0.1:* ]] || exit 1
      kill "$pid" && wait "$pid")x";
    words.front() = SAMPLE_PROVIDER;
    words.insert(words.begin(), {"-c", kScript});
    const support::ChildResult result = support::RunChild("/bin/bash", words);
    Outcome outcome;
    outcome.status = result.exitStatus;
    outcome.err = result.err;
    return outcome;
  }

  const support::TempDir m_folder;
  const sample::Provider m_provider;
  Options m_options;
};

TEST_F(DocumentCalls, Run) {
  for (const char* const document : {"last-week.json", "today.json"})
    ASSERT_EQ(Run({"xmla-import", "--server", "sales", "import", "-o", document}).status, 0);
  int count = 0;
  int countOfProvider = 0;
  std::set<const Exception*> used;
  for (const fs::path& document : Documents())
    for (const std::string& call : CallsIn(support::ReadFile(document))) {
      const auto* const exception = std::ranges::find_if(
          kExceptions, [&](const auto& each) { return call.find(each.part) != call.npos; });
      const bool isException = exception != std::end(kExceptions);
      if (isException) used.insert(exception);
      const int expected = isException ? exception->status : 0;
      if (expected == kNotRun) continue;
      ++(IsCallOfTool(call) ? count : countOfProvider);
      const std::vector<std::string> words = WordsOfCall(call);
      const Outcome outcome = IsCallOfTool(call) ? Run(words) : RunProvider(words);
      EXPECT_EQ(outcome.status, expected) << document << ": " << call << "\n" << outcome.err;
    }
  EXPECT_GE(count, 45);
  EXPECT_GE(countOfProvider, 2);
  // An exception that nothing needs any more is removed.
  for (const Exception& each : kExceptions)
    EXPECT_TRUE(used.contains(&each)) << each.part << ": " << each.reason;
}

}  // namespace
}  // namespace tool
