#include "results/Formats.h"

#include <algorithm>
#include <array>

namespace {

using Make = std::unique_ptr<Form>(ResultText& text);

constexpr std::string_view kImports[] = {"import"};
constexpr std::string_view kCubes[] = {"tree", "cube", "import"};
constexpr std::string_view kDocuments[] = {"tree", "cube", "import", "diff"};
constexpr std::string_view kAllResults[] = {"sources", "tree", "cube",   "import",
                                            "check",   "diff", "servers"};
constexpr std::string_view kReports[] = {"cube", "import", "diff"};

struct Entry {
  OutputFormat format;
  Make* make;
};

constexpr Entry kEntries[] = {
    {{.name = "text",
      .help = "for people; its words are explained below. It may change between versions"},
     &MakeTextForm},
    {{.name = "json",
      .help = "one UTF-8 document for programs, with the same keys in the same order in every "
              "version",
      .extension = ".json",
      .commands = kAllResults},
     &MakeJsonForm},
    {{.name = "ndjson",
      .help = "one JSON document per line: the provider, each cube as soon as it is read, then "
              "errors and warnings",
      .extension = ".ndjson",
      .commands = kImports},
     &MakeJsonLinesForm},
    {{.name = "csv",
      .help = "comma-separated values: one row for each level, property, measure and variable; for "
              "tree one row for each cube. Names are unchanged, so a spreadsheet may take one for "
              "a formula; for spreadsheets, use xlsx",
      .extension = ".csv",
      .commands = kCubes},
     &MakeCsvForm},
    {{.name = "xlsx",
      .help =
          "workbook with sheets for cubes, hierarchies, levels, properties, measures, variables "
          "and messages. Needs -o or a pipe, and memory for the whole result",
      .extension = ".xlsx",
      .commands = kCubes,
      .isBinary = true},
     &MakeXlsxForm},
    {{.name = "markdown",
      .help = "headings and tables for wikis and repositories",
      .extension = ".md",
      .commands = kDocuments},
     &MakeMarkdownForm},
    {{.name = "html",
      .help = "one page for a browser that needs no network: overview, search, and a page for each "
              "cube. The whole result is kept in memory until it is written",
      .extension = ".html",
      .commands = kReports},
     &MakeHtmlForm},
};

constexpr auto kFormats = [] {
  std::array<OutputFormat, std::size(kEntries)> formats;
  std::ranges::transform(kEntries, formats.begin(), &Entry::format);
  return formats;
}();

}  // namespace

OutputFormats Formats() { return kFormats; }

std::vector<std::string> FormatNames() { return NamesOf(Formats(), ""); }

std::unique_ptr<Form> MakeForm(const std::string& format, ResultText& text) {
  const auto found =
      std::ranges::find(kEntries, format, [](const Entry& entry) { return entry.format.name; });
  return (found == std::end(kEntries) ? kEntries : found)->make(text);
}
