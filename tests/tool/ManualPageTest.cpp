// The manual pages: complete, correct for two formatters, and equal for equal sources.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <regex>
#include <sstream>

#include "CommandTable.h"
#include "call/CommonOptions.h"
#include "call/Help.h"
#include "results/Formats.h"
#include "support/ChildProcess.h"
#include "support/TempDir.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

using testing::HasSubstr;

constexpr const char* kPages[] = {"xmla-import.1", "xmla-import-servers.5",
                                  "xmla-sample-provider.1"};
constexpr const char* kBuildTime = "1700000000";  // 2023-11-14

support::ChildResult Shell(const std::string& command, const std::string& file) {
  return support::RunChild("/bin/sh", {"-c", command, file},
                           {{"MANWIDTH", "80"}, {"LC_ALL", "C.UTF-8"}, {"PAGER", "cat"}});
}

class ManualPage : public testing::Test {
 protected:
  void SetUp() override {
    if (Shell("command -v groff && command -v mandoc && command -v man", "sh").exitStatus == 0)
      return;
    const char* const missing = "the packages groff-base, mandoc and man-db are missing";
    if (std::getenv("XMLA_REQUIRE_ALL_TESTS")) FAIL() << missing;
    GTEST_SKIP() << missing;
  }

  /// The page as a terminal of 80 columns shows it.
  static std::string Shown(const std::string& page) {
    const support::ChildResult run = Shell("groff -man -Tutf8 -rLL=78n -P-c -P-b -P-u \"$0\"",
                                           std::filesystem::path(MANUAL_FOLDER) / page);
    EXPECT_EQ(run.exitStatus, 0) << run.err;
    return run.out;
  }

  static void Make(const std::filesystem::path& folder, const char* date) {
    const support::ChildResult run = support::RunChild(
        "/usr/bin/env",
        {"-u", "SOURCE_DATE_EPOCH", std::string("IGNORED=") + date,
         std::string(*date ? "SOURCE_DATE_EPOCH=" : "NO_DATE=") + date, MAKE_MANUAL_PAGES, folder});
    ASSERT_EQ(run.exitStatus, 0) << run.err;
  }
};

TEST_F(ManualPage, NamesEveryCommandOptionAndFormat) {
  const std::string page = Shown("xmla-import.1");
  const auto expectEntry = [&](const std::string& name) {
    EXPECT_TRUE(std::regex_search(page, std::regex("\n +(-., )?" + name + "( |\n)"))) << name;
  };
  for (const CommandForm& form : CommandForms()) {
    expectEntry(form.name);
    for (const CommandOption& option : form.options) expectEntry(option.name);
  }
  for (const CommandOption& option : CommonOptions()) expectEntry(option.name);
  for (const std::string& format : FormatNames()) expectEntry(format);
  for (const char* const other : {"--help", "--version", "MORVEN_BI_XMLA_HTTP_TIMEOUT", "130"})
    expectEntry(other);
  for (const std::string& topic : HelpTopics()) EXPECT_THAT(page, HasSubstr(topic));
}

TEST_F(ManualPage, NamesEveryKeyOfTheServerFile) {
  const std::string page = Shown("xmla-import-servers.5");
  for (const CommandOption& option : CommonOptions()) {
    if (!IsServerKey(option)) continue;
    const std::string key = std::string(option.name).substr(2);
    EXPECT_TRUE(std::regex_search(page, std::regex("\n +" + key + " [A-Z]+"))) << key;
  }
  for (const char* const fact :
       {"password-command LIST", "url (required)", "[\"test.sales\"]", "only for the user there",
        "within 120 seconds", "home directory",
        // Not "default", because a variable overrides the file.
        "password-file FILE file whose first line is the password, - is standard input "
        "[XMLA_IMPORT_PASSWORD]",
        "overridden by the option of the same name, and by a variable in brackets"})
    EXPECT_THAT(std::regex_replace(page, std::regex("\\s+"), " "), HasSubstr(fact));
  EXPECT_THAT(page, testing::Not(HasSubstr("[XMLA_IMPORT_URL]")));  // --server excludes it
  EXPECT_THAT(page, HasSubstr("url = \"https://olap.example.com/olap/msmdpump.dll\""));
}

TEST_F(ManualPage, NamesEveryOptionAndMoodOfTheSampleProvider) {
  const std::string page = Shown("xmla-sample-provider.1");
  const std::string help = support::RunChild(SAMPLE_PROVIDER, {"--help"}).out;
  const std::regex name("\n *([a-z0-9-]+(:N)?|--[a-z-]+|-h,--help) ");
  int found = 0;
  for (std::sregex_iterator each(help.begin(), help.end(), name), end; each != end; ++each) {
    ++found;
    EXPECT_THAT(page, HasSubstr("       " + (*each)[1].str()));
  }
  EXPECT_GE(found, 30);
  for (const char* const fact : {"http://127.0.0.1:PORT/KIND", "In parentheses: the value",
                                 "?mood=MOOD", "0, the default, is any"})
    EXPECT_THAT(page, HasSubstr(fact));
}

TEST_F(ManualPage, IsCorrectForTheFormatters) {
  const support::TempDir folder;
  Make(folder.Path(), kBuildTime);
  for (const char* const page : kPages) {
    const std::string file = folder.Path() / page;
    for (const char* const command :
         {"groff -man -ww -Tutf8 -z \"$0\" 2>&1", "mandoc -T lint -W style \"$0\"",
          "MANROFFOPT=-ww man --warnings -l \"$0\" 2>&1 >/dev/null"}) {
      const support::ChildResult run = Shell(command, file);
      EXPECT_EQ(run.exitStatus, 0) << command << ' ' << page;
      EXPECT_EQ(run.out + run.err, "") << command << ' ' << page;
    }
    // A hyphen that is not escaped may be shown as another character, which no call accepts.
    const std::string text = support::ReadFile(file);
    EXPECT_FALSE(std::regex_search(text.substr(text.find('\n')), std::regex("[^\\\\]-"))) << page;
    EXPECT_THAT(Shell("lexgrog \"$0\"", file).out,
                HasSubstr(std::filesystem::path(page).stem().string() + " - "));
  }
}

TEST_F(ManualPage, FitsATerminalOf80Columns) {
  for (const char* const page : kPages) {
    std::istringstream lines(Shown(page));
    for (std::string line; std::getline(lines, line);) {
      const auto width = std::ranges::count_if(
          line, [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; });
      EXPECT_LE(width, 80) << page << ": " << line;
      EXPECT_FALSE(line.ends_with("\u2010")) << page << " breaks a name: " << line;
    }
  }
}

TEST_F(ManualPage, IsEqualForEqualSources) {
  const support::TempDir one, other, undated;
  Make(one.Path(), kBuildTime);
  Make(other.Path(), kBuildTime);
  Make(undated.Path(), "");
  for (const char* const page : kPages) {
    const std::string text = support::ReadFile(one.Path() / page);
    EXPECT_EQ(text, support::ReadFile(other.Path() / page));
    EXPECT_THAT(text, HasSubstr("\"2023-11-14\""));
    EXPECT_THAT(support::ReadFile(undated.Path() / page).substr(0, 50), HasSubstr(" \"\" "));
  }
}

TEST_F(ManualPage, WritingToAMissingFolderIsAnError) {
  const support::ChildResult run = support::RunChild(MAKE_MANUAL_PAGES, {"/does/not/exist"});
  EXPECT_EQ(run.exitStatus, 1);
  EXPECT_THAT(run.err, HasSubstr("cannot write /does/not/exist/xmla-import.1"));
}

}  // namespace
}  // namespace tool
