// Many exchanges on one object, and many jobs against a provider of random moods.

#include <dirent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <map>
#include <random>

#include "OperationsSupport.h"
#include "SampleProvider.h"
#include "Utility/Generic/ErrorMessage.h"
#include "WireServerSupport.h"
#include "support/Effort.h"
#include "support/FailingAllocation.h"
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

long ResidentKiB() {
  std::ifstream file("/proc/self/statm");
  long size = 0;
  long resident = 0;
  file >> size >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

TEST(Endurance, ManyExchangesOnOneAgentTakeNoMoreMemoryAndNoMoreDescriptors) {
  // Every kind of reply in turn, faults and broken ones among them.
  WireServer server;
  Subject subject(kKinds[1], server.Url(kKinds[1].path));
  const long rounds = support::Effort(270L, 9100L);  // of eleven exchanges
  long exchanges = 0;
  const auto round = [&] {
    for (const Operation& operation : kOperations) {
      if (!std::string(operation.name).starts_with("agent: ")) continue;
      Outputs outputs;
      OutcomeOf(outputs, [&] { operation.run(subject, outputs); });
      ++exchanges;
    }
    try {
      VXStringVector ignored;
      subject.agent->GetCatalogs(ignored, L"no such source");
    } catch (const ErrorMessage&) {
    }
    ++exchanges;
  };
  for (int i = 0; i < 20; ++i) round();
  const long blocks = FailingAllocation::Outstanding();
  const long descriptors = OpenDescriptors();
  const long resident = ResidentKiB();
  for (long i = 0; i < rounds; ++i) round();
  EXPECT_EQ(OpenDescriptors(), descriptors);
  if (FailingAllocation::kIsPossible) {
    EXPECT_LE(FailingAllocation::Outstanding(), blocks);
#if !defined(__SANITIZE_ADDRESS__)
    EXPECT_LT(ResidentKiB(), resident + 2048);
#endif
  }
  support::PrintFigure("requests on one agent",
                       std::to_string(exchanges) +
                           " made: " + std::to_string(FailingAllocation::Outstanding() - blocks) +
                           " more blocks, " + std::to_string(ResidentKiB() - resident) +
                           " KiB more in memory, " +
                           std::to_string(OpenDescriptors() - descriptors) + " more descriptors");
}

TEST(Endurance, ManyJobsAgainstRandomMoodsAlwaysEndWithAWholeDocument) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::seconds(support::Effort(2, 180));
  constexpr sample::Kind kSampleKinds[] = {sample::Kind::kAnalysisServices, sample::Kind::kSapBw,
                                           sample::Kind::kTamarind};
  tool::Options patience;
  patience.environment["MORVEN_BI_XMLA_HTTP_TIMEOUT"] = "2";
  std::random_device random;
  std::map<int, long> statuses;
  long runs = 0;
  long cubes = 0;
  while (runs < 5 || Clock::now() < end) {
    const long seed = static_cast<long>(random() % 1'000'000);
    SCOPED_TRACE("seed " + std::to_string(seed) + ", run " + std::to_string(runs));
    sample::Options options;
    // Mostly behind the tree, so that there are cubes to import.
    constexpr const char* kTypes[] = {"@MDSCHEMA_LEVELS", "@MDSCHEMA_HIERARCHIES",
                                      "@MDSCHEMA_MEASURES", "@MDSCHEMA_PROPERTIES", ""};
    options.mood = "random:" + std::to_string(seed) + kTypes[(seed + runs) % 5];
    const sample::Provider provider(options);
    const tool::Outcome outcome = tool::RunTool(
        {"--url", provider.Url(kSampleKinds[runs % 3]), "--target",
         runs % 3 == 0 ? "analysis-services-2005" : (runs % 3 == 1 ? "sap-bw" : "tamarind-7"),
         "--format", "json", "import", "--jobs", "32"},
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
    ++statuses[outcome.status];
    ++runs;
  }
  std::string text;
  for (const auto& [status, count] : statuses)
    text += ", " + std::to_string(count) + " with status " + std::to_string(status);
  support::PrintFigure("import --jobs 32 against random moods",
                       std::to_string(runs) + " runs of " + std::to_string(cubes) +
                           " cubes: " + text.substr(2) + "; 0 hangs, every document whole");
}

}  // namespace
}  // namespace reliability
