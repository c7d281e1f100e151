// Many exchanges on one agent, and many jobs against a provider with random fault modes.

#include <dirent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <map>
#include <random>

#include "ExemptServerSupport.h"
#include "NetworkSupport.h"
#include "OperationsSupport.h"
#include "SampleProvider.h"
#include "Utility/Generic/VXThread.h"
#include "support/Effort.h"
#include "support/FailingAllocation.h"
#include "support/ResidentMemory.h"
#include "support/Sanitized.h"
#include "tool/ToolProcess.h"

namespace reliability {
namespace {

long OpenDescriptors() {
  DIR* const folder = opendir("/proc/self/fd");
  long count = 0;
  while (readdir(folder)) ++count;
  closedir(folder);
  return count;
}

/// The minimum within 0.1 s, since threads may still be releasing resources.
long Settled(long (*count)()) {
  long least = count();
  for (int i = 0; i < 50; ++i, usleep(2000)) least = std::min(least, count());
  return least;
}

/// The sample provider of one kind, plus catalogs whose cubes cannot be read: the reply is broken,
/// truncated, or its reading is cancelled.
class TroubledServer {
 public:
  std::string Url() const { return m_server.Url(kKinds[1].path); }
  /// The execution state for reading the catalog "cancelled".
  std::atomic<VXExecutionState*> state{nullptr};
  std::atomic<long> requests{0};

 private:
  void Serve(loopback::Connection& wire, const loopback::Request& request) {
    ++requests;
    const auto isFor = [&](const char* catalog) {
      return request.body.find(catalog) != std::string::npos;
    };
    constexpr std::string_view kBegun = "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n<a>";
    if (isFor(">broken<")) {
      wire.Send(loopback::Answer("<a><b></a>"));
    } else if (isFor(">cut<")) {
      wire.Send(kBegun);
      wire.Close();
    } else if (isFor(">cancelled<")) {
      state.load()->RequestCancellation(VXExecutionState::kCancelReasonHost);
      wire.Send(kBegun);
      wire.AwaitPeerGone();
    } else {
      wire.Send(m_server.SampleAnswer(request));
    }
  }
  ExemptServer m_server{[this](loopback::Connection& wire, const loopback::Request& request) {
    Serve(wire, request);
  }};
};

TEST(Endurance, ManyExchangesOnOneAgentLeakNothing) {
  TroubledServer server;
  Subject subject(kKinds[1], server.Url());
  const auto cubesOf = [&](const wchar_t* catalog) {
    Outputs outputs;
    return OutcomeOf(outputs, [&] {
      subject.agent->GetCubesOnCatalog(outputs.cubes, catalog, subject.place.source);
    });
  };
  // Every kind of reply in turn, including faults and broken ones.
  const auto round = [&] {
    std::vector<Outcome> outcomes;
    for (const Operation& operation : kOperations) {
      if (!std::string(operation.name).starts_with("agent: ")) continue;
      Outputs outputs;
      outcomes.push_back(OutcomeOf(outputs, [&] { operation.run(subject, outputs); }));
    }
    for (const wchar_t* catalog : {L"no such catalog", L"broken", L"cut"})
      outcomes.push_back(cubesOf(catalog));
    VXExecutionState state;
    server.state = &state;
    const VXExecutionState::Scope scope(state);
    outcomes.push_back(cubesOf(L"cancelled"));
    return outcomes;
  };
  const std::vector<Outcome> first = round();
  ASSERT_GT(first.size(), 10u);
  constexpr std::size_t kTroubled = 4;
  for (std::size_t i = 0; i + kTroubled < first.size(); ++i)
    EXPECT_TRUE(first[i].IsWhole()) << ToText(first[i]);
  constexpr const char* kSays[kTroubled] = {"[64203] ", "[46100] ", "the connection was closed",
                                            "the request was cancelled"};
  for (std::size_t i = 0; i < kTroubled; ++i)
    EXPECT_THAT(first[first.size() - kTroubled + i].thrown, testing::HasSubstr(kSays[i]));
  for (int i = 0; i < 20; ++i) round();
  const long blocks = Settled([] { return FailingAllocation::Outstanding(); });
  const long descriptors = Settled(&OpenDescriptors);
  const long resident = support::ResidentKiB();
  const long rounds = support::Effort(200L, 7000L);
  server.requests = 0;
  for (long i = 0; i < rounds; ++i) {
    const std::vector<Outcome> outcomes = round();
    for (std::size_t k = 0; k < first.size(); ++k)
      ASSERT_TRUE(outcomes[k] == first[k] && outcomes[k].thrown == first[k].thrown)
          << "round " << i << ", " << k << ": " << ToText(outcomes[k]);
  }
  const long requests = server.requests;
  const long moreDescriptors = Settled(&OpenDescriptors) - descriptors;
  const long moreBlocks = Settled([] { return FailingAllocation::Outstanding(); }) - blocks;
  const long moreKiB = support::ResidentKiB() - resident;
  EXPECT_EQ(moreDescriptors, 0);
  if (FailingAllocation::kIsPossible) {
    // The memory kept for the next reply depends on where the last one was cancelled.
    EXPECT_LE(moreBlocks, 4);
#if !defined(XMLA_ADDRESS_SANITIZER)
    EXPECT_LT(moreKiB, 2048);
#endif
  }
  network::Figure(
      "requests on one agent",
      network::Text(requests, " made, each with the same outcome as at first, ", rounds,
                    " each broken, cut and cancelled: ", moreBlocks, " more blocks, ", moreKiB,
                    " KiB more in memory, ", moreDescriptors, " more descriptors"));
}

TEST(Endurance, ManyJobsWithRandomFaultsEndWithACompleteDocument) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::seconds(support::Effort(2, 180));
  constexpr sample::Kind kSampleKinds[] = {sample::Kind::kAnalysisServices, sample::Kind::kSapBw,
                                           sample::Kind::kTamarind};
  tool::Options patience;
  patience.environment["MORVEN_BI_XMLA_HTTP_TIMEOUT"] = "1";
  // Up to 40 requests time out in a run. Each is repeated while no other one is in progress.
  patience.longestRun = std::chrono::seconds(120);
  constexpr int kJobs = 32;
  int mostAtOnce = 0;
  long fullRuns = 0;
  std::random_device random;
  std::map<int, long> statuses;
  long runs = 0;
  long cubes = 0;
  const long fewest = support::Effort(3L, 5L);
  // In some runs the tree cannot be read, so the workers have nothing to do.
  while (runs < fewest || (fullRuns == 0 && runs < 20) || Clock::now() < end) {
    const long seed = static_cast<long>(random() % 1'000'000);
    SCOPED_TRACE("seed " + std::to_string(seed) + ", run " + std::to_string(runs));
    sample::Options options;
    // Mostly after the tree, so that there are cubes to import.
    constexpr const char* kTypes[] = {"@MDSCHEMA_LEVELS", "@MDSCHEMA_HIERARCHIES",
                                      "@MDSCHEMA_MEASURES", "@MDSCHEMA_PROPERTIES", ""};
    options.mood = "random:" + std::to_string(seed) + kTypes[(seed + runs) % 5];
    // Enough cubes for every worker, and long enough that the workers overlap.
    options.copies = 18;
    options.latency = std::chrono::milliseconds(10);
    const sample::Provider provider(options);
    const tool::Outcome outcome = tool::RunTool(
        {"--url", provider.Url(kSampleKinds[runs % 3]), "--target",
         runs % 3 == 0 ? "analysis-services-2005" : (runs % 3 == 1 ? "sap-bw" : "tamarind-7"),
         "--format", "json", "import", "--jobs", std::to_string(kJobs)},
        patience);
    ASSERT_EQ(outcome.signal, 0) << "killed, perhaps for it hung: " << outcome.err;
    ASSERT_THAT(outcome.status, testing::AnyOf(0, 1, 3)) << outcome.err;
    const tool::Json document = outcome.Document();
    ASSERT_TRUE(document.contains("cubes") && document.contains("errors"));
    long failed = static_cast<long>(document["errors"].size());
    for (const tool::Json& cube : document["cubes"]) {
      failed += static_cast<long>(cube["errors"].size());
      ++cubes;
    }
    EXPECT_EQ(outcome.status == 0, failed == 0) << outcome.out;
    // An early failure can halve the number of requests at once.
    if (document["cubes"].size() > 2 * kJobs && provider.MaxRequestsInProgress() > kJobs / 2)
      ++fullRuns;
    mostAtOnce = std::max(mostAtOnce, provider.MaxRequestsInProgress());
    ++statuses[outcome.status];
    ++runs;
  }
  std::string text;
  for (const auto& [status, count] : statuses)
    text += ", " + std::to_string(count) + " with status " + std::to_string(status);
  EXPECT_GT(fullRuns, 0);
  network::Figure(
      "import --jobs 32 with random fault modes",
      network::Text(runs, " runs of ", cubes, " cubes, up to ", mostAtOnce,
                    " requests at once: ", text.substr(2), "; 0 hangs, every document whole"));
}

}  // namespace
}  // namespace reliability
