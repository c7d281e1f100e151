// Tests output for people: progress, exchanges, and untrusted names.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
  EXPECT_THAT(shown, EndsWith("\r\x1b[K"));
}

TEST(Progress, QuietHidesIt) {
  const ScriptedProvider provider(OneCube());
  Options options;
  options.err = Stream::kTerminal;
  EXPECT_EQ(RunTool({"--url", provider.Url(), "import", "--quiet"}, options).err, "");
}

TEST(Progress, QuietStillWarns) {
  const ScriptedProvider provider(OneCube());
  const Outcome outcome =
      RunTool({"--url", provider.Url(), "--target", "tessera", "sources", "--quiet"});
  EXPECT_THAT(outcome.err, HasSubstr("[62010] "));
}

TEST(Verbose, ShowsEachExchangeWithItsTimings) {
  const ScriptedProvider provider(TwoSources());
  const Outcome outcome = RunTool(
      {"--url", provider.Url(), "--target", "analysis-services-2005", "sources", "--verbose"});
  EXPECT_EQ(outcome.out, "Alpha\nBeta\n");
  const std::vector<std::string> lines = outcome.ErrorLines();
  ASSERT_EQ(lines.size(), provider.Requests().size());
  for (const std::string& line : lines)
    EXPECT_THAT(
        line, testing::MatchesRegex(
                  "DISCOVER_[A-Z]+( of property .*)? from http://127.0.0.1:[0-9]+/.*: status 200, "
                  "sent [0-9]+ bytes, received [0-9]+ bytes.*, first "
                  "byte after [0-9.]+ ms, done after [0-9.]+ ms"));
  EXPECT_THAT(lines.front(), HasSubstr("connected in "));
}

TEST(Verbose, ShowsAFailedExchange) {
  const Outcome outcome = RunTool({"--url", "http://127.0.0.1:1/", "sources", "--verbose"});
  EXPECT_THAT(outcome.err, HasSubstr("failed: "));
}

}  // namespace
}  // namespace tool
