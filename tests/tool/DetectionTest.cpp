// Tests the kind of provider in use: configured, or detected from the provider's identity.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SampleProvider.h"
#include "support/TempDir.h"
#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct Identity {
  const char* name;
  const char* version;
  const char* target;
};

TEST(Detection, UsesTheDetectedKind) {
  const Identity cases[] = {
      {"Some Server", "8.0", "analysis-services-2000"},
      {"Some Server", "9.00.5000.00", "analysis-services-2005"},
      {"Some Server", "10.50.1600.1", "analysis-services-2008"},
      {"Some Server", "13.0", "analysis-services-2012"},
      {"Some Server", "14.0", "tessera"},
      {"sap thing", "1", "sap-bw35"},
      {"kelvora", "11.1", "tamarind-7"},
  };
  for (const Identity& identity : cases) {
    ScriptedProvider::Script script = OneCube();
    script.name = identity.name;
    script.version = identity.version;
    script.rows["DISCOVER_DATASOURCES"][0].emplace_back("ProviderName", identity.name);
    const ScriptedProvider provider(std::move(script));
    const Outcome outcome = RunTool({"--url", provider.Url(), "import", "--format", "json"});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    const Json expected = {
        {"name", identity.name}, {"version", identity.version}, {"target", identity.target}};
    EXPECT_EQ(outcome.Document()["provider"], expected);
    EXPECT_THAT(outcome.Document()["warnings"], IsEmpty());
  }
}

TEST(Detection, RequestsNameAndVersionFirst) {
  const ScriptedProvider provider(TwoSources());
  RunTool({"--url", provider.Url(), "--target", "auto", "sources"});
  // Once to determine the kind, once for the import's own check.
  EXPECT_THAT(provider.RequestTypes(),
              ElementsAre("DISCOVER_PROPERTIES", "DISCOVER_PROPERTIES", "DISCOVER_PROPERTIES",
                          "DISCOVER_PROPERTIES", "DISCOVER_DATASOURCES"));
}

TEST(Detection, UsesTamarindRulesWithoutNameOrAfterAFault) {
  for (const bool fault : {false, true}) {
    ScriptedProvider::Script script = TwoSources();
    for (Row& row : script.rows["DISCOVER_DATASOURCES"])
      row.emplace_back("ProviderName", "Kelvora");
    script.name = "";
    script.answer = [fault](const std::string& type, const std::string& body) -> std::string {
      const bool name = body.find(">ProviderName<") != std::string::npos;
      return fault && name && type == "DISCOVER_PROPERTIES" ? support::FaultReply("Client", "what?")
                                                            : std::string();
    };
    const ScriptedProvider provider(std::move(script));
    const Outcome outcome = RunTool({"--url", provider.Url(), "sources", "--format", "json"});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    // A provider of the Tamarind family, identified by its own rules: no warning.
    EXPECT_EQ(outcome.Document()["dataSources"], Json({"Provider=alpha", "Provider=beta"}));
    EXPECT_THAT(outcome.Document()["warnings"], IsEmpty());
  }
}

TEST(Detection, NetworkErrorEndsTheCall) {
  const Outcome outcome = RunTool({"--url", "http://127.0.0.1:1/", "import", "--format", "json"});
  EXPECT_EQ(outcome.status, 1);
  const Json document = outcome.Document();
  EXPECT_EQ(document["provider"], Json({{"name", ""}, {"version", ""}, {"target", ""}}));
  EXPECT_EQ(document["errors"].size(), 2u);
}

TEST(Detection, IsNotLogged) {
  const ScriptedProvider provider(TwoSources());
  const support::TempDir logs;
  const std::string folder = logs.Path() / "made" / "on demand";
  EXPECT_EQ(RunTool({"--url", provider.Url(), "sources", "--log", folder}).status, 0);
  const auto files = logs.Files();
  ASSERT_EQ(files.size(), 1u);
  const std::string log = support::ReadFile(files[0]);
  EXPECT_THAT(log, HasSubstr("Get data sources from URL"));
  // The import's own check asks for the name once; there is no identification before it.
  const std::string title = "Get Provider Name";
  EXPECT_EQ(log.find(title, log.find(title) + 1), std::string::npos);
}

TEST(Detection, KeepsAConfiguredKindAndWarnsOnce) {
  const ScriptedProvider provider(TwoSources());
  const Outcome outcome =
      RunTool({"--url", provider.Url(), "--target", "tessera", "sources", "--format", "json"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.Document()["dataSources"], Json({"Provider=alpha", "Provider=beta"}));
  ASSERT_EQ(outcome.Document()["warnings"].size(), 1u);
  EXPECT_THAT(outcome.Document()["warnings"][0].get<std::string>(),
              testing::StartsWith("[62010] "));
  EXPECT_THAT(outcome.err, testing::StartsWith("xmla-import: warning: [62010] "));
}

TEST(Detection, AcceptsEveryListedKind) {
  const ScriptedProvider provider(OneCube());
  for (const char* kind :
       {"analysis-services-2000", "analysis-services-2005", "analysis-services-2008",
        "analysis-services-2012", "sap-bw", "sap-bw35", "tamarind-7", "tamarind-9", "tamarind-11",
        "tamarind-11.1.2.3.500", "tessera"}) {
    const Outcome outcome =
        RunTool({"--url", provider.Url(), "--target", kind, "import", "--format", "json"});
    EXPECT_EQ(outcome.status, 0) << kind << outcome.err;
    EXPECT_EQ(outcome.Document()["provider"]["target"], kind);
  }
}

TEST(Log, NoteSaysWhyItIsMissing) {
  const sample::Provider provider;
  const std::string url = provider.Url(sample::Kind::kSapBw) + "?mood=";
  const std::string note = "xmla-import: note: nothing was logged: ";
  const std::string target =
      note + "the requests that identify the server are logged only with --target\n";
  const std::string check = note +
                            "check does not log the requests that identify the server; use "
                            "sources with --target and --log\n";
  const struct {
    Arguments arguments;
    std::string note;  // empty: none, because there is a log
  } cases[] = {
      {{"--url", url + "html", "sources"}, target},
      {{"--url", url + "garble", "import"}, target},
      {{"--url", url + "status:404", "check"}, check},
      {{"--url", url + "status:404", "check", "--target", "sap-bw35"}, check},
      {{"--url", url + "html", "sources", "--target", "sap-bw35"}, ""},
      {{"--url", url + "html@DISCOVER_DATASOURCES", "sources"}, ""},
  };
  for (const auto& [arguments, says] : cases) {
    const support::TempDir logs;
    Arguments withLog = arguments;
    withLog.insert(withLog.end(), {"--log", logs.Path()});
    const Outcome outcome = RunTool(withLog);
    EXPECT_EQ(outcome.status, 1);
    if (says.empty())
      EXPECT_THAT(outcome.err, testing::Not(HasSubstr("nothing was logged")));
    else
      EXPECT_THAT(outcome.err, testing::EndsWith(says));
    EXPECT_EQ(logs.Files().empty(), !says.empty());
    EXPECT_THAT(RunTool(arguments).err, testing::Not(HasSubstr("nothing was logged")));
  }
}

TEST(Log, UnwritableFolderIsAnErrorWithItsName) {
  const ScriptedProvider provider(TwoSources());
  const Outcome outcome = RunTool({"--url", provider.Url(), "sources", "--log", "/proc/no"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err,
            "xmla-import: error: --log \"/proc/no\" cannot be used: cannot create the directory "
            "\"/proc/no\": No such file or directory; give another folder\n");
  // Without the option, the variables turn the log on.
  Options options;
  options.environment = {{"OT_XMLA_IMPORT_LOGGING", "1"}, {"XMLA_IMPORT_LOG_DIR", "/proc/no"}};
  EXPECT_THAT(RunTool({"--url", provider.Url(), "sources"}, options).err,
              HasSubstr("error: the log folder \"/proc/no\" cannot be used: cannot create"));
}

TEST(Log, IsNotBlamedForAProxyThatCannotBeUsed) {
  const support::TempDir logs;
  Options options;
  options.environment = {{"http_proxy", "http://p:port"}};
  for (const Arguments& log : {Arguments{}, Arguments{"--log", logs.Path()}}) {
    Arguments arguments{"--url", "http://h/", "--target", "sap-bw", "sources"};
    arguments.insert(arguments.end(), log.begin(), log.end());
    const Outcome outcome = RunTool(arguments, options);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, testing::AllOf(HasSubstr("the URL of the proxy cannot be used"),
                                            testing::Not(HasSubstr("the log folder")),
                                            testing::Not(HasSubstr("--log \""))));
  }
}

}  // namespace
}  // namespace tool
