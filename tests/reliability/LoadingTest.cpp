// A plug-in host loads and unloads the libraries. Nothing of them stays in the process.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "ExemptServerSupport.h"
#include "NetworkSupport.h"
#include "support/ChildProcess.h"
#include "support/Effort.h"
#include "support/FailingAllocation.h"
#include "support/Sanitized.h"

namespace reliability {
namespace {

struct Loaded {
  support::ChildResult child;
  long records = 0;
  long resident = 0;
  long threads = 0;
  long descriptors = 0;
  std::vector<std::string> mapped;
};

Loaded LoadAndUnload(const std::string& url, long times, int cancelAfterMilliseconds) {
  Loaded run;
  run.child =
      support::RunChild(LOAD_AND_UNLOAD, {LOADED_HOST, XMLASAX_LIBRARY, url, std::to_string(times),
                                          std::to_string(cancelAfterMilliseconds)});
  std::istringstream lines(run.child.out);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t blank = line.find(' ');
    const std::string value = blank == std::string::npos ? "" : line.substr(blank + 1);
    if (line.starts_with("records ")) run.records = std::atol(value.c_str());
    if (line.starts_with("resident ")) run.resident = std::atol(value.c_str());
    if (line.starts_with("threads ")) run.threads = std::atol(value.c_str());
    if (line.starts_with("descriptors ")) run.descriptors = std::atol(value.c_str());
    if (line.starts_with("mapped ")) run.mapped.push_back(value);
  }
  return run;
}

/// A file of the product, or a library that only the product needs.
bool IsOurs(const std::string& file) {
  for (const char* name : {"libUtilityXMLASAX", "libxmlahost", "loaded-host", "libcurl", "libxml2"})
    if (file.find(name) != std::string::npos) return true;
  return false;
}

TEST(Loading, RepeatedLoadingAndUnloadingLeavesNothing) {
  ExemptServer server;
  const std::string url = server.Url("/analysis-services");
  const long times = support::Effort(30L, 1000L);
  const Loaded run = LoadAndUnload(url, times, -1);
  ASSERT_EQ(run.child.exitStatus, 0) << run.child.signal << run.child.out << run.child.err;
  const long each = LoadAndUnload(url, 1, -1).records;
  EXPECT_GT(each, 10);
  EXPECT_EQ(run.records, times * each);
  EXPECT_EQ(run.threads, 0);
  EXPECT_EQ(run.descriptors, 0);
  const auto mapped = std::count_if(run.mapped.begin(), run.mapped.end(), &IsOurs);
  // A sanitizer keeps memory and libraries.
#if !defined(XMLA_ADDRESS_SANITIZER) && XMLA_OWN_ALLOCATOR
  EXPECT_LT(run.resident, 1024) << "KiB";
  EXPECT_EQ(mapped, 0) << run.child.out;
#endif
  network::Figure("the libraries loaded, an import, and unloaded",
                  network::Text(times, " times: ", run.resident, " KiB more in memory; ",
                                run.threads, " threads, ", run.descriptors, " descriptors and ",
                                mapped, " mappings of them left"));
}

TEST(Loading, UnloadingIsSafeDuringNameResolution) {
  ExemptServer server;
  const std::string url = "http://slow.test:" + std::to_string(server.Port()) + "/";
  const long times = support::Effort(5L, 100L);
  const Loaded run = LoadAndUnload(url, times, 20);
  ASSERT_EQ(run.child.exitStatus, 0) << run.child.signal << run.child.out << run.child.err;
  EXPECT_EQ(run.records, 0);
  EXPECT_GT(run.threads, 0) << "no resolver was at work when the library was unloaded";
  EXPECT_THAT(run.child.out, testing::HasSubstr("ended\n"));
  EXPECT_EQ(run.descriptors, 0);
  network::Figure(
      "unloaded while the name resolver is at work",
      network::Text(times, " times: 0 crashes, ", run.threads, " threads at the end and ended, ",
                    run.descriptors, " descriptors left"));
}

}  // namespace
}  // namespace reliability
