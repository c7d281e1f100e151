// Tests output for people: progress, exchanges, and untrusted names.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

#include "support/ChildProcess.h"
#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

// A C1 control (CSI), right-to-left override, line separator.
constexpr char kHostile[] =
    "a\xC2\x9B"
    "31mb\xE2\x80\xAE"
    "c\xE2\x80\xA8"
    "d";

ScriptedProvider::Script HostileSource() {
  ScriptedProvider::Script script = OneCube();
  script.rows["DISCOVER_DATASOURCES"] = {{{"DataSourceName", kHostile}}};
  return script;
}

TEST(Terminal, EscapesControlCharactersOfNames) {
  const ScriptedProvider provider(HostileSource());
  Options options;
  options.out = Stream::kTerminal;
  EXPECT_THAT(RunTool({"--url", provider.Url(), "sources"}, options).out,
              EndsWith("a\\u009B31mb\\u202Ec\\u2028d\r\n"));
}

TEST(Terminal, NamesInAPipeOrJsonAreUnchanged) {
  const ScriptedProvider provider(HostileSource());
  EXPECT_EQ(RunTool({"--url", provider.Url(), "sources"}).out, std::string(kHostile) + "\n");
  EXPECT_EQ(
      RunTool({"--url", provider.Url(), "sources", "--format", "json"}).Document()["dataSources"],
      Json({kHostile}));
}

TEST(Terminal, MessagesAreEscapedEverywhere) {
  ScriptedProvider::Script script = TwoSources();
  script.answer = [](const std::string&, const std::string&) {
    return support::FaultReply("Server", kHostile);
  };
  const ScriptedProvider provider(std::move(script));
  const Outcome outcome = RunTool({"--url", provider.Url(), "sources"});
  EXPECT_THAT(outcome.err, HasSubstr("a\\u009B31mb\\u202Ec"));
  EXPECT_THAT(outcome.err, Not(HasSubstr("\xC2\x9B")));
}

TEST(Progress, IsNotShownWithoutATerminal) {
  const ScriptedProvider provider(OneCube());
  EXPECT_EQ(RunTool({"--url", provider.Url(), "import"}).err, "");
}

TEST(Progress, CountsCubesOnATerminalAndClearsItsLine) {
  const ScriptedProvider provider(OneCube());
  Options options;
  options.err = Stream::kTerminal;
  const std::string shown = RunTool({"--url", provider.Url(), "import"}, options).err;
  EXPECT_THAT(shown, HasSubstr("0 of 1 cubes, "));
  EXPECT_THAT(shown, HasSubstr("1 of 1 cubes, "));
  EXPECT_THAT(shown, HasSubstr(" requests, "));
  EXPECT_THAT(shown, HasSubstr(", reading Unit"));
  EXPECT_THAT(shown, testing::MatchesRegex(
                         "(.|\r|\n)*\r\x1b\\[Kxmla-import: 1 cube, 1 hierarchy, 2 levels, 1 "
                         "property, 2 measures; 13 requests, 5855 bytes, [0-9.]+ s\r\n"));
}

/// Of three cubes, each of which takes part in the line.
ScriptedProvider::Script ThreeCubes() {
  ScriptedProvider::Script script = OneCube();
  script.rows["MDSCHEMA_CUBES Lone"] = {
      {{"CUBE_NAME", "First"}}, {{"CUBE_NAME", "Second"}}, {{"CUBE_NAME", "Third"}}};
  return script;
}

/// A program behind a pipe writes to the same terminal.
TEST(Progress, EndsBeforeTheResultIsWrittenToAPipe) {
  const ScriptedProvider provider(ThreeCubes());
  const std::string call = ToolPath() + " --url " + provider.Url() + " import";
  const auto shown = [](const std::string& command) {
    return support::RunChild("/usr/bin/script", {"-qec", command, "/dev/null"}).out;
  };
  const std::string piped = shown(call + " | cat");
  const std::size_t result = piped.find("provider  Test Server");
  ASSERT_NE(result, piped.npos) << piped;
  EXPECT_THAT(piped.substr(0, result), HasSubstr("0 of 3 cubes"));
  // The other program may be slower than the summary, which follows the result.
  EXPECT_LT(piped.find("\r\x1b[K", piped.rfind("of 3 cubes", result)), result) << piped;
  EXPECT_THAT(piped.substr(result), Not(HasSubstr("of 3 cubes")));
  EXPECT_THAT(piped.substr(result), HasSubstr("cube Third\r\n"));
  for (const char* const target : {" -o /dev/null", " > /dev/null"})
    EXPECT_THAT(shown(call + target), HasSubstr("3 of 3 cubes"));
}

TEST(Progress, QuietHidesIt) {
  const ScriptedProvider provider(OneCube());
  Options options;
  options.err = Stream::kTerminal;
  EXPECT_EQ(RunTool({"--url", provider.Url(), "import", "--quiet"}, options).err, "");
}

/// While a request waits, the line says what for.
TEST(Progress, ShowsWhatItWaitsFor) {
  for (const char* type : {"DISCOVER_PROPERTIES", "DBSCHEMA_CATALOGS", "MDSCHEMA_LEVELS"}) {
    std::promise<void> release;
    const std::shared_future<void> isReleased = release.get_future().share();
    ScriptedProvider::Script script = OneCube();
    script.answer = [&](const std::string& requested, const std::string&) -> std::string {
      if (requested == type) isReleased.wait();
      return {};
    };
    const ScriptedProvider provider(std::move(script));
    Options options;
    options.err = Stream::kTerminal;
    options.environment = {{"MORVEN_BI_XMLA_HTTP_TIMEOUT", "60"}};
    const Outcome outcome = RunToolWhile(
        {"--url", provider.Url(), "import"},
        [&](pid_t) {
          std::this_thread::sleep_for(std::chrono::milliseconds(2700));
          release.set_value();
        },
        options);
    EXPECT_EQ(outcome.status, 0);
    const std::string expected = std::string("waiting 2 s of 60 s for ") + type;
    EXPECT_THAT(outcome.err, HasSubstr(expected));
  }
}

TEST(Progress, ShowsEveryCubeInProgress) {
  std::promise<void> release;
  const std::shared_future<void> isReleased = release.get_future().share();
  ScriptedProvider::Script script = OneCube();
  script.rows["MDSCHEMA_CUBES Lone"] = {{{"CUBE_NAME", "First"}}, {{"CUBE_NAME", "Second"}}};
  script.answer = [&](const std::string& type, const std::string&) -> std::string {
    if (type == "MDSCHEMA_LEVELS") isReleased.wait();
    return {};
  };
  const ScriptedProvider provider(std::move(script));
  Options options;
  options.err = Stream::kTerminal;
  const Outcome outcome = RunToolWhile(
      {"--url", provider.Url(), "import", "--jobs", "2"},
      [&](pid_t) {
        std::this_thread::sleep_for(std::chrono::milliseconds(700));
        release.set_value();
      },
      options);
  EXPECT_THAT(outcome.err, testing::AnyOf(HasSubstr("reading First, Second"),
                                          HasSubstr("reading Second, First")));
}

TEST(Progress, QuietShowsOnlyErrors) {
  const ScriptedProvider provider(OneCube());
  const Outcome outcome =
      RunTool({"--url", provider.Url(), "--target", "tessera", "sources", "--quiet"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(RunTool({"--url", provider.Url(), "cube", "--cube", "x", "--quiet"}).err,
              HasSubstr("error: there is no cube"));
}

TEST(Verbose, ShowsEachExchangeWithItsTimings) {
  const ScriptedProvider provider(TwoSources());
  const Outcome outcome = RunTool(
      {"--url", provider.Url(), "--target", "analysis-services-2005", "sources", "--verbose"});
  EXPECT_EQ(outcome.out, "Alpha\nBeta\n");
  const std::vector<std::string> lines = outcome.ErrorLines();
  ASSERT_EQ(lines.size(), provider.Requests().size());
  for (const std::string& line : lines)
    EXPECT_THAT(line, testing::MatchesRegex("[0-9:.]+ DISCOVER_[A-Z]+( of property .*)? from "
                                            "http://127.0.0.1:[0-9]+/.*: status 200, "
                                            "sent [0-9]+ bytes, received [0-9]+ bytes.*, first "
                                            "byte after [0-9.]+ ms, done after [0-9.]+ ms"));
  EXPECT_THAT(lines.front(), HasSubstr("connected in "));
}

TEST(Verbose, ShowsAFailedExchange) {
  const Outcome outcome = RunTool({"--url", "http://127.0.0.1:1/", "sources", "--verbose"});
  EXPECT_THAT(outcome.err, HasSubstr(" FAILED DISCOVER_PROPERTIES"));
}

TEST(Verbose, ShowsAFaultInASuccessfulExchange) {
  ScriptedProvider::Script script = OneCube();
  script.answer = [](const std::string& type, const std::string&) {
    return type == "MDSCHEMA_MEASURES" ? support::FaultReply("Server", "broken") : std::string();
  };
  const ScriptedProvider provider(std::move(script));
  const Outcome outcome = RunTool({"--url", provider.Url(), "--verbose", "import"});
  EXPECT_THAT(outcome.err, testing::ContainsRegex(
                               "\n[0-9:.]+ FAILED MDSCHEMA_MEASURES of [^\n]*: \\[64203\\] "));
}

}  // namespace
}  // namespace tool
