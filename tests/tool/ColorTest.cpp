// Colours and aligned columns: on a terminal only, unless --color says otherwise.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "base/Style.h"
#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* kBegin = "\x1b[";
const Arguments kColoredCall{"--sample", "tamarind", "--target", "sap-bw", "import"};

struct ColorCase {
  bool isTerminal;
  const char* option;  ///< of --color; null: absent
  const char* noColor;
  const char* terminal;  ///< TERM
  bool hasColors;
};
constexpr ColorCase kColorCases[] = {
    {true, nullptr, nullptr, "xterm", true},   {true, nullptr, "", "xterm", true},
    {true, nullptr, "1", "xterm", false},      {true, nullptr, nullptr, "dumb", false},
    {true, nullptr, nullptr, nullptr, false},  {true, "auto", nullptr, "xterm", true},
    {true, "never", nullptr, "xterm", false},  {true, "always", "1", "dumb", true},
    {false, nullptr, nullptr, "xterm", false}, {false, "auto", nullptr, "xterm", false},
    {false, "always", nullptr, "xterm", true}, {false, "always", "1", nullptr, true},
    {false, "never", nullptr, "xterm", false},
};

TEST(Color, DependsOnOptionTerminalAndEnvironment) {
  for (const ColorCase& each : kColorCases) {
    SCOPED_TRACE(&each - kColorCases);
    Options options;
    if (each.isTerminal) options.out = options.err = Stream::kTerminal;
    if (each.noColor) options.environment["NO_COLOR"] = each.noColor;
    if (each.terminal) options.environment["TERM"] = each.terminal;
    Arguments call = kColoredCall;
    if (each.option) call.insert(call.end(), {"--color", each.option});
    const Outcome outcome = RunTool(call, options);
    EXPECT_EQ(outcome.status, 3);
    if (each.hasColors) {
      EXPECT_THAT(outcome.out, HasSubstr("\x1b[1mcube Log\x1b[0m\x1b[1;31m (incomplete: 1 error)"));
      EXPECT_THAT(outcome.err, HasSubstr("xmla-import: \x1b[1;31merror\x1b[0m: "));
      EXPECT_THAT(outcome.err, HasSubstr("xmla-import: \x1b[33mwarning\x1b[0m: "));
    } else {
      EXPECT_THAT(outcome.out, HasSubstr("cube Log (incomplete: 1 error)"));
      EXPECT_THAT(outcome.out, Not(HasSubstr(kBegin)));
      EXPECT_THAT(outcome.err, HasSubstr("xmla-import: error: "));
    }
  }
}

TEST(Color, EachStreamDecidesForItself) {
  Options options;
  options.environment["TERM"] = "xterm";
  options.err = Stream::kTerminal;
  const Outcome outcome = RunTool(kColoredCall, options);
  EXPECT_THAT(outcome.out, Not(HasSubstr(kBegin)));
  EXPECT_THAT(outcome.err, HasSubstr("\x1b[1;31merror"));
}

TEST(Color, OtherFormatsHaveNone) {
  for (const char* const format : {"json", "ndjson", "csv", "markdown"}) {
    Arguments call = kColoredCall;
    call.insert(call.end(), {"--color", "always", "--format", format});
    Arguments plain = kColoredCall;
    plain.insert(plain.end(), {"--format", format});
    EXPECT_EQ(RunTool(call).out, RunTool(plain).out) << format;
  }
}

TEST(Color, CheckColorsTheStatus) {
  const Outcome outcome = RunTool({"--sample", "sap-bw", "check", "--color", "always"});
  EXPECT_THAT(outcome.out, HasSubstr("\x1b[32mok       \x1b[0maddress"));
  const Outcome failed = RunTool({"--url", "http://127.0.0.1:1/", "check", "--color", "always"});
  EXPECT_THAT(failed.out, HasSubstr("\x1b[1;31mfailed   \x1b[0mconnection"));
  EXPECT_THAT(failed.out, HasSubstr("\x1b[2mskipped  \x1b[0m"));
}

/// With colours, a program shows the text on a terminal later. Names must not act there.
TEST(Color, NamesAreEscapedInColoredText) {
  ScriptedProvider::Script script = OneCube();
  script.rows["MDSCHEMA_CUBES Lone"] = {{{"CUBE_NAME",
                                          "a\xC2\x9B"
                                          "1mb"}}};
  const ScriptedProvider provider(std::move(script));
  EXPECT_THAT(RunTool({"--url", provider.Url(), "tree", "--color", "always"}).out,
              HasSubstr("a\\u009B1mb"));
  EXPECT_THAT(RunTool({"--url", provider.Url(), "tree"}).out, HasSubstr("a\xC2\x9B"
                                                                        "1mb"));
}

TEST(Color, UnknownValueIsAnError) {
  const Outcome outcome = RunTool({"--sample", "sap-bw", "tree", "--color", "alway"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_THAT(outcome.err, HasSubstr("unknown --color \"alway\" (did you mean always?); expected "
                                     "one of: auto, always, never"));
}

std::vector<std::string> LinesBelow(const std::string& text, const std::string& heading) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  bool isBelow = false;
  for (std::string line; std::getline(stream, line);) {
    while (line.ends_with('\r')) line.pop_back();
    if (isBelow && !line.starts_with("    ")) break;
    if (isBelow) lines.push_back(line);
    if (line == "  " + heading) isBelow = true;
  }
  return lines;
}

ScriptedProvider::Script DifferentWidths() {
  ScriptedProvider::Script script = OneCube();
  const auto measure = [](const std::string& name, const char* aggregator) {
    return Row{
        {"MEASURE_NAME", name}, {"MEASURE_CAPTION", name}, {"MEASURE_AGGREGATOR", aggregator}};
  };
  script.rows["MDSCHEMA_MEASURES"] = {measure("A", "1"), measure("売上", "127"),
                                      measure("e\xCC\x81t\xC3\xA9", "2"),
                                      measure(std::string(60, 'x'), "1")};
  return script;
}

TEST(Color, ColumnsAreAlignedOnATerminal) {
  const ScriptedProvider provider(DifferentWidths());
  Options options;
  options.out = Stream::kTerminal;
  const std::vector<std::string> seen =
      LinesBelow(RunTool({"--url", provider.Url(), "cube"}, options).out, "measures");
  EXPECT_EQ(seen, (std::vector<std::string>{
                      "    A:    sum,                  Unknown",
                      "    売上: calculated by server, Unknown",
                      "    e\xCC\x81t\xC3\xA9:  count,                Unknown",
                      "    " + std::string(60, 'x') + ": sum,                  Unknown",
                  }));
  const std::vector<std::string> piped =
      LinesBelow(RunTool({"--url", provider.Url(), "cube"}).out, "measures");
  EXPECT_EQ(piped.at(0), "    A: sum, Unknown");
}

TEST(Color, WidthsAreThoseOfATerminal) {
  EXPECT_EQ(DisplayWidth(L""), 0u);
  EXPECT_EQ(DisplayWidth(L"abc"), 3u);
  EXPECT_EQ(DisplayWidth(L"\x58F2\x4E0A"), 4u);  // wide
  EXPECT_EQ(DisplayWidth(L"e\x0301"), 1u);       // combining
  EXPECT_EQ(DisplayWidth(L"\x20AC \x416"), 3u);  // narrow
  EXPECT_EQ(DisplayWidth(L"\x1F455"), 2u);
  EXPECT_EQ(DisplayWidth(L"\x1b"), 6u);  // shown as an escape
}

}  // namespace
}  // namespace tool
