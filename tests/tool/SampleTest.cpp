// Tests the embedded sample provider as a source, for all three kinds.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SampleProvider.h"
#include "support/ChildProcess.h"
#include "support/TempDir.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

using testing::HasSubstr;

struct SampleKind {
  const char* name;
  const char* target;
};

class Sample : public testing::TestWithParam<SampleKind> {};

TEST_P(Sample, IsImportedAsItsKind) {
  const Outcome outcome =
      RunTool({"--sample", GetParam().name, "import", "--format", "json", "--jobs", "4"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  const Json document = outcome.Document();
  EXPECT_EQ(document["provider"]["target"], GetParam().target);
  EXPECT_EQ(document["warnings"], Json::array());
  EXPECT_FALSE(document["cubes"].empty());
}

TEST_P(Sample, ShowsTheTreeOfItsKind) {
  const sample::Provider provider;
  const std::string url = provider.Url(*sample::KindFromName(GetParam().name));
  const Outcome embedded = RunTool({"--sample", GetParam().name, "tree", "--format", "json"});
  const Outcome served = RunTool({"--url", url, "tree", "--format", "json"});
  EXPECT_EQ(embedded.status, 0) << embedded.err;
  EXPECT_EQ(embedded.Document(), served.Document());
  EXPECT_FALSE(embedded.Document()["dataSources"].empty());
}

TEST(Sample, DocumentsGoToAFile) {
  for (const char* kind : {"analysis-services", "sap-bw", "tamarind"})
    for (const char* command : {"sources", "tree", "cube", "import"}) {
      const Outcome outcome = RunTool({"--sample", kind, "--format", "json", command});
      EXPECT_EQ(outcome.out, outcome.Document().dump(2) + "\n") << kind << command;
    }
}

TEST(SampleProvider, IgnoresProxiesOfTheEnvironment) {
  Options options;
  options.environment = {{"http_proxy", "http://127.0.0.1:1"}, {"all_proxy", "http://127.0.0.1:1"}};
  const Outcome outcome = RunTool({"--sample", "sap-bw", "sources"}, options);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.out, "default\n");
}

TEST(SampleProvider, IgnoresCredentials) {
  for (const char* option : {"--user", "--password-file"}) {
    const Outcome outcome = RunTool({"--sample", "sap-bw", option, "ann", "sources"});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err,
              "xmla-import: error: " + std::string(option) +
                  " cannot be combined with --sample; see xmla-import sources --help\n");
  }
  Options options;  // the environment may have credentials for other calls
  options.environment = {{"XMLA_IMPORT_USER", "ann"},
                         {"XMLA_IMPORT_PASSWORD", "x"},
                         {"XMLA_IMPORT_TOKEN", "x"},
                         {"XMLA_IMPORT_SERVER", "x"}};
  EXPECT_EQ(RunTool({"--sample", "sap-bw", "sources"}, options).status, 0);
}

TEST(SampleProvider, EveryLoggedRunKeepsItsLog) {
  const support::TempDir folder;
  for (int run = 0; run < 3; ++run)
    EXPECT_EQ(RunTool({"--sample", "sap-bw", "--log", folder.Path(), "sources"}).status, 0);
  EXPECT_EQ(folder.Files().size(), 3u);
}

TEST(SampleProvider, ALogOfTheEnvironmentIsKeptCubeByCube) {
  const support::TempDir folder;
  Options options;
  options.environment = {{"OT_XMLA_IMPORT_LOGGING", "1"}, {"XMLA_IMPORT_LOG_DIR", folder.Path()}};
  EXPECT_EQ(RunTool({"--sample", "tamarind", "import", "--jobs", "4"}, options).status, 0);
  EXPECT_EQ(folder.Files().size(), 5u);  // the tree and four cubes
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
