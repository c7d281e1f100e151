// The format ndjson: one document per line, written as soon as it is read, in bounded memory.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>
#include <sstream>
#include <thread>

#include "SampleProvider.h"
#include "support/Effort.h"
#include "support/ResidentMemory.h"
#include "support/Sanitized.h"
#include "support/TempDir.h"
#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

TEST(JsonLines, HasTheDocumentOfTheJsonFormat) {
  for (const char* const kind : {"analysis-services", "sap-bw", "tamarind"}) {
    const Json document =
        RunTool({"--sample", kind, "--format", "json", "import", "--jobs", "3"}).Document();
    const Outcome outcome =
        RunTool({"--sample", kind, "--format", "ndjson", "import", "--jobs", "3"});
    EXPECT_EQ(outcome.status, 0);
    const std::vector<std::string> lines = LinesOf(outcome.out);
    ASSERT_EQ(lines.size(), document["cubes"].size() + 2);
    EXPECT_EQ(Json::parse(lines.front()), (Json{{"provider", document["provider"]}}));
    for (std::size_t i = 0; i < document["cubes"].size(); ++i)
      EXPECT_EQ(Json::parse(lines[i + 1]), document["cubes"][i]);
    EXPECT_EQ(Json::parse(lines.back()),
              (Json{{"errors", document["errors"]}, {"warnings", document["warnings"]}}));
  }
}

TEST(JsonLines, AFailedCallHasTheProviderAndTheErrors) {
  const Outcome outcome = RunTool({"--url", "http://127.0.0.1:1/", "import", "--format", "ndjson"});
  EXPECT_EQ(outcome.status, 1);
  const std::vector<std::string> lines = LinesOf(outcome.out);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(Json::parse(lines[0])["provider"]["name"], "");
  EXPECT_EQ(Json::parse(lines[1])["errors"].size(), 2u);
}

/// The last cube is not answered until the others have arrived.
TEST(JsonLines, ACubeArrivesAsSoonAsItIsRead) {
  ScriptedProvider::Script script = OneCube();
  script.rows["MDSCHEMA_CUBES Lone"] = {
      {{"CUBE_NAME", "First"}}, {{"CUBE_NAME", "Second"}}, {{"CUBE_NAME", "Last"}}};
  std::atomic<bool> hasArrived{false};
  const auto answer = script.answer;
  script.answer = [&](const std::string& type, const std::string& body) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (body.find("Last") != body.npos && !hasArrived &&
           std::chrono::steady_clock::now() < limit)
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return answer(type, body);
  };
  const ScriptedProvider provider(std::move(script));
  int ends[2];
  ASSERT_EQ(pipe2(ends, 0), 0);
  const std::string file = "/dev/fd/" + std::to_string(ends[1]);
  std::string text;
  const Outcome outcome = RunToolWhile(
      {"--url", provider.Url(), "import", "--format", "ndjson", "-o", file}, [&](pid_t) {
        close(ends[1]);
        char block[4096];
        for (ssize_t count; (count = read(ends[0], block, sizeof block)) > 0;) {
          text.append(block, static_cast<std::size_t>(count));
          if (text.find("\"Second\"") != text.npos && text.ends_with("\n")) hasArrived = true;
        }
      });
  close(ends[0]);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_TRUE(hasArrived);
  EXPECT_EQ(LinesOf(text).size(), 5u);
}

TEST(JsonLines, EveryCompleteLineOfAKilledCallIsADocument) {
  sample::Options options;
  options.copies = 40;
  const sample::Provider provider(options);
  for (const int after : {1, 3, 10}) {
    Options streams;
    std::string text;
    int ends[2];
    ASSERT_EQ(pipe2(ends, 0), 0);
    const std::string file = "/dev/fd/" + std::to_string(ends[1]);
    const Outcome outcome =
        RunToolWhile({"--url", provider.Url(sample::Kind::kAnalysisServices), "import", "--format",
                      "ndjson", "-o", file},
                     [&](pid_t process) {
                       close(ends[1]);
                       char block[4096];
                       bool isKilled = false;
                       for (ssize_t count; (count = read(ends[0], block, sizeof block)) > 0;) {
                         text.append(block, static_cast<std::size_t>(count));
                         if (!isKilled && std::ranges::count(text, '\n') > after) {
                           kill(process, SIGKILL);
                           isKilled = true;
                         }
                       }
                     });
    close(ends[0]);
    EXPECT_EQ(outcome.signal, SIGKILL);
    std::vector<std::string> lines = LinesOf(text);
    if (!text.ends_with("\n")) lines.pop_back();
    EXPECT_GT(lines.size(), static_cast<std::size_t>(after));
    for (std::size_t i = 0; i < lines.size(); ++i) {
      const Json document = Json::parse(lines[i], nullptr, false);
      ASSERT_TRUE(document.is_object()) << lines[i].substr(0, 200);
      EXPECT_TRUE(document.contains(i == 0 ? "provider" : "hierarchies"));
    }
  }
}

/// The largest resident memory of an import of this many cubes, in KiB.
long PeakOfImport(std::size_t cubes) {
  ScriptedProvider::Script script = OneCube();
  script.rows.erase("MDSCHEMA_HIERARCHIES");  // fewer requests
  std::vector<Row>& rows = script.rows["MDSCHEMA_CUBES Lone"];
  rows.clear();
  for (std::size_t i = 0; i < cubes; ++i)
    rows.push_back({{"CUBE_NAME", "Cube " + std::to_string(i)}});
  const ScriptedProvider provider(std::move(script));
  const support::TempDir folder;
  const std::string file = folder.Path() / "cubes.ndjson";
  long peak = 0;
  const Outcome outcome = RunToolWhile(
      {"--url", provider.Url(), "--target", "analysis-services-2005", "import", "-o", file},
      [&](pid_t process) {
        while (const long now = support::PeakResidentKiB(process)) {
          peak = now;
          std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
      });
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(LinesOf(support::ReadFile(file)).size(), cubes + 2);
  return peak;
}

TEST(JsonLines, MemoryDoesNotGrowWithTheNumberOfCubes) {
  if (support::kIsSanitized) GTEST_SKIP() << "skipped: sanitizers keep freed memory";
  const long peakOfFew = PeakOfImport(400);
  const long peakOfMany = PeakOfImport(4000);
  EXPECT_LE(static_cast<double>(peakOfMany), 1.3 * static_cast<double>(peakOfFew))
      << peakOfFew << " and " << peakOfMany << " KiB";
  support::PrintFigure("peak memory of an ndjson import",
                       std::to_string(peakOfFew) + " KiB for 400 cubes, " +
                           std::to_string(peakOfMany) + " KiB for 4000");
}

}  // namespace
}  // namespace tool
