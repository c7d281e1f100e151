// An interrupted call ends soon, with status 130 and with what was complete.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <stdexcept>
#include <thread>

#include "support/TempDir.h"
#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

using std::chrono::steady_clock;

/// Set once a request that is never answered has arrived.
class Stalled {
 public:
  /// An answer that is held back until the end of the test.
  std::string Hold() {
    if (!m_signalled.exchange(true)) m_arrived.set_value();
    m_released.wait();
    return {};
  }
  /// False when none has come for so long that none will.
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

TEST(Interrupt, EndsATransferAtOnceAndKeepsWhatWasComplete) {
  for (const int signal : {SIGINT, SIGTERM}) {
    Stalled stalled;
    ScriptedProvider::Script script = TwoSources();
    script.answer = [&](const std::string& type, const std::string& body) -> std::string {
      const bool held = type == "DBSCHEMA_CATALOGS" && body.find("Beta") != std::string::npos;
      return held ? stalled.Hold() : std::string();
    };
    const ScriptedProvider provider(std::move(script));
    steady_clock::time_point sent;
    const Outcome outcome =
        RunToolWhile({"--url", provider.Url(), "tree", "--format", "json"}, [&](pid_t process) {
          EXPECT_TRUE(stalled.Await());
          sent = steady_clock::now();
          kill(process, signal);
        });
    const auto taken = steady_clock::now() - sent;
    stalled.Release();
    EXPECT_EQ(outcome.status, 130);
    EXPECT_LT(taken,
              std::chrono::seconds(2));  // far more than it takes, and far less than for ever
    const Json document = outcome.Document();
    ASSERT_EQ(document["dataSources"].size(), 1u);
    EXPECT_EQ(document["dataSources"][0]["name"], "Alpha");
    EXPECT_EQ(document["errors"].size(), 1u);
  }
}

TEST(Interrupt, OfAnImportKeepsTheCompleteCubes) {
  Stalled stalled;
  ScriptedProvider::Script script = OneCube();
  script.rows["MDSCHEMA_CUBES Lone"] = {{{"CUBE_NAME", "First"}}, {{"CUBE_NAME", "Second"}}};
  script.answer = [&](const std::string& type, const std::string& body) -> std::string {
    const bool held = type == "MDSCHEMA_MEASURES" && body.find("Second") != std::string::npos;
    return held ? stalled.Hold() : std::string();
  };
  const ScriptedProvider provider(std::move(script));
  const Outcome outcome =
      RunToolWhile({"--url", provider.Url(), "import", "--format", "json"}, [&](pid_t process) {
        EXPECT_TRUE(stalled.Await());
        kill(process, SIGINT);
      });
  stalled.Release();
  EXPECT_EQ(outcome.status, 130);
  const Json document = outcome.Document();
  ASSERT_EQ(document["cubes"].size(), 1u);
  EXPECT_EQ(document["cubes"][0]["cube"], "First");
  EXPECT_EQ(document["errors"], Json({"interrupted; 1 of 2 cubes are not in the result"}));
}

TEST(Interrupt, AtThePromptEndsTheCallAndBringsTheEchoBack) {
  Options options;
  options.terminal = true;
  options.typed = "\x03";  // Ctrl-C
  const Outcome outcome =
      RunTool({"--url", "http://127.0.0.1:1/", "--user", "ann", "sources"}, options);
  EXPECT_EQ(outcome.status, 130);
  EXPECT_FALSE(outcome.echoed);
  EXPECT_TRUE(outcome.echoes);
}

/// A named pipe that takes little at a time.
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
  /// Reads until the writer has gone.
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
    if (condition()) return;  // perhaps for a moment only
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  ADD_FAILURE() << "what was awaited did not come";
}

/// The system's function in which the process's first thread sleeps.
std::string SleepingPlace(pid_t process) {
  std::string place;
  std::ifstream("/proc/" + std::to_string(process) + "/wchan") >> place;
  return place;
}

Arguments WholeImportInto(const std::string& place) {
  return {"--sample", "analysis-services", "--format", "json", "-o", place, "import"};
}

TEST(Interrupt, EndsTheWaitingForAReaderOfTheResult) {
  struct Case {
    bool hasReader;
    const char* said;
  };
  for (const Case& each : {Case{false, "; the result is not written\n"},
                           Case{true, "; the result there is cut short\n"}}) {
    NamedPipe pipe;
    if (each.hasReader) pipe.OpenReader();
    steady_clock::time_point sent;
    const Outcome outcome = RunToolWhile(WholeImportInto(pipe.Name()), [&](pid_t process) {
      // Only waiting for the pipe's other end does it sleep without waiting for a descriptor.
      Await([&] {
        return each.hasReader ? pipe.IsFull()
                              : SleepingPlace(process).find("nanosleep") != std::string::npos;
      });
      sent = steady_clock::now();
      kill(process, SIGTERM);
    });
    EXPECT_LT(steady_clock::now() - sent, std::chrono::seconds(2));
    EXPECT_EQ(outcome.status, 130) << each.hasReader;
    EXPECT_THAT(outcome.err,
                testing::EndsWith("xmla-import: error: interrupted while nobody read \"" +
                                  pipe.Name() + '"' + each.said));
  }
}

TEST(Interrupt, LeavesAResultThatIsBeingReadWhole) {
  const Outcome usual = RunTool({"--sample", "analysis-services", "--format", "json", "import"});
  for (const int signal : {SIGINT, SIGTERM}) {
    NamedPipe pipe;
    pipe.OpenReader();
    std::string text;
    const Outcome outcome = RunToolWhile(WholeImportInto(pipe.Name()), [&](pid_t process) {
      Await([&] { return pipe.IsFull(); });
      kill(process, signal);
      text = pipe.ReadAll();
    });
    EXPECT_EQ(outcome.status, 130);
    EXPECT_EQ(outcome.err, usual.err);
    EXPECT_EQ(text, usual.out);
  }
}

TEST(Interrupt, BeforeThePipeIsOpenedWaitsAMomentForItsReader) {
  for (const bool hasReader : {false, true}) {
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
    EXPECT_LT(steady_clock::now() - sent, std::chrono::seconds(2));
    stalled.Release();
    EXPECT_EQ(outcome.status, 130);
    EXPECT_EQ(outcome.err.find("nobody read") == std::string::npos, hasReader) << outcome.err;
    if (hasReader) {
      EXPECT_EQ(Json::parse(pipe.ReadAll())["errors"].size(), 1u);
    }
  }
}

TEST(Interrupt, EndsTheWaitingForATerminalThatTakesNothing) {
  for (const bool isStopped : {false, true}) {
    const int screen = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_TRUE(screen >= 0 && grantpt(screen) == 0 && unlockpt(screen) == 0);
    const std::string name = ptsname(screen);
    const int terminal = open(name.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (isStopped) tcflow(terminal, TCOOFF);
    steady_clock::time_point sent;
    const Outcome outcome = RunToolWhile(WholeImportInto(name), [&](pid_t process) {
      // Nobody reads what the terminal shows, so it takes no more when it is full.
      Await([&] {
        std::error_code error;
        for (const auto& file :
             std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/fd", error))
          if (std::filesystem::read_symlink(file.path(), error) == name)
            return SleepingPlace(process).find("poll") != std::string::npos;
        return false;
      });
      sent = steady_clock::now();
      kill(process, SIGINT);
    });
    EXPECT_LT(steady_clock::now() - sent, std::chrono::seconds(2)) << isStopped;
    EXPECT_EQ(outcome.status, 130) << isStopped;
    EXPECT_THAT(outcome.err, testing::EndsWith("; the result there is cut short\n"));
    close(terminal);
    close(screen);
  }
}

TEST(Interrupt, WhileAFileIsWrittenLeavesTheFormerOne) {
  // Long enough that a signal at the birth of the unfinished file comes before its end.
  ScriptedProvider::Script script = TwoSources();
  std::vector<Row>& sources = script.rows["DISCOVER_DATASOURCES"];
  for (int i = 0; i < 400; ++i)
    sources.push_back({{"DataSourceName", std::to_string(i) + std::string(40000, 'x')}});
  const ScriptedProvider provider(std::move(script));
  int interrupted = 0;
  for (int attempt = 0; attempt < 10 && interrupted == 0; ++attempt) {
    const support::TempDir folder;
    const std::string file = folder.Path() / "result";
    std::ofstream(file) << "former";
    const int watch = inotify_init1(IN_CLOEXEC);
    inotify_add_watch(watch, folder.Path().c_str(), IN_CREATE);
    const Outcome outcome =
        RunToolWhile({"--url", provider.Url(), "sources", "-o", file}, [&](pid_t process) {
          pollfd created{watch, POLLIN, 0};
          EXPECT_EQ(poll(&created, 1, 20000), 1);
          kill(process, SIGTERM);
        });
    close(watch);
    EXPECT_EQ(folder.Files().size(), 1u);
    const std::string found = support::ReadFile(file);
    if (outcome.status == 130) {
      ++interrupted;
      EXPECT_EQ(found, "former");
      EXPECT_EQ(outcome.err, "xmla-import: error: interrupted before the result was in \"" + file +
                                 "\"; the file is as it was\n");
    } else {
      EXPECT_EQ(outcome.status, 0);
      EXPECT_GT(found.size(), 400u * 40000u);
    }
  }
  EXPECT_EQ(interrupted, 1);
}

TEST(Interrupt, ThatTheCallerIgnoresIsIgnored) {
  Stalled stalled;
  ScriptedProvider::Script script = TwoSources();
  script.answer = [&](const std::string&, const std::string&) { return stalled.Hold(); };
  const ScriptedProvider provider(std::move(script));
  // nohup's way: an ignored signal stays ignored across the execution.
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
