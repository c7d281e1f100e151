// Errors between the tool and a provider: one clear line, status 1, and with JSON a document.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iterator>
#include <regex>

#include "SampleProvider.h"
#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

using testing::HasSubstr;

void ExpectFailure(const std::string& url, const std::string& says) {
  SCOPED_TRACE(url);
  for (const char* command : {"sources", "tree", "cube", "import"}) {
    const Outcome text = RunTool({"--url", url, command});
    EXPECT_EQ(text.status, 1) << command;
    EXPECT_EQ(text.out, "");
    EXPECT_THAT(text.err, HasSubstr("xmla-import: error: "));
    EXPECT_THAT(text.err, HasSubstr(says));
  }
  const Outcome json = RunTool({"--url", url, "sources", "--format", "json"});
  EXPECT_EQ(json.status, 1);
  ASSERT_EQ(json.Document()["errors"].size(), 2u);
  EXPECT_THAT(json.Document()["errors"][0].get<std::string>(), HasSubstr(says));
}

TEST(Failure, UnknownHost) {
  ExpectFailure("http://no-such-host.invalid/xmla", "no-such-host.invalid");
}

TEST(Failure, RefusedPort) {
  ExpectFailure("http://127.0.0.1:1/xmla",
                "http://127.0.0.1:1/xmla: cannot connect to the service: Connection refused; ");
}

struct Mood {
  const char* mood;
  const char* says;
};

TEST(Failure, MisbehavingProvider) {
  const sample::Provider provider;
  const Mood moods[] = {
      {"status:503", "HTTP 503 Service Unavailable"},
      {"fault", "[64203] "},
      {"html", "web page"},
      {"truncate",
       "the connection was closed in the middle of the reply; try again (transfer closed with "},
      {"empty", "empty"},
  };
  for (const Mood& mood : moods)
    ExpectFailure(provider.Url(sample::Kind::kAnalysisServices) + "?mood=" + mood.mood, mood.says);
}

struct FailedRequest {
  const char* type;
  Arguments command;
  const char* says;
};
const FailedRequest kFailedRequests[] = {
    {"DISCOVER_PROPERTIES", {"sources"}, "DISCOVER_PROPERTIES of property "},
    {"DISCOVER_DATASOURCES", {"sources"}, "DISCOVER_DATASOURCES"},
    {"DBSCHEMA_CATALOGS", {"tree"}, "DBSCHEMA_CATALOGS"},
    {"MDSCHEMA_CUBES", {"tree"}, "MDSCHEMA_CUBES of catalog \"Lone\""},
    {"MDSCHEMA_HIERARCHIES", {"cube"}, "MDSCHEMA_HIERARCHIES of catalog \"Lone\", cube \"Unit\""},
    {"MDSCHEMA_MEASURES", {"cube"}, "MDSCHEMA_MEASURES of catalog \"Lone\", cube \"Unit\""},
    {"SAP_VARIABLES", {"cube"}, "SAP_VARIABLES of catalog \"Lone\", cube \"Unit\""},
    {"MDSCHEMA_LEVELS",
     {"cube"},
     "MDSCHEMA_LEVELS of catalog \"Lone\", cube \"Unit\", hierarchy \"[Shop].[Place]\""},
};

TEST(Failure, MessageNamesTheRequest) {
  for (const FailedRequest& each : kFailedRequests) {
    SCOPED_TRACE(each.type);
    ScriptedProvider::Script script = OneCube();
    script.name = "SAP BW";
    script.answer = [&](const std::string& type, const std::string&) {
      return type == each.type ? support::FaultReply("Server", "broken") : std::string();
    };
    const ScriptedProvider provider(std::move(script));
    Arguments arguments{"--url", provider.Url(), "--format", "json"};
    arguments.insert(arguments.end(), each.command.begin(), each.command.end());
    const Outcome outcome = RunTool(arguments);
    const Json document = outcome.Document();
    const bool isPart = document.contains("measures") &&
                        document["hierarchies"].size() + document["measures"].size() > 0;
    EXPECT_EQ(outcome.status, isPart ? 3 : 1);
    const Json errors = document["errors"];
    ASSERT_EQ(errors.size(), 2u) << errors;
    EXPECT_THAT(errors[1].get<std::string>(),
                testing::StartsWith(std::string("the failed request was ") + each.says));
    EXPECT_THAT(outcome.err, HasSubstr("note: the failed request was "));
  }
}

TEST(Failure, DefaultMemberFailureIsAWarningWithTheHierarchy) {
  ScriptedProvider::Script script = OneCube();
  std::vector<Row>& hierarchies = script.rows["MDSCHEMA_HIERARCHIES"];
  hierarchies.resize(3, hierarchies.front());
  hierarchies[1][2].second = "[Shop].[Second]";
  hierarchies[2][2].second = "[Shop].[Skipped]";
  hierarchies[2].emplace_back("IS_VIRTUAL", "true");
  script.answer = [&](const std::string& type, const std::string& body) {
    const bool fails = type == "MDSCHEMA_MEMBERS" && body.find("Second") != std::string::npos;
    return fails ? support::FaultReply("Server", "broken") : std::string();
  };
  const ScriptedProvider provider(std::move(script));
  const Outcome outcome = RunTool({"--url", provider.Url(), "--format", "json", "cube"});
  EXPECT_EQ(outcome.status, 0);
  const Json warnings = outcome.Document()["warnings"];
  ASSERT_EQ(warnings.size(), 2u) << warnings;
  const auto warning = warnings[0].get<std::string>();
  EXPECT_THAT(warning, testing::StartsWith("[64203] The default member of the hierarchy "
                                           "\"[Shop].[Second]\" is unknown: The server refused "));
  EXPECT_THAT(warnings[1].get<std::string>(), testing::StartsWith("[62011] "));
}

std::string FaultWithDetail(const std::string& description) {
  return "<Envelope><Body><Fault><faultcode>c</faultcode><faultstring>XML parse error</faultstring>"
         "<detail><Error ErrorCode=\"3238658121\" Description=\"" +
         description + "\" Source=\"Analysis\nServices\"/></detail></Fault></Body></Envelope>";
}

TEST(Failure, DetailOfAFaultFollowsItsMessage) {
  ScriptedProvider::Script script = OneCube();
  script.rows["MDSCHEMA_CUBES Lone"].push_back({{"CUBE_NAME", "Second"}});
  script.answer = [&](const std::string& type, const std::string&) {
    if (type == "MDSCHEMA_MEASURES") return FaultWithDetail("The cube is not processed.");
    if (type == "MDSCHEMA_MEMBERS") return FaultWithDetail("No member.");
    return std::string();
  };
  const ScriptedProvider provider(std::move(script));
  const Outcome outcome = RunTool({"--url", provider.Url(), "--format", "json", "import"});
  EXPECT_EQ(outcome.status, 3);
  const Json cube = outcome.Document()["cubes"][0];
  ASSERT_EQ(cube["errors"].size(), 3u) << cube["errors"];
  EXPECT_EQ(cube["errors"][1],
            "the server says: The cube is not processed. (0xC10A0049, from Analysis Services)");
  EXPECT_THAT(cube["errors"][2].get<std::string>(), testing::StartsWith("the failed request was "));
  ASSERT_GE(cube["warnings"].size(), 2u) << cube["warnings"];
  EXPECT_THAT(cube["warnings"][0].get<std::string>(), HasSubstr("XML parse error"));
  EXPECT_EQ(cube["warnings"][1],
            "the server says: No member. (0xC10A0049, from Analysis Services)");
  // Standard error: one error for both cubes with its detail, and one kind of warning.
  EXPECT_THAT(outcome.err, HasSubstr("2 cubes (\"Unit\", \"Second\"): the server says: The cube"));
  EXPECT_THAT(outcome.err, HasSubstr("\"Unit\": the server says: No member."));
  // Each is shown once.
  const std::regex detail("the server says");
  EXPECT_EQ(std::distance(std::sregex_iterator(outcome.err.begin(), outcome.err.end(), detail),
                          std::sregex_iterator()),
            2)
      << outcome.err;
}

TEST(Failure, DetailBelongsToItsOwnRequestOnly) {
  ScriptedProvider::Script script = OneCube();
  script.answer = [](const std::string& type, const std::string&) {
    if (type == "MDSCHEMA_MEMBERS") return FaultWithDetail("No member.");
    return type == "MDSCHEMA_LEVELS" ? support::FaultReply("c", "broken") : std::string();
  };
  const ScriptedProvider provider(std::move(script));
  const Json document = RunTool({"--url", provider.Url(), "--format", "json", "cube"}).Document();
  EXPECT_THAT(document["warnings"].dump(), HasSubstr("the server says: No member."));
  EXPECT_THAT(document["errors"].dump(), testing::Not(HasSubstr("the server says")));
}

/// The label comes from the kind of the line, not from a text of the server.
TEST(Failure, ServerCannotTurnAnErrorIntoANote) {
  ScriptedProvider::Script script = OneCube();
  script.answer = [](const std::string&, const std::string&) {
    return support::FaultReply("c", "x: the server says: y: the failed request was z");
  };
  const ScriptedProvider provider(std::move(script));
  for (const char* const warnings : {"all", "summary"}) {
    const Outcome outcome = RunTool({"--url", provider.Url(), "--warnings", warnings, "sources"});
    EXPECT_THAT(outcome.err, testing::StartsWith("xmla-import: error: [64203] ")) << outcome.err;
  }
}

/// Errors with the same text but another detail are not combined.
TEST(Failure, DifferentDetailsAreShown) {
  ScriptedProvider::Script script = OneCube();
  script.rows["MDSCHEMA_CUBES Lone"].push_back({{"CUBE_NAME", "Second"}});
  script.answer = [&](const std::string& type, const std::string& body) {
    if (type != "MDSCHEMA_MEASURES") return std::string();
    return FaultWithDetail(body.find("Second") != std::string::npos ? "two" : "one");
  };
  const ScriptedProvider provider(std::move(script));
  const Outcome outcome = RunTool({"--url", provider.Url(), "import"});
  EXPECT_THAT(outcome.err, HasSubstr("\"Unit\": the server says: one "));
  EXPECT_THAT(outcome.err, HasSubstr("\"Second\": the server says: two "));
}

TEST(Failure, MessageAbbreviatesLongNames) {
  ScriptedProvider::Script script = OneCube();
  script.rows["MDSCHEMA_CUBES Lone"] = {{{"CUBE_NAME", std::string(100000, 'n')}}};
  script.answer = [&](const std::string& type, const std::string&) {
    return type == "MDSCHEMA_LEVELS" ? support::FaultReply("Server", "broken") : std::string();
  };
  const ScriptedProvider provider(std::move(script));
  const Outcome outcome = RunTool({"--url", provider.Url(), "--verbose", "import"});
  EXPECT_THAT(outcome.err, HasSubstr("nnn... ("));
  EXPECT_LT(outcome.err.size(), 40000u);
}

TEST(Failure, MessageWithItsNumberInBrackets) {
  ScriptedProvider::Script script = TwoSources();
  script.answer = [](const std::string&, const std::string&) {
    return support::FaultReply("Server.42", "two\nlines\tand a tab");
  };
  const ScriptedProvider provider(std::move(script));
  const Json errors =
      RunTool({"--url", provider.Url(), "sources", "--format", "json"}).Document()["errors"];
  ASSERT_EQ(errors.size(), 2u);
  EXPECT_THAT(errors[0].get<std::string>(), testing::StartsWith("[64203] "));
  EXPECT_THAT(errors[0].get<std::string>(), HasSubstr("two lines and a tab"));
}

}  // namespace
}  // namespace tool
