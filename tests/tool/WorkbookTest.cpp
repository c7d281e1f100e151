// Limits of workbooks: rows of a sheet, characters of a cell, and memory.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>

#include "base/OutputError.h"
#include "base/Text.h"
#include "results/Workbook.h"
#include "support/FailingAllocation.h"
#include "support/TempDir.h"
#include "tool/ScriptedProvider.h"
#include "tool/TableReading.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

using testing::HasSubstr;

std::string BytesOf(Workbook& book) {
  std::string bytes;
  book.Finish([&](std::string_view block) { bytes += block; });
  return bytes;
}

TEST(Workbook, AFullSheetContinuesInAnother) {
  if (!CanReadTables()) GTEST_SKIP() << "python3-openpyxl or cmark-gfm is missing";
  constexpr std::size_t kRows = 4;  // with the headings
  Workbook book(kRows);
  const std::size_t levels = book.AddSheet("levels", {"name", "number"});
  const std::size_t measures = book.AddSheet("measures", {"name"});
  for (long long i = 0; i < 7; ++i)
    book.AddRow(levels, {{"name", "level " + std::to_string(i)}, {"number", i}});
  for (int i = 0; i < 3; ++i) book.AddRow(measures, {{"name", std::string("m")}});
  const std::vector<ReadTable> sheets = ReadTables("xlsx", BytesOf(book));
  ASSERT_EQ(sheets.size(), 4u);
  const char* const names[] = {"levels", "measures", "levels 2", "levels 3"};
  const std::size_t rows[] = {3, 3, 3, 1};
  for (std::size_t i = 0; i < sheets.size(); ++i) {
    EXPECT_EQ(sheets[i].name, std::vector<std::string>{names[i]});
    EXPECT_EQ(sheets[i].rows.size(), rows[i]);
    EXPECT_EQ(sheets[i].headings.front(), "name");
    EXPECT_EQ(sheets[i].frozen, "A2");
    EXPECT_TRUE(sheets[i].filter.ends_with(std::to_string(rows[i] + 1))) << sheets[i].filter;
  }
  EXPECT_EQ(sheets[2].rows[0][0], "level 3");
  EXPECT_EQ(sheets[3].rows[0][1], 6);
}

TEST(Workbook, ATooLongTextIsTruncatedAndReported) {
  if (!CanReadTables()) GTEST_SKIP() << "python3-openpyxl or cmark-gfm is missing";
  const String fits(Workbook::kMaxCharacters, L'x');
  const String tooLong(Workbook::kMaxCharacters + 1, L'x');
  // These count twice.
  const String emoji(Workbook::kMaxCharacters / 2, L'\x1F455');
  const String tooManyEmoji(Workbook::kMaxCharacters / 2 + 1, L'\x1F455');
  Workbook book;
  const std::size_t sheet = book.AddSheet("cubes", {"externalName"});
  for (const String* const text : {&fits, &tooLong, &emoji, &tooManyEmoji})
    book.AddRow(sheet, {{"externalName", text}});
  const std::vector<std::string> notices = book.TakeNotices();
  ASSERT_EQ(notices.size(), 2u);
  EXPECT_EQ(notices[0],
            "row 3 of the sheet cubes has a truncated name on the server: a cell has at most 32767 "
            "characters, the text has 32768; use another format");
  EXPECT_THAT(notices[1], HasSubstr("row 5"));
  const std::vector<ReadTable> sheets = ReadTables("xlsx", BytesOf(book));
  EXPECT_EQ(sheets[0].rows[0][0], Utf8(fits));
  EXPECT_EQ(sheets[0].rows[1][0], Utf8(fits));
  EXPECT_EQ(sheets[0].rows[2][0], Utf8(emoji));
  EXPECT_EQ(sheets[0].rows[3][0], Utf8(emoji));
}

TEST(Workbook, ManyTruncatedTextsAreCounted) {
  const String tooLong(Workbook::kMaxCharacters + 1, L'x');
  Workbook book;
  const std::size_t sheet = book.AddSheet("cubes", {"name"});
  for (int i = 0; i < 25; ++i) book.AddRow(sheet, {{"name", &tooLong}});
  const std::vector<std::string> notices = book.TakeNotices();
  ASSERT_EQ(notices.size(), 21u);
  EXPECT_EQ(notices.back(), "5 more cells are truncated");
}

TEST(Workbook, TheToolReportsATruncatedName) {
  if (!CanReadTables()) GTEST_SKIP() << "python3-openpyxl or cmark-gfm is missing";
  ScriptedProvider::Script script = OneCube();
  script.rows["MDSCHEMA_MEASURES"].front()[1].second = std::string(40000, 'x');
  const ScriptedProvider provider(std::move(script));
  const Outcome outcome = RunTool({"--url", provider.Url(), "cube", "--format", "xlsx"});
  EXPECT_EQ(outcome.status, 0);
  const std::string notice =
      "row 2 of the sheet measures has a truncated name: a cell has at most 32767 characters, the "
      "text has 40000; use another format";
  EXPECT_THAT(outcome.err, HasSubstr("xmla-import: warning: " + notice));
  const std::vector<ReadTable> sheets = ReadTables("xlsx", outcome.out);
  EXPECT_EQ(sheets.back().name, std::vector<std::string>{"messages"});
  ASSERT_FALSE(sheets.back().rows.empty());
  EXPECT_EQ(sheets.back().rows.back().front(), "note");
  EXPECT_EQ(sheets.back().rows.back().back(), notice);
}

/// One allocation fails, in the workbook or in its temporary files: the bytes are complete, or
/// there is an exception.
TEST(Workbook, IsCompleteOrFailsWithoutMemory) {
  if (!FailingAllocation::kIsPossible) GTEST_SKIP() << "skipped: allocations cannot fail here";
  const auto make = [] {
    Workbook book;
    const std::size_t sheet = book.AddSheet("levels", {"name", "number"});
    for (long long i = 0; i < 300; ++i)
      book.AddRow(sheet,
                  {{"name", "level " + std::to_string(i) + std::string(50, 'x')}, {"number", i}});
    return BytesOf(book);
  };
  const std::string complete = make();
  int failures = 0;
  long last = 0;
  for (long nth = 1; last == 0; nth += nth < 40 ? 1 : 7) {
    std::string bytes;
    try {
      const FailingAllocation failing(nth, FailingAllocation::Which::kOnlyThat);
      bytes = make();
    } catch (const std::exception&) {
      ++failures;
      continue;
    }
    ASSERT_EQ(bytes == complete, true) << nth;
    if (!FailingAllocation::HasFailed()) last = nth;
  }
  EXPECT_GT(failures, 50);
}

/// A limit that files, also those in memory, cannot exceed.
TEST(Workbook, AnIncompleteWorkbookIsAnError) {
  const support::TempDir folder;
  const std::string file = folder.Path() / "cubes.xlsx";
  const rlim_t size =
      RunTool({"--quiet", "--sample", "sap-bw", "import", "--format", "xlsx"}).out.size();
  for (const rlim_t limit : {rlim_t{0}, rlim_t{100}, size / 2, size - 100, size - 1}) {
    Options options;
    options.prepare = [limit] {
      const rlimit limits{limit, limit};
      setrlimit(RLIMIT_FSIZE, &limits);
    };
    for (const Arguments& place : {Arguments{"--format", "xlsx"}, Arguments{"-o", file}}) {
      Arguments call{"--sample", "sap-bw", "import"};
      call.insert(call.end(), place.begin(), place.end());
      const Outcome outcome = RunTool(call, options);
      EXPECT_EQ(outcome.status, 1);
      EXPECT_EQ(outcome.out, "");
      EXPECT_THAT(outcome.err, HasSubstr("xmla-import: error: the workbook cannot be made: "));
      EXPECT_TRUE(folder.Files().empty());
    }
  }
}

/// The workbook needs no space for temporary files.
TEST(Workbook, IsCompleteIfTheTemporaryFolderIsFull) {
  const Arguments call{"--quiet", "--sample", "sap-bw", "import", "--format", "xlsx"};
  Options options;
  options.prepare = [] {
    const bool isFull = unshare(CLONE_NEWNS) == 0 &&
                        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                        mount("full", "/tmp", "tmpfs", 0, "size=4k") == 0 &&
                        system("head -c 4096 /dev/zero > /tmp/full") == 0;
    if (!isFull) _exit(77);
  };
  const Outcome outcome = RunTool(call, options);
  if (outcome.status == 77) GTEST_SKIP() << "skipped: only root can mount a file system";
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.out, RunTool(call).out);
}

}  // namespace
}  // namespace tool
