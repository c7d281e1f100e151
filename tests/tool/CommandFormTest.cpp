// Every kind of value that an option of a command can have.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "call/Arguments.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr CommandOption kOptions[] = {
    {.name = "--flag", .help = "a flag", .value = &Arguments::quiet},
    {.name = "--text", .help = "a text", .value = &Arguments::log, .placeholder = "TEXT"},
    {.name = "--number",
     .help = "a number",
     .value = &Arguments::jobs,
     .placeholder = "N",
     .max = 9},
    {.name = "--one", .help = "a list", .value = &Arguments::cubes},
    {.name = "--each", .help = "a list", .value = &Arguments::sources, .mayRepeat = true},
};
const std::vector<CommandForm> kForms = {{"probe", "has options", kOptions}};

constexpr OutputFormat kFormats[] = {{.name = "text", .help = "for people"}};

Arguments Parsed(std::vector<const char*> words) {
  words.insert(words.begin(), {"xmla-import", "probe"});
  Arguments arguments;
  ParseArguments(static_cast<int>(words.size()), words.data(), kForms, kFormats, arguments);
  return arguments;
}

TEST(CommandForm, OptionsHaveDefaults) {
  const Arguments arguments = Parsed({});
  EXPECT_FALSE(arguments.quiet);
  EXPECT_EQ(arguments.log, "");
  EXPECT_EQ(arguments.jobs, 1);
  EXPECT_THAT(arguments.cubes, ElementsAre());
  EXPECT_THAT(arguments.sources, ElementsAre());
}

TEST(CommandForm, OptionsHaveValuesOfEachKind) {
  const Arguments arguments = Parsed({"--flag", "--text", "words", "--number", "9", "--one",
                                      "Sales", "--each", "a", "--each", "b"});
  EXPECT_TRUE(arguments.quiet);
  EXPECT_EQ(arguments.log, "words");
  EXPECT_EQ(arguments.jobs, 9);
  EXPECT_THAT(arguments.cubes, ElementsAre("Sales"));
  EXPECT_THAT(arguments.sources, ElementsAre("a", "b"));
}

TEST(CommandForm, WrongValuesAreUsageErrors) {
  const std::vector<const char*> calls[] = {
      {"--flag", "no"},
      {"--text", ""},
      {"--text"},
      {"--number", "0"},
      {"--number=10"},
      {"--number", "few"},
      {"--one", "a", "--one", "b"},
      {"--each", "a", "b"},
      {"--each", ""},
  };
  for (const auto& call : calls) EXPECT_THROW(Parsed(call), UsageError) << call.front();
}

TEST(CommandForm, HelpShowsThePlaceholders) {
  const std::string help = Parsed({"--help"}).information;
  for (const char* shown : {"--flag ", "--text TEXT", "--number N", "--one NAME", "--each NAME"})
    EXPECT_THAT(help, HasSubstr(shown));
}

}  // namespace
