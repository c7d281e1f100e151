// Completes calls in real shells: bash and zsh on a terminal, and fish.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>

#include "CommandTable.h"
#include "call/Arguments.h"
#include "call/CommonOptions.h"
#include "call/Help.h"
#include "call/OptionValue.h"
#include "results/Formats.h"
#include "support/ChildProcess.h"
#include "support/TempDir.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;
using testing::UnorderedElementsAreArray;

using Texts = std::vector<std::string>;

constexpr const char* kShells[] = {"bash", "zsh", "fish"};
constexpr const char* kCanary = "c4nary";

/// What a shell makes of a line and a tab.
struct Completed {
  Texts offered;
  Texts words;  ///< of the line after the tab
  std::string shown;
};

class Completion : public testing::Test {
 protected:
  void SetUp() override {
    const bool can =
        support::RunChild("/bin/sh", {"-c", "bash --version && zsh --version && fish --version"})
            .exitStatus == 0;
    if (can) return WriteFiles();
    const char* const missing = "the packages zsh and fish are missing";
    if (std::getenv("XMLA_REQUIRE_ALL_TESTS")) FAIL() << missing;
    GTEST_SKIP() << missing;
  }

  /// Completes each line.
  std::vector<Completed> Complete(const std::string& shell, const Texts& lines) const {
    const std::filesystem::path input = m_folder.Path() / "lines";
    std::ofstream(input) << Json(lines);
    const std::string tools = std::filesystem::path(ToolPath()).parent_path();
    const support::ChildResult run =
        support::RunChild("/bin/sh",
                          {"-c", "exec /usr/bin/python3 \"$0\" \"$1\" \"$2\" <\"$3\"", COMPLETE,
                           shell, m_folder.Path(), input},
                          {{"PATH", tools + ":" + std::getenv("PATH")},
                           {"XMLA_IMPORT_SERVERS", m_folder.Path() / "servers.toml"},
                           {"XMLA_IMPORT_PASSWORD", kCanary}});
    EXPECT_EQ(run.exitStatus, 0) << shell << ": " << run.err;
    EXPECT_THAT(run.out, Not(HasSubstr(kCanary)));
    std::vector<Completed> all;
    if (run.exitStatus == 0)
      for (const Json& each : Json::parse(run.out))
        all.push_back({each["offered"], each["words"], each["shown"]});
    all.resize(lines.size());
    return all;
  }

  const std::filesystem::path& Folder() const { return m_folder.Path(); }

 private:
  void WriteFiles() const {
    std::filesystem::create_directories(Folder() / "functions");
    std::filesystem::create_directories(Folder() / "files" / "logs");
    for (const auto& [shell, file] : {std::pair{"bash", "xmla-import.bash"},
                                      {"zsh", "functions/_xmla-import"},
                                      {"fish", "xmla-import.fish"}})
      ASSERT_EQ(RunTool({"completion", shell, "-o", Folder() / file}).status, 0);
    for (const char* const file : {"a file.pem", "old.json"})
      std::ofstream(Folder() / "files" / file) << "content";
    std::ofstream(Folder() / "servers.toml")
        << "[sales]\nurl = \"http://ann:" << kCanary
        << "@localhost/\"\npassword-command = [\"touch\", \"" << (Folder() / "ran").string()
        << "\"]\n[\"test server $(x)\"]\nurl = \"http://localhost/\"\n"
        << "['\"a\\b\"  ']\nurl = \"http://localhost/\"\n"
        << "[\"o'neil\"]\nurl = \"http://localhost/\"\n";
  }

  const support::TempDir m_folder;
};

/// "xmla-import COMMAND ..." or, without a command, "xmla-import ...".
std::string Line(std::string_view command, const std::string& rest) {
  return "xmla-import " + std::string(command) + (command.empty() ? "" : " ") + rest;
}

/// All options that the command takes.
std::vector<const CommandOption*> OptionsOf(const CommandForm& form) {
  std::vector<const CommandOption*> options;
  for (const CommandOption& option : form.options) options.push_back(&option);
  for (const CommandOption& option : CommonOptions())
    if (form.NeedsConnection(0) || option.part == OptionPart::kOther) options.push_back(&option);
  return options;
}

TEST_F(Completion, OffersEveryOptionOfEveryCommand) {
  std::vector<CommandForm> forms = CommandForms();
  forms.push_back({"", "", {}});  // no command yet
  Texts lines;
  for (const CommandForm& form : forms) lines.push_back(Line(form.name, "--"));
  for (const char* const shell : kShells) {
    const std::vector<Completed> completed = Complete(shell, lines);
    for (std::size_t i = 0; i < forms.size(); ++i) {
      Texts expected{"--help", "--version"};
      for (const CommandOption* const option : OptionsOf(forms[i]))
        expected.emplace_back(option->name);
      EXPECT_THAT(completed[i].offered, UnorderedElementsAreArray(expected))
          << shell << ": " << lines[i];
    }
  }
}

/// What the table says about the value of an option.
Texts AllowedValuesOf(const CommandOption& option, std::string_view command) {
  if (option.Stores(&::Arguments::format)) return NamesOf(Formats(), command);
  return option.values ? option.values() : Texts();
}

TEST_F(Completion, OffersTheValuesOfEveryOptionAndNothingElse) {
  Texts lines;
  std::vector<Texts> expected;
  for (const CommandForm& form : CommandForms())
    for (const CommandOption* const option : OptionsOf(form)) {
      const bool isListed = option->values || option->Stores(&::Arguments::format);
      // Common options behave alike in all commands, except the format.
      if (form.name != std::string_view("import") && !option->Stores(&::Arguments::format))
        continue;
      if (IsFlag(*option) || option->file != OptionFile::kNone ||
          option->Stores(&::Arguments::server))
        continue;
      lines.push_back(Line(form.name, std::string(option->name) + ' '));
      expected.push_back(AllowedValuesOf(*option, form.name));
      EXPECT_EQ(isListed, !expected.back().empty());
    }
  ASSERT_GE(lines.size(), 20u);
  for (const char* const shell : kShells) {
    const std::vector<Completed> completed = Complete(shell, lines);
    for (std::size_t i = 0; i < lines.size(); ++i) {
      // One value is put into the line at once, and a list begins with the first of them.
      EXPECT_THAT(completed[i].offered, UnorderedElementsAreArray(expected[i]))
          << shell << ": " << lines[i];
    }
  }
}

TEST_F(Completion, OffersCommandsTopicsAndShells) {
  Texts commands;
  for (const CommandForm& form : CommandForms()) commands.emplace_back(form.name);
  Texts topics = commands;
  for (const std::string& topic : HelpTopics()) topics.push_back(topic);
  commands.emplace_back("help");
  for (const char* const shell : kShells) {
    const std::vector<Completed> completed =
        Complete(shell, {"xmla-import ", "xmla-import --url http://h/ -o x ", "xmla-import help ",
                         "xmla-import completion ", "xmla-import tree ", "xmla-import help --"});
    EXPECT_THAT(completed[0].offered, UnorderedElementsAreArray(commands)) << shell;
    EXPECT_THAT(completed[1].offered, UnorderedElementsAreArray(commands)) << shell;
    EXPECT_THAT(completed[2].offered, UnorderedElementsAreArray(topics)) << shell;
    EXPECT_THAT(completed[3].offered, UnorderedElementsAre("bash", "zsh", "fish")) << shell;
    EXPECT_THAT(completed[4].offered, IsEmpty()) << shell;
    EXPECT_THAT(completed[5].offered, IsEmpty()) << shell;
  }
}

/// A line and the words that a tab makes of it.
struct Case {
  std::string line;
  std::vector<std::string> words;
};

const std::vector<Case> kCases = {
    {"xmla-import --samp", {"xmla-import", "--sample"}},
    {"xmla-import --sample=sap", {"xmla-import", "--sample=sap-bw"}},
    {"xmla-import --target tess", {"xmla-import", "--target", "tessera"}},
    {"xmla-import tree --format=m", {"xmla-import", "tree", "--format=markdown"}},
    {"xmla-import import --format n", {"xmla-import", "import", "--format", "ndjson"}},
    {"xmla-import --auth d", {"xmla-import", "--auth", "digest"}},
    {"xmla-import --auth ntlm,d", {"xmla-import", "--auth", "ntlm,digest"}},
    {"xmla-import --auth=ntlm,d", {"xmla-import", "--auth=ntlm,digest"}},
    {"xmla-import --auth ntlm,digest,n", {"xmla-import", "--auth", "ntlm,digest,negotiate"}},
    // An open quote.
    {"xmla-import --sample 's", {"xmla-import", "--sample", "sap-bw"}},
    {"xmla-import --sample \"s", {"xmla-import", "--sample", "sap-bw"}},
    {"xmla-import --sample='s", {"xmla-import", "--sample=sap-bw"}},
    {"xmla-import import --format \"n", {"xmla-import", "import", "--format", "ndjson"}},
    {"xmla-import --server 't", {"xmla-import", "--server", "test server $(x)"}},
    {"xmla-import --server \"t", {"xmla-import", "--server", "test server $(x)"}},
    {"xmla-import --server 'o", {"xmla-import", "--server", "o'neil"}},
    {"xmla-import --server \"o", {"xmla-import", "--server", "o'neil"}},
    {"xmla-import --server o", {"xmla-import", "--server", "o'neil"}},
    {"xmla-import --cert 'a", {"xmla-import", "--cert", "a file.pem"}},
    // The names of options and values before the word that is completed.
    {"xmla-import --source tree di", {"xmla-import", "--source", "tree", "diff"}},
    {"xmla-import --user=tree di", {"xmla-import", "--user=tree", "diff"}},
    {"xmla-import -o diff im", {"xmla-import", "-o", "diff", "import"}},
    {"xmla-import tree --user a --so", {"xmla-import", "tree", "--user", "a", "--so"}},
    // Files and folders.
    {"xmla-import --cert a", {"xmla-import", "--cert", "a file.pem"}},
    {"xmla-import --cert=a", {"xmla-import", "--cert=a file.pem"}},
    {"xmla-import --password-file a", {"xmla-import", "--password-file", "a file.pem"}},
    {"xmla-import -o o", {"xmla-import", "-o", "old.json"}},
    {"xmla-import --log ", {"xmla-import", "--log", "logs"}},
    {"xmla-import diff o", {"xmla-import", "diff", "old.json"}},
    {"xmla-import diff old.json a", {"xmla-import", "diff", "old.json", "a file.pem"}},
    {"xmla-import tree o", {"xmla-import", "tree", "o"}},
    // Servers.
    {"xmla-import --server s", {"xmla-import", "--server", "sales"}},
    {"xmla-import --server=s", {"xmla-import", "--server=sales"}},
    {"xmla-import --server t", {"xmla-import", "--server", "test server $(x)"}},
    // Nothing fits.
    {"xmla-import servers --u", {"xmla-import", "servers", "--u"}},
    {"xmla-import --user a", {"xmla-import", "--user", "a"}},
    {"xmla-import --passwordx", {"xmla-import", "--passwordx"}},
};

TEST_F(Completion, CompletesTheWord) {
  Texts lines;
  for (const Case& each : kCases) lines.push_back(each.line);
  for (const char* const shell : kShells) {
    const std::vector<Completed> completed = Complete(shell, lines);
    for (std::size_t i = 0; i < lines.size(); ++i)
      EXPECT_EQ(completed[i].words, kCases[i].words) << shell << ": " << lines[i];
  }
  EXPECT_FALSE(std::filesystem::exists(Folder() / "ran")) << "password-command has run";
}

TEST_F(Completion, OffersNoNameOfAListTwice) {
  for (const char* const shell : kShells) {
    Texts offered = Complete(shell, {"xmla-import --auth ntlm,digest,"})[0].offered;
    for (std::string& each : offered) each.erase(0, each.rfind(',') + 1);
    EXPECT_THAT(offered, UnorderedElementsAre("negotiate", "basic")) << shell;
  }
}

/// Zsh leaves the quote open, because the list may go on.
TEST_F(Completion, ContinuesAListBehindAnOpenQuote) {
  for (const char* const shell : {"bash", "fish"}) {
    const std::vector<Completed> completed =
        Complete(shell, {"xmla-import --auth \"ntlm,d", "xmla-import --auth='ntlm,d"});
    EXPECT_THAT(completed[0].words, ElementsAre("xmla-import", "--auth", "ntlm,digest"));
    EXPECT_THAT(completed[1].words, ElementsAre("xmla-import", "--auth=ntlm,digest"));
  }
}

/// Fish would repeat the description of the option.
TEST_F(Completion, InFishValuesHaveNoDescription) {
  for (const char* const option : {"--sample", "--auth", "--format", "--server", "--color"}) {
    const std::string shown =
        Complete("fish", {std::string("xmla-import ") + option + " "})[0].shown;
    EXPECT_THAT(shown, Not(IsEmpty())) << option;
    EXPECT_THAT(shown, Not(testing::ContainsRegex("\t.")));
  }
}

TEST_F(Completion, OffersTheNamesInTheServerFile) {
  for (const char* const shell : kShells) {
    const Texts offered = Complete(shell, {"xmla-import --server "})[0].offered;
    const bool isBash = shell == std::string_view("bash");
    const char* const quoted = isBash ? "test\\ server\\ \\$\\(x\\)" : "test server $(x)";
    const char* const apostrophe = isBash ? "o\\'neil" : "o'neil";
    const char* const marks = isBash ? R"(\"a\\b\"\ \ )" : R"("a\b"  )";
    EXPECT_THAT(offered, UnorderedElementsAre("sales", quoted, marks, apostrophe)) << shell;
  }
  std::filesystem::remove(Folder() / "servers.toml");
  for (const char* const shell : kShells)
    EXPECT_THAT(Complete(shell, {"xmla-import --server "})[0].offered, IsEmpty()) << shell;
}

TEST_F(Completion, ShowsWhatOptionsAndCommandsMean) {
  for (const char* const shell : {"zsh", "fish"}) {
    const std::vector<Completed> completed =
        Complete(shell, {"xmla-import cube --", "xmla-import "});
    for (const char* const text : {"number of requests at a time, 1 to 64", "the XMLA service",
                                   "trusted certificates, PEM, instead of the system's"})
      EXPECT_THAT(completed[0].shown, HasSubstr(text)) << shell;
    for (const char* const text : {"the provider's data sources", "one complete cube"})
      EXPECT_THAT(completed[1].shown, HasSubstr(text)) << shell;
  }
}

TEST_F(Completion, InZshTheScriptCanBeEvaluated) {
  std::filesystem::remove(Folder() / "functions" / "_xmla-import");
  EXPECT_THAT(Complete("zsh-eval", {"xmla-import tree --format=m"})[0].words,
              ElementsAre("xmla-import", "tree", "--format=markdown"));
}

TEST(CompletionCall, KnowsThreeShells) {
  const Outcome outcome = RunTool({"completion", "tcsh"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_THAT(outcome.err, HasSubstr("unknown shell \"tcsh\"; expected one of: bash, zsh, fish"));
  EXPECT_THAT(RunTool({"completion"}).err, HasSubstr("completion needs a shell: completion SHELL"));
  EXPECT_THAT(RunTool({"completion", "zsh", "--format", "json"}).err,
              HasSubstr("completion has no --format json"));
  EXPECT_THAT(RunTool({"completion", "zsh", "--sample", "sap-bw"}).err,
              HasSubstr("completion does not connect to a service; leave out --sample"));
}

}  // namespace
}  // namespace tool
