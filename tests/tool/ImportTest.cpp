// Tests the command import: all cubes or the filtered ones, with several jobs.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <future>
#include <string_view>
#include <thread>
#include <utility>

#include "SampleProvider.h"
#include "support/ReservedPort.h"
#include "support/ResidentMemory.h"
#include "support/Sanitized.h"
#include "support/TempDir.h"
#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

/// "source/catalog/cube" of every imported cube.
std::vector<std::string> CubesOf(const Json& document) {
  std::vector<std::string> cubes;
  for (const Json& cube : document["cubes"])
    cubes.push_back(cube["dataSource"].get<std::string>() + "/" +
                    cube["catalog"].get<std::string>() + "/" + cube["cube"].get<std::string>());
  return cubes;
}

ScriptedProvider::Script Cubes() {
  ScriptedProvider::Script script = TwoSources();
  script.rows["MDSCHEMA_CUBES Two"] = {{{"CUBE_NAME", "Sales"}}};
  script.rows["MDSCHEMA_MEASURES"] = OneCube().rows["MDSCHEMA_MEASURES"];
  return script;
}

Outcome Import(const ScriptedProvider& provider, const Arguments& more) {
  Arguments arguments{"--url", provider.Url(), "--format", "json", "import"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return RunTool(arguments);
}

TEST(Import, ReadsEveryCubeInTheProvidersOrderWithAnyJobs) {
  const ScriptedProvider provider(Cubes());
  Json former;
  for (const char* jobs : {"1", "3", "64"}) {
    const Outcome outcome = Import(provider, {"--jobs", jobs});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_THAT(CubesOf(outcome.Document()),
                ElementsAre("Alpha/One/Sales", "Alpha/One/Stock", "Alpha/Two/Sales",
                            "Beta/One/Sales", "Beta/One/Stock", "Beta/Two/Sales"));
    if (!former.is_null()) {
      EXPECT_EQ(outcome.Document(), former);
    }
    former = outcome.Document();
  }
  EXPECT_EQ(
      former["provider"],
      Json({{"name", "Test Server"}, {"version", "9.0.1"}, {"target", "analysis-services-2005"}}));
}

/// With fewer cubes than jobs, the rest of the requests is sent ahead. The number stays the limit.
TEST(Import, JobsThatHaveNoCubeReadAhead) {
  sample::Options options;
  options.latency = std::chrono::milliseconds(2);
  options.wideCube = true;
  const sample::Provider provider(options);
  const auto read = [&](const char* jobs) {
    return RunTool({"--url", provider.Url(sample::Kind::kAnalysisServices), "--format", "json",
                    "--verbose", "import", "--catalog", "Larkspur Retail", "--jobs", jobs});
  };
  // The provider counts a request until its reply is sent, when the client may have sent the next.
  const Outcome one = read("1");
  EXPECT_LE(provider.MaxRequestsInProgress(), 2);
  const Outcome many = read("8");
  EXPECT_EQ(many.status, one.status) << many.err;
  EXPECT_EQ(many.out, one.out);
  EXPECT_GE(provider.MaxRequestsInProgress(), 5);
  EXPECT_LE(provider.MaxRequestsInProgress(), 2 * 8);
  EXPECT_THAT(many.err, HasSubstr("read ahead: "));
}

TEST(Import, EachCubeHasTheKeysOfACubeDocument) {
  const ScriptedProvider provider(OneCube());
  const Json document = Import(provider, {}).Document();
  EXPECT_EQ(document["cubes"][0],
            RunTool({"--url", provider.Url(), "--format", "json", "cube"}).Document());
}

TEST(Import, FiltersApplyBeforeAnyCubeIsRead) {
  const ScriptedProvider provider(Cubes());
  EXPECT_THAT(CubesOf(Import(provider, {"--catalog", "One", "--cube", "Sales"}).Document()),
              ElementsAre("Alpha/One/Sales", "Beta/One/Sales"));
  EXPECT_THAT(CubesOf(Import(provider, {"--source", "Beta", "--cube", "Sales"}).Document()),
              ElementsAre("Beta/One/Sales", "Beta/Two/Sales"));
  EXPECT_THAT(CubesOf(Import(provider, {"--source", "Beta", "--source", "Alpha", "--cube", "Stock"})
                          .Document()),
              ElementsAre("Alpha/One/Stock", "Beta/One/Stock"));
  for (const support::Request& request : provider.Requests()) {
    const bool ofStock = support::RequestType(request.body) == "MDSCHEMA_MEASURES" &&
                         request.body.find("Stock") != std::string::npos;
    EXPECT_TRUE(!ofStock || request.body.find("<Catalog>One</Catalog>") != std::string::npos);
  }
}

TEST(Import, ReadsOnlyTheTreesOfNamedSources) {
  const ScriptedProvider provider(Cubes());
  Import(provider, {"--source", "Beta"});
  for (const support::Request& request : provider.Requests())
    EXPECT_THAT(request.body, Not(testing::HasSubstr("Alpha")));
}

TEST(Import, UnknownNameListsExistingOnesAndReadsNoCube) {
  const std::pair<Arguments, const char*> cases[] = {
      {{"--source", "Gamma"}, "there is no data source \"Gamma\"; there are: \"Alpha\", \"Beta\""},
      {{"--catalog", "Three"}, "there is no catalog \"Three\"; there are: \"One\", \"Two\""},
      {{"--catalog", "Two", "--cube", "Stock"},
       "there is no cube \"Stock\" in the chosen catalogs; there are: \"Sales\""},
  };
  for (const auto& [arguments, says] : cases) {
    const ScriptedProvider provider(Cubes());
    const Outcome outcome = Import(provider, arguments);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.Document()["errors"], Json({says}));
    EXPECT_EQ(outcome.Document()["cubes"], Json::array());
    EXPECT_THAT(provider.RequestTypes(), Not(Contains("MDSCHEMA_HIERARCHIES")));
  }
}

TEST(Import, ReadsKnownNamesAndReportsUnknownOnes) {
  const std::pair<Arguments, const char*> cases[] = {
      {{"--source", "Gamma", "--source", "Alpha"},
       "there is no data source \"Gamma\"; there are: \"Alpha\", \"Beta\""},
      {{"--source", "Alpha", "--catalog", "Three", "--catalog", "One", "--catalog", "Two"},
       "there is no catalog \"Three\" in the chosen data sources; there are: \"One\", \"Two\""},
      {{"--source", "Alpha", "--cube", "Sales", "--cube", "Stock", "--cube", "None"},
       "there is no cube \"None\" in the chosen data sources; there are: \"Sales\", \"Stock\""},
  };
  const ScriptedProvider provider(Cubes());
  for (const auto& [arguments, says] : cases) {
    const Outcome outcome = Import(provider, arguments);
    EXPECT_EQ(outcome.status, 3);
    EXPECT_EQ(outcome.Document()["errors"], Json({says}));
    EXPECT_THAT(CubesOf(outcome.Document()),
                ElementsAre("Alpha/One/Sales", "Alpha/One/Stock", "Alpha/Two/Sales"));
  }
}

TEST(Import, KeepsOtherCubesIfACubeFails) {
  ScriptedProvider::Script script = Cubes();
  script.answer = [](const std::string& type, const std::string& body) {
    const bool fails = type == "MDSCHEMA_HIERARCHIES" && body.find("Stock") != std::string::npos;
    return fails ? support::FaultReply("Server", "broken") : std::string();
  };
  const ScriptedProvider provider(std::move(script));
  const Outcome outcome = Import(provider, {"--source", "Alpha"});
  EXPECT_EQ(outcome.status, 3);
  const Json document = outcome.Document();
  ASSERT_EQ(document["cubes"].size(), 3u);
  EXPECT_EQ(document["cubes"][0]["errors"].size(), 0u);
  EXPECT_EQ(document["cubes"][1]["errors"].size(), 2u);
  EXPECT_EQ(document["errors"], Json::array());
  EXPECT_THAT(outcome.err, testing::HasSubstr("error: \"Stock\": [64203] "));
}

TEST(Import, KeepsOtherCubesIfPartOfTheTreeFails) {
  ScriptedProvider::Script script = Cubes();
  script.answer = [](const std::string& type, const std::string& body) {
    const bool fails = type == "DBSCHEMA_CATALOGS" && body.find("Beta") != std::string::npos;
    return fails ? support::FaultReply("Server", "broken") : std::string();
  };
  const ScriptedProvider provider(std::move(script));
  const Outcome outcome = Import(provider, {});
  EXPECT_EQ(outcome.status, 3);
  EXPECT_EQ(outcome.Document()["cubes"].size(), 3u);
  EXPECT_EQ(outcome.Document()["errors"].size(), 2u);
}

TEST(Import, WithoutCubesIsAnError) {
  const ScriptedProvider empty(ScriptedProvider::Script{});
  const Outcome outcome = Import(empty, {});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.Document()["errors"], Json({"the provider has no cubes to import"}));

  ScriptedProvider::Script script = Cubes();
  script.answer = [](const std::string& type, const std::string&) {
    return type == "MDSCHEMA_HIERARCHIES" ? support::FaultReply("Server", "broken") : std::string();
  };
  const ScriptedProvider broken(std::move(script));
  EXPECT_EQ(Import(broken, {}).status, 3);  // the measures were read
  script = Cubes();
  script.answer = [](const std::string& type, const std::string&) {
    return type.starts_with("MDSCHEMA_") && type != "MDSCHEMA_CUBES"
               ? support::FaultReply("Server", "broken")
               : std::string();
  };
  const ScriptedProvider silent(std::move(script));
  EXPECT_EQ(Import(silent, {}).status, 1);
}

/// After the first refused connection, the remaining cubes are not tried.
TEST(Import, EndsIfTheServerCannotBeReached) {
  std::vector<Row> cubes;
  for (int i = 0; i < 50; ++i) cubes.push_back({{"CUBE_NAME", "Cube " + std::to_string(i)}});
  const support::ReservedPort port;
  std::optional<ScriptedProvider> provider;
  ScriptedProvider::Script script = OneCube();
  script.rows["MDSCHEMA_CUBES Lone"] = std::move(cubes);
  std::promise<void> reached;
  std::atomic<bool> isFirst{true};
  script.answer = [&](const std::string& type, const std::string& body) -> std::string {
    if (type == "MDSCHEMA_HIERARCHIES" && body.find("Cube 3<") != std::string::npos &&
        isFirst.exchange(false))
      reached.set_value();
    return {};
  };
  provider.emplace(std::move(script), port.Port());
  const Outcome outcome =
      RunToolWhile({"--url", provider->Url(), "--format", "json", "import"}, [&](pid_t) {
        reached.get_future().wait();
        provider.reset();
      });
  EXPECT_EQ(outcome.status, 3);
  const Json document = outcome.Document();
  const std::size_t read = document["cubes"].size();
  EXPECT_LT(read, 50u);
  EXPECT_EQ(document["errors"], Json({"the server cannot be reached: " + std::to_string(50 - read) +
                                      " of 50 cubes are not in the result"}));
}

TEST(Import, WarnsOnceIfTheKindsDiffer) {
  const ScriptedProvider provider(Cubes());
  const Outcome outcome = Import(
      provider, {"--target", "tessera", "--source", "Provider=alpha", "--source", "Provider=beta"});
  EXPECT_EQ(outcome.Document()["warnings"].size(), 1u) << outcome.out;
  EXPECT_EQ(outcome.Document()["provider"]["name"], "Test Server");
}

/// A provider of two cubes. In the cube Broken, two levels of the hierarchy have the same number.
ScriptedProvider::Script TwoLevelsWithOneNumber() {
  ScriptedProvider::Script script = OneCube();
  script.rows["MDSCHEMA_CUBES Lone"] = {
      {{"CUBE_NAME", "First"}}, {{"CUBE_NAME", "Broken"}}, {{"CUBE_NAME", "Last"}}};
  script.answer = [](const std::string& type, const std::string& body) -> std::string {
    if (type != "MDSCHEMA_LEVELS" || body.find("Broken") == std::string::npos) return {};
    return support::RowsetReply(
        "<row><LEVEL_NAME>A</LEVEL_NAME><LEVEL_UNIQUE_NAME>[A]</LEVEL_UNIQUE_NAME>"
        "<LEVEL_NUMBER>1</LEVEL_NUMBER></row>"
        "<row><LEVEL_NAME>B</LEVEL_NAME><LEVEL_UNIQUE_NAME>[B]</LEVEL_UNIQUE_NAME>"
        "<LEVEL_NUMBER>1</LEVEL_NUMBER></row>");
  };
  return script;
}

TEST(Import, LosesOnlyTheCubeThatBreaksARule) {
  const ScriptedProvider provider(TwoLevelsWithOneNumber());
  for (const char* jobs : {"1", "3"}) {
    const Outcome outcome = Import(provider, {"--jobs", jobs});
    EXPECT_EQ(outcome.status, 3) << outcome.signal << outcome.err;
    const Json document = outcome.Document();
    ASSERT_EQ(document["cubes"].size(), 3u);
    for (const std::size_t whole : {0u, 2u}) {
      EXPECT_EQ(document["cubes"][whole]["errors"], Json::array());
      EXPECT_EQ(document["cubes"][whole]["hierarchies"].size(), 1u);
    }
    const Json& broken = document["cubes"][1];
    EXPECT_EQ(broken["errors"],
              Json({"the provider reports two levels with the same number in the hierarchy "
                    "\"[Shop].[Place]\"; the cube is incomplete"}));
    EXPECT_EQ(broken["measures"].size(), 2u);
  }
  const Outcome alone =
      RunTool({"--url", provider.Url(), "--format", "json", "cube", "--cube", "Broken"});
  EXPECT_EQ(alone.status, 3);
  EXPECT_EQ(alone.Document()["errors"].size(), 1u);
  EXPECT_EQ(alone.Document()["measures"].size(), 2u);
}

/// Delays the reply with the measures of a cube until released.
class Held {
 public:
  explicit Held(std::string cube) : m_cube(std::move(cube)) {}
  ScriptedProvider::Script Script() {
    ScriptedProvider::Script script = OneCube();
    script.rows["MDSCHEMA_CUBES Lone"] = {
        {{"CUBE_NAME", "First"}}, {{"CUBE_NAME", "Second"}}, {{"CUBE_NAME", "Third"}}};
    script.answer = [this](const std::string& type, const std::string& body) {
      if (type == "MDSCHEMA_MEASURES" && body.find(m_cube) != std::string::npos)
        m_released.wait_for(std::chrono::seconds(20));
      return std::string();
    };
    return script;
  }
  void Release() { m_release.set_value(); }

 private:
  const std::string m_cube;
  std::promise<void> m_release;
  const std::shared_future<void> m_released = m_release.get_future().share();
};

TEST(Import, WritesEachCubeWhenItAndAllBeforeItAreRead) {
  struct Case {
    const char* format;
    const char* jobs;
    const char* held;
    const char* written;  // meanwhile
    const char* unwritten;
  };
  constexpr Case kCases[] = {
      {"json", "1", "Second", "\"First\"", "\"Second\""},
      {"text", "1", "Second", "cube First", "cube Second"},
      {"json", "3", "Second", "\"First\"", "\"Third\""},
      {"text", "2", "Third", "cube Second", "cube Third"},
  };
  for (const Case& each : kCases) {
    SCOPED_TRACE(std::string(each.format) + each.jobs);
    Held held(each.held);
    const ScriptedProvider provider(held.Script());
    const support::TempDir folder;
    const std::string pipe = folder.Path() / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    std::string text;
    const Outcome outcome =
        RunToolWhile({"--url", provider.Url(), "--format", each.format, "-o", pipe, "import",
                      "--jobs", each.jobs},
                     [&](pid_t) {
                       const int reader = open(pipe.c_str(), O_RDONLY | O_CLOEXEC);
                       char block[4096];
                       const auto readOn = [&] {
                         const ssize_t count = read(reader, block, sizeof block);
                         if (count > 0) text.append(block, static_cast<std::size_t>(count));
                         return count > 0;
                       };
                       while (text.find(each.written) == std::string::npos && readOn()) {
                       }
                       EXPECT_THAT(text, testing::HasSubstr(each.written));
                       EXPECT_THAT(text, Not(testing::HasSubstr(each.unwritten)));
                       held.Release();
                       while (readOn()) {
                       }
                       close(reader);
                     });
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(text, RunTool({"--url", provider.Url(), "--format", each.format, "import"}).out);
  }
}

TEST(Import, ShowsMessagesOfACubeWhenItIsWritten) {
  Held held("Second");
  ScriptedProvider::Script script = held.Script();
  const auto hold = script.answer;
  script.answer = [&](const std::string& type, const std::string& body) {
    if (type == "MDSCHEMA_HIERARCHIES" && body.find("First") != std::string::npos)
      return support::FaultReply("Server", "broken");
    return hold(type, body);
  };
  const ScriptedProvider provider(std::move(script));
  const support::TempDir folder;
  const std::string messages = folder.Path() / "messages";
  Options options;
  options.prepare = [&] {
    dup2(open(messages.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600), STDERR_FILENO);
  };
  const Outcome outcome = RunToolWhile(
      {"--url", provider.Url(), "--warnings", "all", "import"},
      [&](pid_t) {
        std::string text;
        for (int i = 0; i < 1000 && text.find("failed request") == std::string::npos; ++i) {
          std::this_thread::sleep_for(std::chrono::milliseconds(10));
          text = support::ReadFile(messages);
        }
        EXPECT_THAT(text, testing::HasSubstr("xmla-import: error: \"First\": [64203] "));
        EXPECT_THAT(text, testing::HasSubstr("xmla-import: note: \"First\": the failed request "
                                             "was MDSCHEMA_HIERARCHIES"));
        held.Release();
      },
      options);
  EXPECT_EQ(outcome.status, 3);
}

TEST(Import, LimitsReadingAheadOfWriting) {
  Held held("First");
  ScriptedProvider::Script script = held.Script();
  std::vector<Row>& cubes = script.rows["MDSCHEMA_CUBES Lone"];
  for (int i = 0; i < 100; ++i) cubes.push_back({{"CUBE_NAME", "Cube " + std::to_string(i)}});
  const ScriptedProvider provider(std::move(script));
  const auto asked = [&] {
    const std::vector<std::string> types = provider.RequestTypes();
    return std::count(types.begin(), types.end(), "MDSCHEMA_MEASURES");
  };
  std::ptrdiff_t ahead = 0;
  const Outcome outcome =
      RunToolWhile({"--url", provider.Url(), "import", "--jobs", "2"}, [&](pid_t) {
        // Until no more requests arrive.
        for (int unchanged = 0; unchanged < 20 || ahead == 0; ++unchanged) {
          std::this_thread::sleep_for(std::chrono::milliseconds(10));
          if (std::exchange(ahead, asked()) != asked()) unchanged = 0;
        }
        held.Release();
      });
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(asked(), 103);
  EXPECT_GE(ahead, 2);
  EXPECT_LE(ahead, 10);
}

TEST(Import, MemoryIsIndependentOfTheNumberOfCubes) {
  if (support::kIsSanitized) GTEST_SKIP() << "skipped: a sanitizer keeps memory that was freed";
  std::string rows;
  for (int i = 0; i < 1000; ++i)
    rows += "<row><MEASURE_NAME>Measure " + std::to_string(i) + "</MEASURE_NAME></row>";
  const std::string measures = support::RowsetReply(rows);
  const auto peak = [&](int cubes) {
    ScriptedProvider::Script script = OneCube();
    std::vector<Row>& rowset = script.rows["MDSCHEMA_CUBES Lone"];
    for (int i = 1; i < cubes; ++i) rowset.push_back({{"CUBE_NAME", "Cube " + std::to_string(i)}});
    std::atomic<pid_t> tool{0};
    std::atomic<long> most{0};
    script.answer = [&](const std::string& type, const std::string&) -> std::string {
      if (type != "MDSCHEMA_MEASURES") return {};
      most = std::max(most.load(), support::PeakResidentKiB(tool));
      return measures;
    };
    const ScriptedProvider provider(std::move(script));
    const support::TempDir folder;
    const Outcome outcome = RunToolWhile({"--url", provider.Url(), "--format", "json", "-o",
                                          folder.Path() / "result", "import", "--jobs", "2"},
                                         [&](pid_t process) { tool = process; });
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_GT(most, 0);
    return most.load();
  };
  const long few = peak(20);
  EXPECT_LE(peak(200), few * 13 / 10) << few;
}

TEST(Import, EndsAtOnceOnAWriteError) {
  ScriptedProvider::Script script = OneCube();
  std::vector<Row>& rowset = script.rows["MDSCHEMA_CUBES Lone"];
  for (int i = 1; i < 100; ++i) rowset.push_back({{"CUBE_NAME", "Cube " + std::to_string(i)}});
  const ScriptedProvider provider(std::move(script));
  Options options;
  options.out = Stream::kFull;
  const Outcome outcome = RunTool({"--url", provider.Url(), "import", "--jobs", "2"}, options);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err,
            "xmla-import: error: the result cannot be written to standard output: No space left "
            "on device\n");
  EXPECT_LT(provider.Requests().size(), 100u);
}

TEST(Import, LogsEachCubeInItsOwnFolder) {
  const ScriptedProvider provider(Cubes());
  const support::TempDir logs;
  EXPECT_EQ(Import(provider, {"--source", "Alpha", "--jobs", "3", "--log", logs.Path()}).status, 0);
  std::vector<std::string> folders;
  for (const auto& file : logs.Files())
    folders.push_back(file.parent_path().lexically_relative(logs.Path()));
  EXPECT_THAT(folders, testing::UnorderedElementsAre(".", "cube-1", "cube-2", "cube-3"));
}

}  // namespace
}  // namespace tool
