// Which format a call has: by option, by the extension of the output file, and for which command.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "call/OutputFormat.h"
#include "call/UsageError.h"
#include "results/Formats.h"
#include "support/TempDir.h"
#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

using testing::HasSubstr;

struct FormatChoice {
  const char* given;
  const char* output;
  const char* command;
  const char* format;  ///< null: an error
};
constexpr FormatChoice kFormatChoices[] = {
    {"", "", "import", "text"},
    {"", "-", "import", "text"},
    {"", "/dev/stdout", "import", "text"},
    {"", "cubes.json", "import", "json"},
    {"", "a.b/cubes.ndjson", "import", "ndjson"},
    {"", "cubes.csv", "cube", "csv"},
    {"", "cubes.xlsx", "tree", "xlsx"},
    {"", "cubes.md", "import", "markdown"},
    {"", "cubes.txt", "import", "text"},
    {"", "cubes.JSON", "import", "json"},
    {"", "Cubes.Xlsx", "import", "xlsx"},
    {"", "cubes.NDJSON", "tree", nullptr},
    {"", "cubes.HTM", "import", nullptr},
    {"", "cubes", "import", "text"},
    {"", "json", "import", "text"},
    {"", ".json", "import", "text"},
    {"", "x/.csv", "sources", "text"},
    {"", "a.csv/cubes", "import", "text"},
    {"", "cubes.json.partial", "import", "text"},
    {"text", "cubes.json", "import", "text"},
    {"csv", "cubes.json", "import", "csv"},
    {"json", "cubes.csv", "sources", "json"},
    {"json", "", "", "json"},
    {"ndjson", "", "", "ndjson"},
    {"xml", "", "import", nullptr},
    {"ndjson", "", "tree", nullptr},
    {"ndjson", "", "cube", nullptr},
    {"csv", "", "sources", nullptr},
    {"xlsx", "", "check", nullptr},
    {"markdown", "", "servers", nullptr},
    {"", "cubes.csv", "sources", nullptr},
    {"", "cubes.ndjson", "tree", nullptr},
};

TEST(FormatChoice, OptionThenExtensionThenText) {
  for (const FormatChoice& each : kFormatChoices) {
    SCOPED_TRACE(std::string(each.given) + " " + each.output + " " + each.command);
    std::string format;
    try {
      format = ChooseFormat(Formats(), each.given, each.output, each.command);
    } catch (const UsageError& error) {
      EXPECT_EQ(each.format, nullptr) << error.what();
      continue;
    }
    ASSERT_NE(each.format, nullptr) << format;
    EXPECT_EQ(format, each.format);
  }
}

TEST(FormatChoice, ErrorsListTheFormatsOfTheCommand) {
  const support::TempDir folder;
  const std::string file = folder.Path() / "x.csv";
  const Outcome unsupported = RunTool({"--sample", "sap-bw", "tree", "--format", "ndjson"});
  EXPECT_EQ(unsupported.status, 2);
  EXPECT_EQ(unsupported.out, "");
  EXPECT_THAT(unsupported.err,
              HasSubstr("tree has no --format ndjson; formats of tree: text, json"));
  const Outcome byName = RunTool({"--sample", "sap-bw", "sources", "-o", file});
  EXPECT_EQ(byName.status, 2);
  EXPECT_THAT(byName.err, HasSubstr("selects the format csv, which sources does not have; use "
                                    "--format, or another name; formats of sources: text, json"));
  EXPECT_TRUE(folder.Files().empty());
}

TEST(FormatChoice, AnExtensionThatOnlyResemblesOneIsAnError) {
  constexpr std::string_view kCases[][2] = {
      {"x.htm", ".html"}, {"x.jsonl", ".ndjson"}, {"x.markdown", ".md"}, {"x.xls", ".xlsx"}};
  for (const auto& [name, extension] : kCases) {
    try {
      ChooseFormat(Formats(), "", name, "import");
      ADD_FAILURE() << name;
    } catch (const UsageError& error) {
      EXPECT_EQ(error.what(), "the name \"" + std::string(name) +
                                  "\" selects no format; use the extension " +
                                  std::string(extension) + ", or --format");
    }
    EXPECT_EQ(ChooseFormat(Formats(), "json", name, "import"), "json");
  }
  try {
    ChooseFormat(Formats(), "", "x.htm", "tree");
    ADD_FAILURE() << "tree has no html";
  } catch (const UsageError& error) {
    EXPECT_STREQ(error.what(),
                 "the name \"x.htm\" selects no format; use --format, or another name; formats of "
                 "tree: text, json, csv, xlsx, markdown");
  }
}

TEST(FormatChoice, AnUnknownExtensionGivesANote) {
  constexpr const char* kKnown[] = {"",      "a",     "a.",    "x.y/a",  ".pdf",   "x/.pdf",
                                    "a.txt", "a.TXT", "a.log", "a.text", "a.JSON", "/dev/null"};
  for (const char* const name : kKnown)
    EXPECT_EQ(UnknownExtensionNote(Formats(), name, "tree"), "") << name;
  EXPECT_EQ(UnknownExtensionNote(Formats(), "x.fish", "completion"), "");
  const std::string note = "selects no format, so the format is text; to choose one, use --format";
  for (const char* const name : {"a.pdf", "x/a.PDF", "a.json.old"})
    EXPECT_EQ(UnknownExtensionNote(Formats(), name, "tree"),
              "the name \"" + std::string(name) + "\" " + note);
  const support::TempDir folder;
  const std::string file = folder.Path() / "a.pdf";
  const Arguments call{"--sample", "sap-bw", "sources", "-o", file};
  const auto notesWith = [&call](const Arguments& more) {
    Arguments arguments = call;
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Outcome outcome = RunTool(arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    return outcome.err;
  };
  EXPECT_EQ(notesWith({}), "xmla-import: note: the name \"" + file + "\" " + note + "\n");
  EXPECT_EQ(notesWith({"--quiet"}), "");
  EXPECT_EQ(notesWith({"--format", "text"}), "");
}

TEST(FormatChoice, ExtensionSelectsTheBytes) {
  const support::TempDir folder;
  const ScriptedProvider provider(OneCube());
  for (const OutputFormat& format : Formats()) {
    if (format.extension.empty()) continue;
    const std::string file = folder.Path() / ("result" + std::string(format.extension));
    EXPECT_EQ(RunTool({"--url", provider.Url(), "import", "-o", file}).status, 0);
    const Outcome piped =
        RunTool({"--url", provider.Url(), "import", "--format", std::string(format.name)});
    EXPECT_NE(piped.out, "");
    EXPECT_EQ(support::ReadFile(file), piped.out) << file;
  }
}

/// The rest of the command line may be wrong.
TEST(FormatChoice, AUsageErrorIsWrittenInTheChosenFormat) {
  const support::TempDir folder;
  for (const Arguments& call : {Arguments{"import", "--jobs", "0", "--format", "json"},
                                Arguments{"import", "--no-such-option", "--format", "json", "-o",
                                          folder.Path() / "absent" / "x.json"}}) {
    const Outcome outcome = RunTool(call);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.Document()["errors"].size(), 1u);
  }
  const Outcome unwritable =
      RunTool({"import", "--no-such-option", "-o", folder.Path() / "absent" / "x.json"});
  EXPECT_EQ(unwritable.status, 2);
  EXPECT_EQ(unwritable.out, "");  // the name selects the format of the file only
  const Outcome lines = RunTool({"import", "--jobs", "0", "--format", "ndjson"});
  EXPECT_EQ(lines.status, 2);
  EXPECT_THAT(lines.out, testing::StartsWith("{\"provider\":{"));
  EXPECT_THAT(lines.out, HasSubstr("\n{\"errors\":[\"--jobs needs"));
}

TEST(FormatChoice, AWorkbookIsNotShownOnATerminal) {
  Options options;
  options.out = Stream::kTerminal;
  for (const Arguments& call :
       {Arguments{"--sample", "sap-bw", "import", "--format", "xlsx"},
        Arguments{"--sample", "sap-bw", "import", "--format", "xlsx", "--jobs", "0"}}) {
    const Outcome outcome = RunTool(call, options);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.out, "");
  }
  const Outcome outcome = RunTool({"--sample", "sap-bw", "import", "--format", "xlsx"}, options);
  EXPECT_EQ(outcome.err,
            "xmla-import: error: --format xlsx cannot be shown on a terminal; use -o FILE.xlsx\n");
}

}  // namespace
}  // namespace tool
