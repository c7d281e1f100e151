// An interrupted call ends soon, with status 130 and with what was complete.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <future>

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
