// Builds docs/host-example.cpp outside of the project's folders, as its first lines say, and runs
// it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>

#include "SampleProvider.h"
#include "support/ChildProcess.h"
#include "support/TempDir.h"
#include "support/Text.h"

namespace tool {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class HostExample : public testing::Test {
 protected:
  void SetUp() override {
    const std::filesystem::path source = m_folder.Path() / "host-example.cpp";
    std::filesystem::copy_file(HOST_EXAMPLE, source);
    const std::string build = std::string("cd '") + m_folder.Path().string() + "' && " + COMPILER +
                              " -Wall -Wextra -Werror -I '" + INCLUDE_FOLDER +
                              "' host-example.cpp -L '" + LIBRARY_FOLDER +
                              "' -lxmlahost -ldl -o host-example";
    const support::ChildResult built = support::RunChild("/bin/sh", {"-c", build});
    ASSERT_EQ(built.exitStatus, 0) << built.err;
  }

  support::ChildResult Run(const std::vector<std::string>& arguments) const {
    return support::RunChild(m_folder.Path() / "host-example", arguments,
                             {{"LD_LIBRARY_PATH", LIBRARY_FOLDER}, {"no_proxy", "*"}});
  }

  const support::TempDir m_folder;
};

TEST_F(HostExample, ImportsCancelsAndReportsErrors) {
  const sample::Provider provider;
  const std::string url = provider.Url(sample::Kind::kAnalysisServices);
  const support::ChildResult good = Run({url, "100"});
  EXPECT_EQ(good.exitStatus, 0) << good.err;
  EXPECT_THAT(good.out,
              StartsWith("server Microsoft Analysis Services 9.00.5000.00\ncube Sales\n"));
  EXPECT_THAT(good.out, HasSubstr("  hierarchy Calendar: 5 levels\n"));
  EXPECT_THAT(good.out, HasSubstr("  measure Units Sold: kAggrSum, VXDoubleData\n"));
  EXPECT_THAT(good.err, StartsWith("[62012] "));

  const support::ChildResult refused = Run({"http://127.0.0.1:1/", "100"});
  EXPECT_EQ(refused.exitStatus, 1);
  EXPECT_THAT(refused.err, StartsWith("failed: "));
  EXPECT_THAT(refused.err, HasSubstr("127.0.0.1:1"));

  const support::ChildResult unusable = Run({"no url", "100"});
  EXPECT_EQ(unusable.exitStatus, 1);
  EXPECT_THAT(unusable.err, StartsWith("failed: no url: the URL of the service cannot be used: "));

  EXPECT_EQ(Run({url}).exitStatus, 2);

  const auto begin = std::chrono::steady_clock::now();
  const support::ChildResult cancelled = Run({url + "?mood=stall@MDSCHEMA_LEVELS", "1"});
  EXPECT_EQ(cancelled.exitStatus, 1);
  EXPECT_THAT(cancelled.err, HasSubstr("cancelled: "));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));
}

}  // namespace
}  // namespace tool
