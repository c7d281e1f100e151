// The embedded sample provider as a source, for all three kinds.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SampleProvider.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

struct SampleKind {
  const char* name;
  const char* target;
};

class Sample : public testing::TestWithParam<SampleKind> {};

TEST_P(Sample, IsImportedAsTheKindItIs) {
  const Outcome outcome =
      RunTool({"--sample", GetParam().name, "import", "--format", "json", "--jobs", "4"});
  EXPECT_TRUE(outcome.status == 0 || outcome.status == 3) << outcome.err;
  const Json document = outcome.Document();
  EXPECT_EQ(document["provider"]["target"], GetParam().target);
  EXPECT_EQ(document["warnings"], Json::array());
  EXPECT_FALSE(document["cubes"].empty());
}

TEST_P(Sample, ShowsTheTreeOfAServerOfItsKind) {
  const sample::Provider provider;
  const std::string url = provider.Url(*sample::KindFromName(GetParam().name));
  const Outcome embedded = RunTool({"--sample", GetParam().name, "tree", "--format", "json"});
  const Outcome served = RunTool({"--url", url, "tree", "--format", "json"});
  EXPECT_EQ(embedded.status, 0) << embedded.err;
  EXPECT_EQ(embedded.Document(), served.Document());
  EXPECT_FALSE(embedded.Document()["dataSources"].empty());
}

INSTANTIATE_TEST_SUITE_P(Kinds, Sample,
                         testing::Values(SampleKind{"analysis-services", "analysis-services-2005"},
                                         SampleKind{"sap-bw", "sap-bw35"},
                                         SampleKind{"tamarind", "tamarind-7"}),
                         [](const auto& each) {
                           std::string name = each.param.name;
                           std::erase(name, '-');
                           return name;
                         });

}  // namespace
}  // namespace tool
