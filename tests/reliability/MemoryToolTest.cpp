// The tool under a memory limit: a cube that does not fit fails alone.

#include <gmock/gmock.h>

#include "support/ChildProcess.h"
#include "support/Effort.h"
#include "support/FailingAllocation.h"
#include "support/Sanitized.h"
#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

#if defined(XMLA_ADDRESS_SANITIZER)
constexpr bool kLimitIsPossible = false;  // a sanitizer reserves terabytes
#else
constexpr bool kLimitIsPossible = FailingAllocation::kIsPossible;
#endif

std::string ManyMeasures(std::size_t count) {
  std::string rows;
  for (std::size_t i = 0; i < count; ++i)
    rows +=
        "<row><MEASURE_NAME>a measure's name</MEASURE_NAME><MEASURE_UNIQUE_NAME>[Measures].[a "
        "measure's name]</MEASURE_UNIQUE_NAME></row>";
  return support::RowsetReply(rows);
}

TEST(ToolMemory, OnlyTheCubeThatDoesNotFitFails) {
  if (!kLimitIsPossible) GTEST_SKIP() << "skipped: this sanitizer takes no limit of memory";
  ScriptedProvider::Script script = OneCube();
  script.rows["MDSCHEMA_CUBES Lone"] = {
      {{"CUBE_NAME", "First"}}, {{"CUBE_NAME", "Huge"}}, {{"CUBE_NAME", "Last"}}};
  const std::string huge = ManyMeasures(600000);
  script.answer = [&](const std::string& type, const std::string& body) -> std::string {
    const bool isHuge = type == "MDSCHEMA_MEASURES" && body.find("Huge") != std::string::npos;
    return isHuge ? huge : std::string();
  };
  const ScriptedProvider provider(std::move(script));
  int alone = 0;
  int unwritten = 0;
  for (const int limit : {200000, 210000, 220000, 230000}) {
    if (!support::IsLong() && limit != 200000 && limit != 220000) continue;
    for (const std::string jobs : {"1", "2"}) {
      if (!support::IsLong() && jobs == "1") continue;
      SCOPED_TRACE(std::to_string(limit) + " KiB, jobs " + jobs);
      const support::ChildResult result = support::RunChild(
          "/bin/sh", {"-c", "ulimit -v " + std::to_string(limit) + "; exec " + ToolPath() +
                                " --url " + provider.Url() +
                                " --target analysis-services-2005 --quiet --format json import "
                                "--jobs " +
                                jobs});
      ASSERT_EQ(result.signal, 0) << result.err;
      EXPECT_THAT(result.err, testing::HasSubstr("here is not enough memory"));
      const Json document = Json::parse(result.out, nullptr, false);
      ASSERT_TRUE(document.is_object()) << result.out.substr(0, 500);
      if (result.exitStatus == 1) {  // read, but too large to be written
        ++unwritten;
        ASSERT_FALSE(document["errors"].empty()) << result.out.substr(0, 500);
        EXPECT_EQ(document["errors"].back(), "there is not enough memory to write the result");
        continue;
      }
      ++alone;
      EXPECT_EQ(result.exitStatus, 3) << result.err;
      ASSERT_EQ(document["cubes"].size(), 3u);
      for (const Json& cube : document["cubes"]) {
        const bool isHuge = cube["cube"] == "Huge";
        EXPECT_EQ(cube["errors"].empty(), !isHuge) << cube["errors"];
        EXPECT_TRUE(isHuge || cube["measures"].size() == 2);
      }
    }
  }
  EXPECT_GT(alone, 0);
  support::PrintFigure("the tool's import of 3 cubes under limits of memory",
                       std::to_string(alone + unwritten) + " runs: " + std::to_string(alone) +
                           " in which the large cube failed alone, " + std::to_string(unwritten) +
                           " whose result could be read but not written, which was reported");
}

}  // namespace
}  // namespace tool
