// SIGINT and SIGTERM at random moments of an import. It ends at once with status 130, with a
// partial file or none, and with logs whose last line is complete. The output file exists only if
// it is complete.

#include <gmock/gmock.h>
#include <signal.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <thread>

#include "NetworkSupport.h"
#include "SampleProvider.h"
#include "support/Effort.h"
#include "support/TempDir.h"
#include "tool/ToolProcess.h"

namespace network {
namespace {

namespace fs = std::filesystem;

/// Waits until the process handles the signal; before that, the signal would kill it.
void AwaitHandler(pid_t process, int signal) {
  const std::string file = "/proc/" + std::to_string(process) + "/status";
  for (;;) {
    std::ifstream status(file);
    bool any = false;
    for (std::string line; std::getline(status, line);) {
      any = true;
      if (!line.starts_with("SigCgt:")) continue;
      if (std::stoull(line.substr(7), nullptr, 16) >> (signal - 1) & 1) return;
    }
    if (!any) return;  // the process has ended
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

constexpr double kSeconds = 0.2 * Slack();

class InterruptMoments : public testing::Test {
 protected:
  struct Run {
    tool::Outcome outcome;
    double sinceSignal = 0;
    double whole = 0;  // since the handler was installed
    std::vector<fs::path> files;
  };

  static sample::Options Slow() {
    sample::Options options;
    options.latency = std::chrono::milliseconds(2);
    return options;
  }

  /// An import with a log and an output file. Sends the signal (0 for none) after `moment` seconds.
  Run Interrupted(int signal, double moment, const char* jobs) {
    Run run;
    ++m_runs;
    const support::TempDir folder;
    const fs::path output = folder.Path() / "cubes.json";
    Clock::time_point begin;
    Clock::time_point sent;
    run.outcome = tool::RunToolWhile(
        {"--url", m_provider.Url(sample::Kind::kAnalysisServices), "--format", "json", "-o", output,
         "--log", folder.Path() / "log", "import", "--jobs", jobs},
        [&](pid_t process) {
          AwaitHandler(process, signal ? signal : SIGINT);
          begin = Clock::now();
          std::this_thread::sleep_for(std::chrono::duration<double>(moment));
          sent = Clock::now();
          if (signal) kill(process, signal);
        });
    run.sinceSignal = SecondsSince(sent);
    run.whole = SecondsSince(begin);
    CheckFiles(folder, output, run.outcome.status);
    return run;
  }

  void CheckFiles(const support::TempDir& folder, const fs::path& output, int status) {
    bool isThere = false;
    for (const fs::path& file : folder.Files()) {
      SCOPED_TRACE(file);
      const std::string text = support::ReadFile(file);
      if (file == output || file == output.string() + ".partial") {
        isThere = file == output;
        EXPECT_EQ(isThere, status == 0);
        const tool::Json document = tool::Json::parse(text, nullptr, false);
        ASSERT_FALSE(document.is_discarded());
        EXPECT_EQ(document["errors"].empty(), isThere) << text.substr(0, 300);
        EXPECT_FALSE(document["cubes"].empty());
        ++m_outputs;
      } else {
        ASSERT_EQ(file.extension(), ".log") << "something is left behind";
        CheckLog(text);
      }
    }
    EXPECT_EQ(isThere, status == 0);
  }

  void CheckLog(const std::string& text) {
    ++m_logs;
    ASSERT_FALSE(text.empty());
    EXPECT_EQ(text.back(), '\n');
    const std::size_t line = text.rfind('\n', text.size() - 2);
    EXPECT_THAT(text.substr(line + 1), testing::MatchesRegex("Import ends at [-0-9]+ [0-9:.]+\n"));
  }

  const sample::Provider m_provider{Slow()};
  int m_outputs = 0;
  int m_logs = 0;
  int m_runs = 0;
};

TEST_F(InterruptMoments, EndTheImportAtOnceAndLeaveAPartialFileAtMost) {
  // The longest run: a busy machine may notice the start only at the end.
  double whole = 0;
  for (int i = 0; i < 3; ++i) whole = std::max(whole, Interrupted(0, 0, "2").whole);
  ASSERT_GT(whole, 0.01);
  const unsigned int seed = std::random_device()();
  std::printf("seed %u, the import takes %.3f s\n", seed, whole);
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  m_outputs = m_logs = m_runs = 0;
  const int moments = support::Effort(12, 200);
  double longest = 0;
  int late = 0;
  int slow = 0;
  for (int i = 0; i < moments; ++i) {
    const int signal = i % 2 ? SIGINT : SIGTERM;
    const double moment = std::uniform_real_distribution<>(0, whole)(random);
    SCOPED_TRACE("signal " + std::to_string(signal) + " after " + std::to_string(moment) + " s");
    const Run run = Interrupted(signal, moment, i % 3 ? "2" : "1");
    EXPECT_EQ(run.outcome.signal, 0);
    // An import that was complete has nothing to interrupt.
    late += run.outcome.status == 0;
    if (run.outcome.status == 0) whole *= 0.9;
    EXPECT_TRUE(run.outcome.status == 130 || run.outcome.status == 0) << run.outcome.err;
    if (run.outcome.status != 130) continue;
    longest = std::max(longest, run.sinceSignal);
    slow += run.sinceSignal > kSeconds;
  }
  // Other load can delay a process now and then.
  EXPECT_LE(slow, 1 + moments / 20);
  EXPECT_LT(longest, 10 * kSeconds);
  EXPECT_LT(late, moments / 2);
  Figure("interrupted imports",
         Text(moments, " signals at random moments: ", moments - late,
              " ended with status 130 after at most ", static_cast<int>(longest * 1e3) + 1, " ms, ",
              slow, " of them after more than ", 1e3 * kSeconds, " ms, ", late, " were done; ",
              m_outputs, " output or partial files whole, ", m_runs - m_outputs, " not there, ",
              m_logs, " logs ended cleanly"));
}

}  // namespace
}  // namespace network
