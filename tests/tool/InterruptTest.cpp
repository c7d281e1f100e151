// An interrupted call ends soon, with status 130 and everything that was complete.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <semaphore>
#include <stdexcept>
#include <thread>

#include "support/Effort.h"
#include "support/Sanitized.h"
#include "support/TempDir.h"
#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

using std::chrono::steady_clock;
using testing::HasSubstr;

double SecondsSince(steady_clock::time_point begin) {
  return std::chrono::duration<double>(steady_clock::now() - begin).count();
}

constexpr double kSlack = support::kIsSanitized ? 5 : 1;
constexpr double kAtOnce = 0.2 * kSlack;
/// A reader that does not read has half a second.
constexpr double kWithGrace = 0.8 * kSlack;

class Interrupt : public testing::Test {
 protected:
  /// Fails unless the tool ends in time. `attempt` interrupts it and returns the seconds from the
  /// signal to its end. Repeats a slow attempt, since the machine may be busy.
  template <class Attempt>
  static void ExpectWithin(double bound, Attempt attempt) {
    double seconds = attempt();
    for (int again = 0; again < 3 && seconds > bound && !HasFailure(); ++again) {
      ++m_repeated;
      seconds = attempt();
    }
    EXPECT_LT(seconds, bound);
    ++m_ended;
    m_longest = std::max(m_longest, seconds / bound);
  }

  static void TearDownTestSuite() {
    if (m_ended == 0 || testing::UnitTest::GetInstance()->Failed()) return;
    support::PrintFigure("the tool interrupted while it waits, renders and writes",
                         std::to_string(m_ended) + " cases ended within " +
                             std::to_string(static_cast<int>(m_longest * 100) + 1) +
                             " % of the allowed time, " + std::to_string(m_repeated) +
                             " repeated because they were slower");
  }

 private:
  inline static int m_ended = 0;
  inline static int m_repeated = 0;
  inline static double m_longest = 0;
};

/// Set when a request arrives that is never answered.
class Stalled {
 public:
  /// A reply that is delayed until the end of the test.
  std::string Hold() {
    if (!m_signalled.exchange(true)) m_arrived.set_value();
    m_released.wait();
    return {};
  }
  /// Returns false if no request arrives for a long time.
  bool Await() {
    return m_arrived.get_future().wait_for(std::chrono::seconds(20)) == std::future_status::ready;
  }
  void Release() { m_release.set_value(); }

 private:
  std::atomic<bool> m_signalled{false};
  std::promise<void> m_arrived;
  std::promise<void> m_release;
  std::shared_future<void> m_released = m_release.get_future().share();
};

/// Two cubes. The measures of the second one are delayed.
ScriptedProvider::Script StalledAtSecondCube(Stalled& stalled) {
  ScriptedProvider::Script script = OneCube();
  script.rows["MDSCHEMA_CUBES Lone"] = {{{"CUBE_NAME", "First"}}, {{"CUBE_NAME", "Second"}}};
  script.answer = [&](const std::string& type, const std::string& body) -> std::string {
    const bool held = type == "MDSCHEMA_MEASURES" && body.find("Second") != std::string::npos;
    return held ? stalled.Hold() : std::string();
  };
  return script;
}

/// A request that is never answered, during which the tool is interrupted.
struct StalledRequest {
  const char* command;
  ScriptedProvider::Script (*script)();
  const char* type;
  const char* name;  ///< text in the body of the request
};

/// Interrupts the tool while it waits for the reply. Returns its JSON document, and in `seconds`
/// the time until its end.
Json InterruptedAt(const StalledRequest& request, int signal, double& seconds) {
  Stalled stalled;
  ScriptedProvider::Script script = request.script();
  script.answer = [&](const std::string& type, const std::string& body) -> std::string {
    const bool isHeld = type == request.type && body.find(request.name) != std::string::npos;
    return isHeld ? stalled.Hold() : std::string();
  };
  const ScriptedProvider provider(std::move(script));
  steady_clock::time_point sent;
  const Outcome outcome = RunToolWhile(
      {"--url", provider.Url(), request.command, "--format", "json"}, [&](pid_t process) {
        EXPECT_TRUE(stalled.Await());
        sent = steady_clock::now();
        kill(process, signal);
      });
  seconds = SecondsSince(sent);
  stalled.Release();
  EXPECT_EQ(outcome.status, 130);
  return outcome.Document();
}

TEST_F(Interrupt, EndsATransferAtOnceAndKeepsCompleteResults) {
  for (const int signal : {SIGINT, SIGTERM})
    ExpectWithin(kAtOnce, [&] {
      double seconds = 0;
      const Json document =
          InterruptedAt({"tree", TwoSources, "DBSCHEMA_CATALOGS", "Beta"}, signal, seconds);
      EXPECT_EQ(document["dataSources"].size(), 1u);
      EXPECT_EQ(document["dataSources"][0]["name"], "Alpha");
      EXPECT_EQ(document["errors"].size(), 1u);
      return seconds;
    });
}

TEST_F(Interrupt, KeepsCompleteCubesAndTheCubeInProgress) {
  const auto threeCubes = [] {
    ScriptedProvider::Script script = OneCube();
    script.rows["MDSCHEMA_CUBES Lone"] = {
        {{"CUBE_NAME", "First"}}, {{"CUBE_NAME", "Second"}}, {{"CUBE_NAME", "Third"}}};
    return script;
  };
  ExpectWithin(kAtOnce, [&] {
    double seconds = 0;
    const Json document =
        InterruptedAt({"import", threeCubes, "MDSCHEMA_MEASURES", "Second"}, SIGINT, seconds);
    EXPECT_EQ(document["cubes"].size(), 2u);
    EXPECT_EQ(document["cubes"][0]["cube"], "First");
    EXPECT_EQ(document["cubes"][0]["errors"], Json::array());
    EXPECT_EQ(document["cubes"][1]["cube"], "Second");
    EXPECT_EQ(document["cubes"][1]["hierarchies"].size(), 1u);
    EXPECT_EQ(document["cubes"][1]["measures"], Json::array());
    EXPECT_EQ(document["cubes"][1]["errors"].size(), 1u);
    EXPECT_EQ(document["errors"], Json({"interrupted: 1 of 3 cubes is not in the result"}));
    return seconds;
  });
}

TEST_F(Interrupt, BeforeTheFirstCubeSaysThatThereIsNone) {
  ExpectWithin(kAtOnce, [&] {
    double seconds = 0;
    const Json document =
        InterruptedAt({"import", OneCube, "MDSCHEMA_HIERARCHIES", ""}, SIGINT, seconds);
    EXPECT_EQ(document["errors"], Json({"interrupted: no cube was read completely"}));
    return seconds;
  });
}

/// What is at the name FILE.partial before the call, and where the partial result goes.
struct PartialCase {
  std::string name;
  std::function<void(const std::filesystem::path&)> prepare;
  std::string partial;
  mode_t mode = 0;  ///< of the partial file; 0: any
};
const PartialCase kPartialCases[] = {
    {"result", [](const auto&) {}, "result.partial"},
    {"result", [](const auto& path) { std::ofstream(path) << "old"; }, "result.partial"},
    {"result",
     [](const auto& path) {
       std::ofstream(path) << "secret";
       chmod(path.c_str(), 0600);
     },
     "result.partial", 0600},
    {"result", [](const auto& path) { std::filesystem::create_directory(path); },
     "xmla-import-1.partial"},
    {"result",
     [](const auto& path) {
       std::filesystem::create_symlink("elsewhere", path);
       std::ofstream(path.parent_path() / "xmla-import-1.partial") << "taken";
     },
     "xmla-import-2.partial"},
    {std::string(248, 'n'), [](const auto&) {}, "xmla-import-1.partial"},
    {std::string(247, 'n') + ".partial", [](const auto&) {}, "xmla-import-1.partial"},
};

/// The file that was asked for stays. What was read is next to it, and nothing else is changed.
TEST_F(Interrupt, LeavesAPartialFileBesideTheFormerOne) {
  for (const bool exists : {true, false})
    for (const PartialCase& each : kPartialCases) {
      SCOPED_TRACE(each.name + " " + each.partial);
      Stalled stalled;
      const ScriptedProvider provider(StalledAtSecondCube(stalled));
      const support::TempDir folder;
      const std::string file = folder.Path() / each.name;
      if (each.name.size() < 200) each.prepare(file + ".partial");
      if (exists) std::ofstream(file) << "former";
      const Outcome outcome = RunToolWhile(
          {"--url", provider.Url(), "import", "-o", file, "--format", "json"}, [&](pid_t process) {
            EXPECT_TRUE(stalled.Await());
            kill(process, SIGINT);
          });
      stalled.Release();
      EXPECT_EQ(outcome.status, 130);
      EXPECT_EQ(
          outcome.ErrorLines().back(),
          "xmla-import: note: \"" + file + (exists ? "\" is unchanged" : "\" was not created") +
              "; the partial result is in \"" + (folder.Path() / each.partial).string() + "\"");
      EXPECT_EQ(std::filesystem::exists(file), exists);
      if (exists) {
        EXPECT_EQ(support::ReadFile(file), "former");
      }
      const std::filesystem::path partial = folder.Path() / each.partial;
      EXPECT_EQ(Json::parse(support::ReadFile(partial))["cubes"].size(), 2u);
      struct stat status {};
      EXPECT_EQ(lstat(partial.c_str(), &status), 0);
      if (each.mode != 0) {
        EXPECT_EQ(status.st_mode & 07777, each.mode);
      }
    }
}

/// Interrupts between the last reply of the tree and the first cube. Searches for this moment: the
/// import library reports an earlier interruption, and a later one comes after the selection.
TEST_F(Interrupt, DuringTheSelectionOfCubesIsReported) {
  ScriptedProvider::Script script = OneCube();
  std::vector<Row>& cubes = script.rows["MDSCHEMA_CUBES Lone"];
  for (int i = 0; i < 200000; ++i) cubes.push_back({{"CUBE_NAME", "cube " + std::to_string(i)}});
  std::counting_semaphore<> asked{0};
  script.answer = [&](const std::string& type, const std::string&) -> std::string {
    if (type == "MDSCHEMA_CUBES") asked.release();
    return {};
  };
  const ScriptedProvider provider(std::move(script));
  double early = 0;
  double late = 4;
  bool isFound = false;
  for (int attempt = 0; attempt < 40 && !isFound; ++attempt) {
    const double moment = (early + late) / 2;
    const Outcome outcome =
        RunToolWhile({"--url", provider.Url(), "import", "--cube", "none", "--format", "json"},
                     [&](pid_t process) {
                       asked.acquire();
                       std::this_thread::sleep_for(std::chrono::duration<double>(moment));
                       kill(process, SIGINT);
                     });
    const std::string text = outcome.out + outcome.err;
    EXPECT_EQ(text.find("no cubes"), std::string::npos) << text.substr(0, 1000);
    isFound = text.find("interrupted: no cube was read") != std::string::npos;
    if (outcome.status == 130 && text.find("[46066]") != std::string::npos)
      early = std::max(early, moment * 0.9 + early * 0.1);
    else
      late = std::min(late, moment * 0.9 + late * 0.1);
    if (late - early < 0.001) early *= 0.8, late *= 1.2;  // the machine was busy
  }
  EXPECT_TRUE(isFound);
}

TEST_F(Interrupt, AtThePromptEndsTheCallAndRestoresTheEcho) {
  // Seen in 1 of 200 runs; never in 800 runs without this sanitizer.
  if (support::kIsThreadSanitized)
    GTEST_SKIP() << "skipped: ThreadSanitizer rarely loses the signal at the prompt";
  ExpectWithin(kAtOnce, [] {
    Options options;
    options.terminal = true;
    options.typed = "\x03";  // Ctrl-C
    const Outcome outcome =
        RunTool({"--url", "http://127.0.0.1:1/", "--user", "ann", "sources"}, options);
    EXPECT_EQ(outcome.status, 130);
    EXPECT_FALSE(outcome.echoed);
    EXPECT_TRUE(outcome.echoes);
    return SecondsSince(outcome.typedAt);
  });
}

/// The names of logs started now and in the next seconds.
std::vector<std::string> LogNames(int seconds) {
  std::vector<std::string> names;
  for (std::time_t now = std::time(nullptr), end = now + seconds; now < end; ++now) {
    std::tm local{};
    localtime_r(&now, &local);
    char name[64];
    std::strftime(name, sizeof name, "OT_xmla_%Y_%m_%d_%H_%M_%S.log", &local);
    names.emplace_back(name);
  }
  return names;
}

/// A named pipe with a small buffer.
class NamedPipe {
 public:
  NamedPipe() {
    if (mkfifo(m_name.c_str(), 0600) != 0) throw std::runtime_error("no named pipe");
  }
  ~NamedPipe() {
    if (m_reader >= 0) close(m_reader);
  }
  NamedPipe(const NamedPipe&) = delete;
  NamedPipe& operator=(const NamedPipe&) = delete;

  const std::string& Name() const { return m_name; }
  void OpenReader() {
    m_reader = open(m_name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    fcntl(m_reader, F_SETPIPE_SZ, kSize);
  }
  bool IsFull() const {
    int waiting = 0;
    return ioctl(m_reader, FIONREAD, &waiting) == 0 && waiting >= kSize;
  }
  /// Reads until the writer has closed it.
  std::string ReadAll() const {
    std::string text;
    char block[kSize];
    fcntl(m_reader, F_SETFL, 0);
    for (ssize_t count; (count = read(m_reader, block, sizeof block)) > 0;)
      text.append(block, static_cast<std::size_t>(count));
    return text;
  }

 private:
  static constexpr int kSize = 4096;
  const support::TempDir m_folder;
  const std::string m_name = m_folder.Path() / "pipe";
  int m_reader = -1;
};

void Await(const std::function<bool()>& condition) {
  const auto limit = steady_clock::now() + std::chrono::seconds(10);
  while (steady_clock::now() < limit) {
    if (condition()) return;  // possibly only for a moment
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  ADD_FAILURE() << "what was awaited did not come";
}

/// The system call in which the process's first thread sleeps.
std::string SleepingPlace(pid_t process) {
  std::string place;
  std::ifstream("/proc/" + std::to_string(process) + "/wchan") >> place;
  return place;
}

/// True if the system call is visible: only root may inspect the tool.
bool IsVisible() { return geteuid() == 0; }
constexpr const char* kInvisible = "skipped: only root sees where the tool sleeps";

bool Sleeps(pid_t process, const char* where) {
  return SleepingPlace(process).find(where) != std::string::npos;
}

TEST_F(Interrupt, EndsWaitingForAFreeLogName) {
  if (!IsVisible()) GTEST_SKIP() << kInvisible;
  ExpectWithin(kAtOnce, [] {
    const ScriptedProvider provider(TwoSources());
    const support::TempDir logs;
    const std::vector<std::string> names = LogNames(20);
    for (const std::string& name : names) std::ofstream(logs.Path() / name) << "former";
    steady_clock::time_point sent;
    const Outcome outcome =
        RunToolWhile({"--url", provider.Url(), "--target", "analysis-services-2005", "--log",
                      logs.Path(), "--format", "json", "sources"},
                     [&](pid_t process) {
                       Await([&] { return Sleeps(process, "nanosleep"); });
                       sent = steady_clock::now();
                       kill(process, SIGTERM);
                     });
    const double seconds = SecondsSince(sent);
    EXPECT_EQ(outcome.status, 130);
    EXPECT_EQ(outcome.Document()["errors"].size(), 1u);
    EXPECT_TRUE(provider.Requests().empty());
    EXPECT_EQ(logs.Files().size(), names.size());
    for (const auto& file : logs.Files()) EXPECT_EQ(support::ReadFile(file), "former");
    return seconds;
  });
}

Arguments WholeImportInto(const std::string& place) {
  return {"--sample", "analysis-services", "--format", "json", "-o", place, "import"};
}

TEST_F(Interrupt, EndsWaitingForAReaderOfTheResult) {
  if (!IsVisible()) GTEST_SKIP() << kInvisible;
  struct Case {
    bool hasReader;
    const char* said;
  };
  for (const Case& each : {Case{false, ", so the result was not written\n"},
                           Case{true, ", so the result there is truncated\n"}}) {
    SCOPED_TRACE(each.said);
    ExpectWithin(kWithGrace, [&] {
      NamedPipe pipe;
      if (each.hasReader) pipe.OpenReader();
      steady_clock::time_point sent;
      const Outcome outcome = RunToolWhile(WholeImportInto(pipe.Name()), [&](pid_t process) {
        // The tool sleeps outside of poll only while it opens the pipe and waits for a reader.
        Await([&] { return each.hasReader ? pipe.IsFull() : Sleeps(process, "nanosleep"); });
        sent = steady_clock::now();
        kill(process, SIGTERM);
      });
      const double seconds = SecondsSince(sent);
      EXPECT_EQ(outcome.status, 130);
      EXPECT_THAT(outcome.err, testing::EndsWith("xmla-import: error: interrupted: \"" +
                                                 pipe.Name() + "\" has no reader" + each.said));
      return seconds;
    });
  }
}

TEST_F(Interrupt, KeepsAResultThatIsBeingReadComplete) {
  Arguments call{"--sample",  "analysis-services", "--format",        "json",   "cube", "--source",
                 "NORTHQUAY", "--catalog",         "Larkspur Retail", "--cube", "Sales"};
  const Outcome usual = RunTool(call);
  for (const int signal : {SIGINT, SIGTERM}) {
    NamedPipe pipe;
    pipe.OpenReader();
    Arguments intoPipe = call;
    intoPipe.insert(intoPipe.end(), {"-o", pipe.Name()});
    std::string text;
    const Outcome outcome = RunToolWhile(intoPipe, [&](pid_t process) {
      Await([&] { return pipe.IsFull(); });
      kill(process, signal);
      text = pipe.ReadAll();
    });
    EXPECT_EQ(outcome.status, 130);
    EXPECT_EQ(outcome.err, usual.err);
    EXPECT_EQ(text, usual.out);
  }
}

/// Many data sources with long names.
ScriptedProvider::Script LongNames(int count) {
  ScriptedProvider::Script script = TwoSources();
  std::vector<Row>& sources = script.rows["DISCOVER_DATASOURCES"];
  for (int i = 0; i < count; ++i)
    sources.push_back({{"DataSourceName", std::to_string(i) + std::string(40000, 'x')}});
  return script;
}

constexpr const char* kCutShort = "interrupted: the rest of the result is missing";

TEST_F(Interrupt, TruncatesAVeryLargeResultWithAMessage) {
  const ScriptedProvider provider(LongNames(400));
  for (const char* format : {"json", "text"}) {
    NamedPipe pipe;
    pipe.OpenReader();
    std::string text;
    const Outcome outcome =
        RunToolWhile({"--url", provider.Url(), "--format", format, "-o", pipe.Name(), "sources"},
                     [&](pid_t process) {
                       Await([&] { return pipe.IsFull(); });
                       kill(process, SIGINT);
                       text = pipe.ReadAll();
                     });
    EXPECT_EQ(outcome.status, 130);
    EXPECT_EQ(outcome.err, "xmla-import: error: " + std::string(kCutShort) + "\n");
    EXPECT_GT(text.size(), std::size_t{4} << 20);
    EXPECT_LT(text.size(), std::size_t{6} << 20);
    if (*format == 't') continue;
    const Json document = Json::parse(text, nullptr, false);
    ASSERT_FALSE(document.is_discarded());
    EXPECT_EQ(document["errors"], Json({kCutShort}));
    EXPECT_GT(document["dataSources"].size(), 50u);
  }
}

TEST_F(Interrupt, WaitsBrieflyForAReaderOfThePipe) {
  for (const bool hasReader : {false, true})
    ExpectWithin(hasReader ? kAtOnce : kWithGrace, [&] {
      Stalled stalled;
      ScriptedProvider::Script script = TwoSources();
      script.answer = [&](const std::string&, const std::string&) { return stalled.Hold(); };
      const ScriptedProvider provider(std::move(script));
      NamedPipe pipe;
      if (hasReader) pipe.OpenReader();
      steady_clock::time_point sent;
      const Outcome outcome =
          RunToolWhile({"--url", provider.Url(), "--format", "json", "-o", pipe.Name(), "sources"},
                       [&](pid_t process) {
                         EXPECT_TRUE(stalled.Await());
                         sent = steady_clock::now();
                         kill(process, SIGTERM);
                       });
      const double seconds = SecondsSince(sent);
      stalled.Release();
      EXPECT_EQ(outcome.status, 130);
      EXPECT_EQ(outcome.err.find("has no reader") == std::string::npos, hasReader) << outcome.err;
      if (hasReader) {
        EXPECT_EQ(Json::parse(pipe.ReadAll())["errors"].size(), 1u);
      }
      return seconds;
    });
}

/// The file exists, not only its name is reserved.
bool IsOpenToWrite(pid_t process, const std::string& descriptor) {
  std::ifstream information("/proc/" + std::to_string(process) + "/fdinfo/" + descriptor);
  for (std::string line; std::getline(information, line);)
    if (line.starts_with("flags:"))
      return (std::stoul(line.substr(6), nullptr, 8) & (O_PATH | O_WRONLY)) == O_WRONLY;
  return false;
}

TEST_F(Interrupt, EndsWaitingForABlockedTerminal) {
  if (!IsVisible()) GTEST_SKIP() << kInvisible;
  for (const bool isStopped : {false, true})
    ExpectWithin(kWithGrace, [&] {
      const int screen = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
      EXPECT_TRUE(screen >= 0 && grantpt(screen) == 0 && unlockpt(screen) == 0);
      const std::string name = ptsname(screen);
      const int terminal = open(name.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
      if (isStopped) tcflow(terminal, TCOOFF);
      steady_clock::time_point sent;
      const Outcome outcome = RunToolWhile(WholeImportInto(name), [&](pid_t process) {
        // Nobody reads the terminal, so it blocks when its buffer is full.
        Await([&] {
          std::error_code error;
          for (const auto& file : std::filesystem::directory_iterator(
                   "/proc/" + std::to_string(process) + "/fd", error))
            if (std::filesystem::read_symlink(file.path(), error) == name &&
                IsOpenToWrite(process, file.path().filename()))
              return Sleeps(process, "poll");
          return false;
        });
        sent = steady_clock::now();
        kill(process, SIGINT);
      });
      const double seconds = SecondsSince(sent);
      EXPECT_EQ(outcome.status, 130) << isStopped;
      EXPECT_THAT(outcome.err, testing::EndsWith(", so the result there is truncated\n"));
      close(terminal);
      close(screen);
      return seconds;
    });
}

/// A provider of many cubes. `--verbose` prints every request.
ScriptedProvider::Script ManyCubes(int count) {
  ScriptedProvider::Script script = OneCube();
  std::vector<Row>& cubes = script.rows["MDSCHEMA_CUBES Lone"];
  for (int i = 0; i < count; ++i) cubes.push_back({{"CUBE_NAME", "Cube " + std::to_string(i)}});
  return script;
}

/// Waits until the tool, whose output nobody reads, sends no more requests.
void AwaitStandstill(const ScriptedProvider& provider) {
  std::size_t former = 0;
  int unchanged = 0;
  Await([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const std::size_t count = provider.Requests().size();
    unchanged = count == former ? unchanged + 1 : 0;
    former = count;
    return count > 20 && unchanged > 5;
  });
  EXPECT_LT(former, 200u);  // of many more
}

/// ThreadSanitizer delays a signal to a thread that waits for a mutex. With two jobs, one waits for
/// the other, which waits for a reader. One job alone avoids this.
constexpr const char* kJobs = support::kIsThreadSanitized ? "1" : "2";

struct Unread {
  Stream out;
  Stream err;
  int signal;
  const char* format;
};
constexpr Unread kUnread[] = {
    {Stream::kPipe, Stream::kUnread, SIGINT, "json"},
    {Stream::kUnread, Stream::kAsOut, SIGTERM, "text"},
    {Stream::kPipe, Stream::kUnread, SIGTERM, "text"},
    {Stream::kUnread, Stream::kAsOut, SIGINT, "json"},
};

TEST_F(Interrupt, EndsWaitingForAReaderOfStandardError) {
  std::size_t left = support::Effort<std::size_t>(2, std::size(kUnread));
  for (const Unread& each : kUnread) {
    if (left-- == 0) break;
    ExpectWithin(kWithGrace, [&] {
      const ScriptedProvider provider(ManyCubes(50));
      Options options;
      options.out = each.out;
      options.err = each.err;
      steady_clock::time_point sent;
      const Outcome outcome = RunToolWhile(
          {"--url", provider.Url(), "--verbose", "--format", each.format, "import", "--jobs",
           kJobs},
          [&](pid_t process) {
            AwaitStandstill(provider);
            sent = steady_clock::now();
            kill(process, each.signal);
          },
          options);
      const double seconds = SecondsSince(sent);
      EXPECT_EQ(outcome.status, 130) << outcome.signal;
      // A reader that continues gets what was complete.
      if (each.out == Stream::kPipe) {
        EXPECT_THAT(outcome.out, HasSubstr("Unit"));
      }
      return seconds;
    });
  }
}

/// Reads a pipe or terminal slowly, 4 kB after each pause, until it shall hurry.
class SlowReader {
 public:
  SlowReader(bool isTerminal, std::chrono::milliseconds pause) : m_pause(pause) {
    int ends[2] = {-1, -1};
    if (isTerminal) {
      ends[0] = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
      if (grantpt(ends[0]) == 0 && unlockpt(ends[0]) == 0)
        ends[1] = open(ptsname(ends[0]), O_RDWR | O_NOCTTY | O_CLOEXEC);
    } else if (pipe2(ends, O_CLOEXEC) == 0) {
      fcntl(ends[1], F_SETPIPE_SZ, 4 * kBlock);
    }
    m_reader = ends[0];
    m_writer = ends[1];
    if (m_writer < 0) throw std::runtime_error("no pipe or terminal");
  }
  ~SlowReader() {
    if (m_thread.joinable()) m_thread.join();
    close(m_reader);
  }
  SlowReader(const SlowReader&) = delete;
  SlowReader& operator=(const SlowReader&) = delete;

  int Writer() const { return m_writer; }
  /// Reads until all writers have closed. Closes the own one.
  void Start() {
    close(m_writer);
    m_thread = std::thread([this] {
      char block[kBlock];
      for (ssize_t count; (count = read(m_reader, block, sizeof block)) > 0;) {
        m_count += static_cast<std::size_t>(count);
        m_text.append(block, static_cast<std::size_t>(count));
        if (!m_hurries) std::this_thread::sleep_for(m_pause);
      }
    });
  }
  void Hurry() { m_hurries = true; }
  /// Bytes that were read.
  std::size_t Count() const { return m_count; }
  std::string All() {
    m_thread.join();
    return m_text;
  }

 private:
  static constexpr int kBlock = 4096;
  const std::chrono::milliseconds m_pause;
  int m_reader;
  int m_writer;
  std::atomic<std::size_t> m_count{0};
  std::atomic<bool> m_hurries{false};
  std::string m_text;
  std::thread m_thread;
};

/// One cube with virtual hierarchies that cause 10,000 warnings of at least 512 characters.
ScriptedProvider::Script ManyWarnings() {
  ScriptedProvider::Script script = OneCube();
  std::vector<Row>& rows = script.rows["MDSCHEMA_HIERARCHIES"];
  for (int i = 0; i < 10'000; ++i)
    rows.push_back(
        {{"HIERARCHY_UNIQUE_NAME", "[" + std::to_string(i) + std::string(400, 'h') + "]"},
         {"STRUCTURE", "0"},
         {"IS_VIRTUAL", "true"}});
  return script;
}

/// Interrupts the tool while it prints warnings. Returns the seconds until its end.
double SecondsToDropWarnings(const ScriptedProvider& provider, SlowReader& reader, bool hurries) {
  Options options;
  options.prepare = [&] { dup2(reader.Writer(), STDERR_FILENO); };
  steady_clock::time_point sent;
  const Outcome outcome = RunToolWhile(
      {"--url", provider.Url(), "--warnings", "all", "--format", "json", "import"},
      [&](pid_t process) {
        reader.Start();
        Await([&] { return reader.Count() > 10'000; });
        if (hurries) reader.Hurry();
        sent = steady_clock::now();
        kill(process, SIGINT);
      },
      options);
  const double seconds = SecondsSince(sent);
  EXPECT_EQ(outcome.status, 130) << outcome.signal;
  EXPECT_FALSE(Json::parse(outcome.out, nullptr, false).is_discarded());
  return seconds;
}

TEST_F(Interrupt, DropsWarningsThatAreReadSlowly) {
  const ScriptedProvider provider(ManyWarnings());
  const struct {
    bool isTerminal;
    int pause;  // in milliseconds
  } cases[] = {{false, 20}, {true, 20}, {false, 300}, {true, 300}};
  for (const auto& c : cases)
    ExpectWithin(0.1 * kSlack, [&] {
      SlowReader reader(c.isTerminal, std::chrono::milliseconds(c.pause));
      const double seconds = SecondsToDropWarnings(provider, reader, false);
      const std::string text = reader.All();
      EXPECT_THAT(text, HasSubstr("h]\" was skipped because it is virtual"));
      EXPECT_LT(text.size(), 200'000u);
      return seconds;
    });
}

TEST_F(Interrupt, CountsWarningsThatAreNotShown) {
  const ScriptedProvider provider(ManyWarnings());
  std::string text;
  // On a busy machine, the reader may be too slow even for one more line.
  for (int attempt = 0; attempt < 4 && text.find("not shown") == std::string::npos; ++attempt) {
    SlowReader reader(false, std::chrono::milliseconds(20));
    SecondsToDropWarnings(provider, reader, true);
    text = reader.All();
  }
  EXPECT_THAT(text, testing::ContainsRegex(
                        "\nxmla-import: warning: interrupted: [0-9]+ warnings are not shown\n"));
}

/// The signal still ends the process itself.
bool Catches(pid_t process, int signal) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(status, line);)
    if (line.starts_with("SigCgt:"))
      return (std::stoull(line.substr(7), nullptr, 16) >> (signal - 1) & 1) != 0;
  return false;
}

TEST_F(Interrupt, SecondSignalEndsTheToolAtOnce) {
  for (const int signal : {SIGINT, SIGTERM})
    ExpectWithin(kAtOnce, [&] {
      const ScriptedProvider provider(ManyCubes(50));
      const support::TempDir folder;
      const std::string file = folder.Path() / "result";
      std::ofstream(file) << "former";
      Options options;
      options.err = Stream::kUnread;
      steady_clock::time_point sent;
      const Outcome outcome = RunToolWhile(
          {"--url", provider.Url(), "--verbose", "-o", file, "import", "--jobs", kJobs},
          [&](pid_t process) {
            AwaitStandstill(provider);
            kill(process, signal);
            Await([&] { return !Catches(process, signal); });
            sent = steady_clock::now();
            kill(process, signal);
          },
          options);
      const double seconds = SecondsSince(sent);
      // More than half a second passed after the first signal. The machine is too busy for this
      // test.
      if (outcome.status == 130) return 2 * kAtOnce;
      EXPECT_EQ(outcome.signal, signal);
      EXPECT_EQ(folder.Files().size(), 1u);
      EXPECT_EQ(support::ReadFile(file), "former");
      return seconds;
    });
}

/// The unnamed file that the process has created in that folder, as a path that works while it is
/// open. Empty if none appears in time.
std::string AwaitOpenFile(pid_t process, const std::filesystem::path& folder) {
  const auto limit = steady_clock::now() + std::chrono::seconds(20);
  const std::string descriptors = "/proc/" + std::to_string(process) + "/fd";
  while (steady_clock::now() < limit) {
    std::error_code error;
    for (const auto& file : std::filesystem::directory_iterator(descriptors, error)) {
      const std::string place = std::filesystem::read_symlink(file.path(), error);
      if (place.starts_with(folder.string() + "/") && place.ends_with(" (deleted)"))
        return file.path();
    }
  }
  return {};
}

TEST_F(Interrupt, WhileWritingAFileKeepsTheFormerFile) {
  if (!IsVisible()) GTEST_SKIP() << kInvisible;
  // Long enough that a signal at the creation of the unfinished file comes before its end.
  const ScriptedProvider provider(LongNames(400));
  constexpr off_t kLength = 400 * 40000;
  for (const char* format : {"text", "json"}) {
    off_t written = kLength;
    for (int attempt = 0; attempt < 10 && written >= kLength && !HasFailure(); ++attempt) {
      const support::TempDir folder;
      const std::string file = folder.Path() / "result";
      std::ofstream(file) << "former";
      ExpectWithin(kAtOnce, [&] {
        int unfinished = -1;
        steady_clock::time_point sent;
        const Outcome outcome =
            RunToolWhile({"--url", provider.Url(), "--format", format, "sources", "-o", file},
                         [&](pid_t process) {
                           const std::string name = AwaitOpenFile(process, folder.Path());
                           sent = steady_clock::now();
                           kill(process, SIGTERM);
                           unfinished = open(name.c_str(), O_RDONLY | O_CLOEXEC);
                         });
        const double seconds = SecondsSince(sent);
        const std::string found = support::ReadFile(file);
        if (outcome.status == 130) {
          EXPECT_EQ(found, "former");
          EXPECT_THAT(outcome.err, HasSubstr("\"" + file + "\" is unchanged"));
          struct stat status {};
          if (fstat(unfinished, &status) == 0) written = status.st_size;
        } else {
          EXPECT_EQ(outcome.status, 0);
          EXPECT_GT(found.size(), static_cast<std::size_t>(kLength));
        }
        close(unfinished);
        return outcome.status == 130 ? seconds : 0;
      });
    }
    EXPECT_LT(written, kLength) << "it was written to its end";
  }
}

TEST_F(Interrupt, WhileWritingACubeMarksItIncomplete) {
  if (!IsVisible()) GTEST_SKIP() << kInvisible;
  std::string rows;
  for (int i = 0; i < 20000; ++i)
    rows += "<row><MEASURE_NAME>" + std::to_string(i) + std::string(1000, 'x') +
            "</MEASURE_NAME></row>";
  const std::string measures = support::RowsetReply(rows);
  ScriptedProvider::Script script = OneCube();
  script.rows["MDSCHEMA_CUBES Lone"] = {{{"CUBE_NAME", "First"}}, {{"CUBE_NAME", "Second"}}};
  script.answer = [&](const std::string& type, const std::string&) {
    return type == "MDSCHEMA_MEASURES" ? measures : std::string();
  };
  const ScriptedProvider provider(std::move(script));
  bool isCut = false;
  for (int attempt = 0; attempt < 10 && !isCut && !HasFailure(); ++attempt) {
    const support::TempDir folder;
    const std::string file = folder.Path() / "result";
    std::ofstream(file) << "former";
    ExpectWithin(kAtOnce, [&] {
      steady_clock::time_point sent;
      const Outcome outcome = RunToolWhile(
          {"--url", provider.Url(), "import", "-o", file, "--format", "json"}, [&](pid_t process) {
            AwaitOpenFile(process, folder.Path());
            sent = steady_clock::now();
            kill(process, SIGINT);
          });
      const double seconds = SecondsSince(sent);
      EXPECT_EQ(outcome.status, 130);
      EXPECT_EQ(support::ReadFile(file), "former");
      EXPECT_EQ(folder.Files().size(), 2u);
      const Json document = Json::parse(support::ReadFile(file + ".partial"), nullptr, false);
      EXPECT_FALSE(document.is_discarded());
      if (document["cubes"].size() != 1) return seconds;
      const Json& cube = document["cubes"][0];
      isCut = !cube["errors"].empty();
      if (!isCut) return seconds;
      EXPECT_LT(cube["measures"].size(), 20000u);
      EXPECT_EQ(cube["errors"], Json({kCutShort}));
      EXPECT_EQ(document["errors"],
                Json({"interrupted: 1 of 2 cubes is not in the result", kCutShort}));
      return seconds;
    });
  }
  EXPECT_TRUE(isCut);
}

TEST_F(Interrupt, KillLeavesNoTemporaryFile) {
  for (const int signal : {SIGKILL, SIGQUIT, SIGHUP}) {
    Stalled stalled;
    const ScriptedProvider provider(StalledAtSecondCube(stalled));
    const support::TempDir folder;
    const std::string file = folder.Path() / "result";
    std::ofstream(file) << "former";
    const Outcome outcome =
        RunToolWhile({"--url", provider.Url(), "import", "-o", file}, [&](pid_t process) {
          EXPECT_TRUE(stalled.Await());
          kill(process, signal);
        });
    stalled.Release();
    EXPECT_EQ(outcome.signal, signal);
    EXPECT_EQ(folder.Files().size(), 1u);
    EXPECT_EQ(support::ReadFile(file), "former");
  }
}

TEST_F(Interrupt, IgnoredByTheCallerStaysIgnored) {
  Stalled stalled;
  ScriptedProvider::Script script = TwoSources();
  script.answer = [&](const std::string&, const std::string&) { return stalled.Hold(); };
  const ScriptedProvider provider(std::move(script));
  // Like nohup: an ignored signal stays ignored across exec.
  const auto former = std::signal(SIGINT, SIG_IGN);
  const Outcome outcome = RunToolWhile({"--url", provider.Url(), "sources"}, [&](pid_t process) {
    EXPECT_TRUE(stalled.Await());
    kill(process, SIGINT);
    stalled.Release();
  });
  std::signal(SIGINT, former);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "Alpha\nBeta\n");
}

}  // namespace
}  // namespace tool
