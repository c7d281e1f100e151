// Tests the command check: which step fails, what it says, and which steps are skipped.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>

#include "SampleProvider.h"
#include "commands/ConnectionSteps.h"
#include "support/Effort.h"
#include "support/LoopbackSocket.h"
#include "support/TempDir.h"
#include "support/Text.h"
#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

Outcome CheckJson(Arguments arguments, const Options& options = {}) {
  arguments.insert(arguments.end(), {"--format", "json", "check"});
  return RunTool(arguments, options);
}

Options ShortTimeOut() {
  Options options;
  options.environment["MORVEN_BI_XMLA_HTTP_TIMEOUT"] = "1";
  return options;
}

Json StepOf(const Json& document, const std::string& name) {
  for (const Json& step : document["steps"])
    if (step["step"] == name) return step;
  ADD_FAILURE() << "no step " << name;
  return Json::object();
}

/// What a step needs, directly. All other steps go on.
std::string NeededBy(const std::string& step) {
  const std::map<std::string, std::string> kNeeds = {
      {"name resolution", "address"},
      {"proxy", "name resolution"},
      {"connection", "proxy"},
      {"TLS", "connection"},
      {"log-in", "TLS"},
      {"response", "log-in"},
      {"protocol", "response"},
      {"identity", "protocol"},
      {"data sources", "identity"},
      {"catalogs", "data sources"},
      {"cubes", "catalogs"},
      {"hierarchies", "cubes"},
      {"levels", "hierarchies"},
      {"measures", "cubes"},
      {"variables", "cubes"},
      {"round trip", "data sources"},
  };
  const auto found = kNeeds.find(step);
  return found == kNeeds.end() ? "" : found->second;
}

constexpr const char* kNoResponse = "the server sent no HTTP response";

/// The named step failed and says what to do, and steps are skipped if they need a step that
/// failed or was skipped.
void ExpectFailedStep(const Outcome& outcome, const std::string& failed) {
  ASSERT_EQ(outcome.status, failed.empty() ? 0 : 1) << outcome.err;
  const Json document = outcome.Document();
  std::map<std::string, std::string> statuses;
  std::vector<std::string> names;
  for (const Json& step : document["steps"]) {
    const std::string name = step["step"];
    const std::string status = step["status"];
    names.push_back(name);
    statuses[name] = status;
    const std::string before = NeededBy(name);
    const bool mustSkip = statuses[before] == "failed" || statuses[before] == "skipped";
    // The response fails, and the log-in is unknown.
    const bool isUnknown = name == "log-in" && failed == "response" && step["found"] == kNoResponse;
    if (isUnknown) statuses[name] = "unknown";
    EXPECT_EQ(status == "skipped", mustSkip || isUnknown) << step;
    EXPECT_EQ(status == "failed", name == failed) << step;
    const bool needsAdvice = status == "failed" || status == "warning";
    EXPECT_EQ(step["advice"].get<std::string>().empty(), !needsAdvice) << step;
    EXPECT_THAT(step["found"].get<std::string>(), Not(IsEmpty())) << step;
    EXPECT_THAT(step["found"].get<std::string>(), Not(testing::EndsWith(" "))) << step;
  }
  std::vector<std::string> expected(std::begin(kCheckSteps), std::end(kCheckSteps));
  if (std::ranges::count(names, "variables") == 0) std::erase(expected, "variables");
  EXPECT_EQ(names, expected);
  if (failed.empty()) {
    EXPECT_THAT(document["errors"], IsEmpty());
    return;
  }
  // The error says the same. It is the last line on standard error.
  const Json step = StepOf(document, failed);
  const std::string line =
      failed + ": " + step["found"].get<std::string>() + "; " + step["advice"].get<std::string>();
  EXPECT_EQ(document["errors"], Json::array({line}));
  EXPECT_THAT(outcome.err, testing::EndsWith("error: " + line + "\n"));
}

class CheckOfSample : public testing::Test {
 protected:
  std::string Url(sample::Kind kind, const std::string& mood = {}) const {
    return m_provider.Url(kind) + (mood.empty() ? "" : "?mood=" + mood);
  }

 private:
  const sample::Provider m_provider;
};

TEST_F(CheckOfSample, PassesForEachKind) {
  for (const sample::Kind kind :
       {sample::Kind::kAnalysisServices, sample::Kind::kSapBw, sample::Kind::kTamarind}) {
    const Outcome outcome = CheckJson({"--url", Url(kind)});
    ExpectFailedStep(outcome, "");
    const Json document = outcome.Document();
    EXPECT_EQ(document["url"], Url(kind));
    EXPECT_EQ(document["target"], "auto");
    EXPECT_THAT(StepOf(document, "name resolution")["found"].get<std::string>(),
                HasSubstr("127.0.0.1"));
    EXPECT_THAT(StepOf(document, "response")["found"].get<std::string>(),
                testing::MatchesRegex("status 200, .*text/xml.*, connection kept open"));
    EXPECT_THAT(StepOf(document, "round trip")["found"].get<std::string>(),
                HasSubstr("in 10 requests"));
  }
}

struct MoodCase {
  const char* mood;
  const char* failed;
};

const MoodCase kFirstRequest[] = {
    {"stall", "response"},
    {"stall-body", "response"},
    {"stall-head", "response"},
    {"truncate", "response"},
    {"cut", "response"},
    {"reset", "response"},
    {"wrong-length", "response"},
    {"broken-chunks", "response"},
    {"endless-head", "response"},
    {"bomb:600", "response"},
    {"status:503", "response"},
    {"status:500", "response"},
    {"status:404", "response"},
    {"status:403", "response"},
    {"status:401", "log-in"},
    {"status:407", "response"},
    {"redirect", "response"},
    {"html", "protocol"},
    {"empty", "protocol"},
    {"garble", "protocol"},
    {"fault", "identity"},
    {"fault-500", "identity"},
    {"no-length", ""},
    {"chunked", ""},
    {"double-declaration", ""},
    {"latin-1", ""},
    {"utf-16", ""},
};

TEST_F(CheckOfSample, FindsTheStepOfEachMood) {
  for (const MoodCase& each : support::Sampled(kFirstRequest)) {
    SCOPED_TRACE(each.mood);
    ExpectFailedStep(CheckJson({"--url", Url(sample::Kind::kSapBw, each.mood)}, ShortTimeOut()),
                     each.failed);
  }
}

TEST_F(CheckOfSample, WithoutAResponseTheLogInIsUnknown) {
  const support::TempDir folder;
  const std::string token = folder.Path() / "token";
  std::ofstream(token) << "t";
  for (const char* const mood : {"stall", "reset"})
    for (const Arguments& options : {Arguments{}, Arguments{"--token-file", token}}) {
      Arguments arguments{"--url", Url(sample::Kind::kSapBw, mood)};
      arguments.insert(arguments.end(), options.begin(), options.end());
      const Outcome outcome = CheckJson(arguments, ShortTimeOut());
      ExpectFailedStep(outcome, "response");
      const Json step = StepOf(outcome.Document(), "log-in");
      EXPECT_EQ(step["status"], "skipped") << mood;
      EXPECT_EQ(step["found"], kNoResponse) << mood;
    }
}

TEST_F(CheckOfSample, SaysNothingAboutTheConnectionAfterOneRequest) {
  const Outcome outcome = CheckJson({"--url", Url(sample::Kind::kSapBw, "html")});
  EXPECT_EQ(StepOf(outcome.Document(), "response")["found"],
            "status 200, text/html; charset=utf-8, not compressed");
}

TEST_F(CheckOfSample, FindsTheStepOfEachRequest) {
  const MoodCase kRequests[] = {
      {"@DISCOVER_DATASOURCES", "data sources"},
      {"@DBSCHEMA_CATALOGS", "catalogs"},
      {"@MDSCHEMA_CUBES/3", "cubes"},
      {"@MDSCHEMA_DIMENSIONS", "hierarchies"},
      {"@MDSCHEMA_HIERARCHIES", "hierarchies"},
      {"@MDSCHEMA_LEVELS/2", "levels"},
      {"@MDSCHEMA_PROPERTIES/2", "levels"},
      {"@MDSCHEMA_MEASURES", "measures"},
      {"@SAP_VARIABLES", "variables"},
      {"@DISCOVER_DATASOURCES/3", "round trip"},
  };
  for (const char* const mood : {"fault", "status:503", "garble"})
    for (const MoodCase& each : support::Sampled(kRequests)) {
      SCOPED_TRACE(std::string(mood) + each.mood);
      const sample::Provider provider;  // counts its requests from the beginning
      const std::string url = provider.Url(sample::Kind::kSapBw) + "?mood=" + mood + each.mood;
      ExpectFailedStep(CheckJson({"--url", url}), each.failed);
    }
}

TEST_F(CheckOfSample, FindsFailuresBeforeTheResponse) {
  sample::Options locked;
  locked.user = "ann";
  locked.password = "right";
  const sample::Provider lockedProvider(locked);
  const std::string secured = lockedProvider.Url(sample::Kind::kSapBw);
  Options password = ShortTimeOut();
  password.environment["XMLA_IMPORT_PASSWORD"] = "wrong";
  const struct {
    Arguments arguments;
    const char* failed;
    const char* says;
  } kCases[] = {
      {{"--url", "http://127.0.0.1:1/xmla"}, "connection", "cannot connect"},
      {{"--url", "http://does-not-exist.invalid/xmla"}, "name resolution", "cannot be resolved"},
      {{"--url", "https" + Url(sample::Kind::kSapBw).substr(4)}, "TLS", "use http://"},
      {{"--url", secured}, "log-in", "requires a log-in"},
      {{"--url", secured, "--user", "ann"}, "log-in", "rejected the user name or the password"},
  };
  for (const auto& each : kCases) {
    SCOPED_TRACE(each.arguments[1]);
    const Outcome outcome = CheckJson(each.arguments, password);
    ExpectFailedStep(outcome, each.failed);
    EXPECT_THAT(outcome.err, HasSubstr(each.says));
  }
}

TEST_F(CheckOfSample, ShowsAFailureOnceOnATerminal) {
  for (const Stream out : {Stream::kTerminal, Stream::kPipe})
    for (const Stream err : {Stream::kTerminal, Stream::kPipe}) {
      Options options;
      options.out = out;
      options.err = err;
      const Outcome outcome = RunTool({"--url", "http://127.0.0.1:1/xmla", "check"}, options);
      EXPECT_EQ(outcome.status, 1);
      EXPECT_THAT(outcome.out, HasSubstr("failed   connection"));
      const bool isOneTerminal = out == Stream::kTerminal && err == Stream::kTerminal;
      EXPECT_EQ(outcome.err.find("error: connection: ") == outcome.err.npos, isOneTerminal);
    }
}

TEST_F(CheckOfSample, NamesTheSchemeOfTheLogIn) {
  sample::Options locked;
  locked.user = "ann";
  locked.password = "right";
  const sample::Provider provider(locked);
  Options password;
  password.environment["XMLA_IMPORT_PASSWORD"] = "right";
  const Outcome outcome =
      CheckJson({"--url", provider.Url(sample::Kind::kSapBw), "--user", "ann"}, password);
  ExpectFailedStep(outcome, "");
  const std::string found = StepOf(outcome.Document(), "log-in")["found"];
  EXPECT_THAT(found, StartsWith("Basic with user \"ann\""));
  EXPECT_THAT(found, HasSubstr("offers: Basic"));
  EXPECT_THAT(
      StepOf(CheckJson({"--url", Url(sample::Kind::kSapBw), "--user", "ann"}, password).Document(),
             "log-in")["found"],
      "the server did not ask for one; the password was not sent");
}

TEST_F(CheckOfSample, WarnsAboutAnotherKind) {
  const Outcome outcome = CheckJson({"--url", Url(sample::Kind::kSapBw), "--target", "tamarind-9"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.Document()["target"], "tamarind-9");
  const Json step = StepOf(outcome.Document(), "identity");
  EXPECT_EQ(step["status"], "warning");
  EXPECT_THAT(step["found"].get<std::string>(), HasSubstr("kind sap-bw35"));
  EXPECT_THAT(step["advice"].get<std::string>(), HasSubstr("use --target sap-bw35"));
}

TEST_F(CheckOfSample, ChecksTheNamedCube) {
  const std::string url = Url(sample::Kind::kAnalysisServices);
  const Outcome outcome = CheckJson({"--url", url, "--catalog", "Larkspur Finance"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(StepOf(outcome.Document(), "hierarchies")["found"].get<std::string>(),
              HasSubstr("(of the cube \"Ledger\"; check reads one cube)"));
  const struct {
    const char* option;
    const char* failed;
    const char* says;
  } kUnknown[] = {
      {"--source", "data sources", "there is no data source \"Nothing\"; there are: "},
      {"--catalog", "catalogs", "there is no catalog \"Nothing\"; there are: "},
      {"--cube", "cubes", "there is no cube \"Nothing\"; there are: "},
  };
  for (const auto& [option, failed, says] : kUnknown) {
    const Outcome unknown = CheckJson({"--url", url, option, "Nothing"});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_EQ(StepOf(unknown.Document(), failed)["status"], "failed");
    EXPECT_THAT(unknown.err, HasSubstr(says));
  }
}

TEST(Check, FailedLookUpOfADefaultMemberIsAWarning) {
  ScriptedProvider::Script script = OneCube();
  script.answer = [](const std::string& type, const std::string&) {
    return type == "MDSCHEMA_MEMBERS" ? support::FaultReply("Server", "broken") : std::string();
  };
  const ScriptedProvider provider(std::move(script));
  const Outcome outcome = CheckJson({"--url", provider.Url()});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(StepOf(outcome.Document(), "hierarchies")["status"], "warning");
  EXPECT_EQ(outcome.Document()["warnings"].size(), 1u);
}

/// The texts of the server may contain the separator of the parts of an error.
TEST(Check, SplitsAnErrorBehindTheServersTexts) {
  ScriptedProvider::Script script;
  script.answer = [](const std::string&, const std::string&) {
    return "<html><title>Sign in; please</title></html>";
  };
  const ScriptedProvider provider(std::move(script));
  const Json step = StepOf(CheckJson({"--url", provider.Url()}).Document(), "protocol");
  EXPECT_EQ(step["found"], "the server sent a web page instead of XML, titled \"Sign in; please\"");
  EXPECT_THAT(step["advice"].get<std::string>(), StartsWith("it may be a log-in form"));
}

/// The server is identified, so the URL is right.
TEST(Check, AdviceForAMalformedReplyDependsOnTheStep) {
  const struct {
    const char* request;
    const char* failed;
    const char* says;
  } kCases[] = {{"DISCOVER_PROPERTIES", "protocol", "check that the URL leads to"},
                {"MDSCHEMA_MEASURES", "measures", "look for errors in the server's own log; an"}};
  for (const auto& test : kCases) {
    ScriptedProvider::Script script = OneCube();
    script.answer = [&](const std::string& type, const std::string&) {
      return type == test.request ? std::string("<?xml version='1.0'?><a><b></a>") : std::string();
    };
    const ScriptedProvider provider(std::move(script));
    const Json step = StepOf(CheckJson({"--url", provider.Url()}).Document(), test.failed);
    EXPECT_THAT(step["found"].get<std::string>(), StartsWith("[46100] "));
    EXPECT_THAT(step["advice"].get<std::string>(), StartsWith(test.says));
  }
}

TEST(Check, UnusableClientCertificateIsAUsageError) {
  const support::TempDir folder;
  const std::string file = folder.Path() / "cert.pem";
  std::ofstream(file) << "nothing";
  const Outcome outcome = CheckJson({"--url", "https://127.0.0.1:1/", "--cert", file});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_THAT(outcome.err, HasSubstr("--cert cannot be used: the file"));
  EXPECT_THAT(outcome.err, HasSubstr("is not a client certificate: give one in PEM or PKCS#12"));
}

TEST(Check, XMLThatIsNoReplyToDiscoverFailsAtTheProtocol) {
  const struct {
    const char* reply;
    bool isReply;
  } kCases[] = {
      {"<r/>", false},
      {"<feed xmlns='http://www.w3.org/2005/Atom'><title>News</title></feed>", false},
      {"<s:Envelope xmlns:s='e'><s:Body><QuoteResponse/></s:Body></s:Envelope>", false},
      {"<s:Envelope xmlns:s='e'><s:Body><DiscoverResponse/></s:Body></s:Envelope>", true},
      {"<ENVELOPE><BODY><m:discoverresponse xmlns:m='m'/></BODY></ENVELOPE>", true},
      {"<Envelope><Body><return><root/></return></Body></Envelope>", true},
      {"<root><row><PropertyName>x</PropertyName></row></root>", true},
  };
  for (const auto& [reply, isReply] : kCases) {
    SCOPED_TRACE(reply);
    ScriptedProvider::Script script;
    script.answer = [text = reply](const std::string&, const std::string&) { return text; };
    const ScriptedProvider provider(std::move(script));
    const Outcome outcome = CheckJson({"--url", provider.Url()});
    if (!isReply) ExpectFailedStep(outcome, "protocol");
    EXPECT_EQ(StepOf(outcome.Document(), "protocol")["status"], isReply ? "ok" : "failed");
  }
}

TEST(Check, AReplyWithoutANameIsAWarning) {
  ScriptedProvider::Script script = OneCube();
  script.name.clear();
  script.version.clear();
  const ScriptedProvider provider(std::move(script));
  const Outcome outcome = CheckJson({"--url", provider.Url()});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(StepOf(outcome.Document(), "protocol")["found"], "XML for Analysis");
  EXPECT_EQ(StepOf(outcome.Document(), "identity")["status"], "warning");
}

TEST(Check, EmptyProviderFailsAtItsDataSources) {
  const ScriptedProvider provider(ScriptedProvider::Script{});
  const Outcome outcome = CheckJson({"--url", provider.Url()});
  ExpectFailedStep(outcome, "data sources");
  EXPECT_THAT(outcome.err, HasSubstr("the provider has no data sources"));
}

TEST(Check, OnlySendsDiscoverAndReadsOneCube) {
  const ScriptedProvider provider(TwoSources());
  EXPECT_EQ(CheckJson({"--url", provider.Url()}).status, 0);
  const std::vector<std::string> types = provider.RequestTypes();
  EXPECT_EQ(std::ranges::count(types, "MDSCHEMA_HIERARCHIES"), 1);
  EXPECT_EQ(std::ranges::count(types, "MDSCHEMA_MEASURES"), 1);
  EXPECT_LE(types.size(), 45u);
}

/// The steps before an interruption stay in the result. The round trip follows a step that exists
/// only for SAP BW.
TEST(Check, InterruptionKeepsTheStepsAndNamesTheOneInProgress) {
  const struct {
    sample::Kind kind;
    const char* mood;
    const char* done;
    const char* interrupted;
  } kCases[] = {
      {sample::Kind::kSapBw, "stall@MDSCHEMA_LEVELS", "cubes", "levels"},
      {sample::Kind::kAnalysisServices, "stall@DISCOVER_PROPERTIES/8", "measures", "round trip"},
  };
  const sample::Provider provider;
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.mood);
    const Outcome outcome = RunToolWhile(
        {"--url", provider.Url(test.kind) + "?mood=" + test.mood, "--format", "json", "check"},
        [](pid_t process) {
          std::this_thread::sleep_for(std::chrono::milliseconds(1000));
          kill(process, SIGINT);
        });
    EXPECT_EQ(outcome.status, 130);
    const Json document = outcome.Document();
    EXPECT_EQ(StepOf(document, test.done)["status"], "ok");
    EXPECT_EQ(StepOf(document, test.interrupted)["found"], "interrupted in this step");
    EXPECT_EQ(document["errors"],
              Json::array({"interrupted in the step \"" + std::string(test.interrupted) + '"'}));
    if (test.kind == sample::Kind::kSapBw) {
      EXPECT_EQ(StepOf(document, "hierarchies")["found"], "interrupted");
    }
  }
}

/// Each step is shown before the next one ends, and the line names the step in progress.
TEST(Check, ShowsEachStepAsItHappens) {
  // A server that accepts connections and says nothing.
  support::LoopbackSocket silent;
  silent.Listen(10);
  const std::string host = silent.Authority();
  const struct {
    const char* name;
    Arguments service;
    std::vector<const char*> done;
    const char* interrupted;
    std::string line;
  } kCases[] = {
      {"TLS",
       {"--url", "https://" + host + "/"},
       {"name resolution", "proxy", "connection"},
       "TLS",
       "TLS handshake with " + host + ", 0 s of 60 s"},
      {"the proxy",
       {"--url", "https://service.invalid/", "--proxy", "http://" + host},
       {"name resolution"},
       "proxy",
       "connecting through the proxy to service.invalid, 0 s of 60 s"},
      {"a SOCKS proxy",
       {"--url", "http://service.invalid/", "--proxy", "socks5h://" + host},
       {"name resolution"},
       "proxy",
       "connecting through the proxy to service.invalid, 0 s of 60 s"},
      {"the reply",
       {"--url", "http://" + host + "/"},
       {"name resolution", "proxy", "connection", "TLS"},
       "response",
       "waiting 0 s of 60 s for DISCOVER_PROPERTIES"},
  };
  for (const auto& each : kCases) {
    SCOPED_TRACE(each.name);
    Options options;
    options.out = Stream::kTerminal;
    options.err = Stream::kTerminal;
    options.environment["MORVEN_BI_XMLA_HTTP_TIMEOUT"] = "60";
    Arguments arguments = each.service;
    arguments.insert(arguments.end(), {"--format", "json", "check"});
    const Outcome outcome = RunToolWhile(
        arguments,
        [](pid_t process) {
          std::this_thread::sleep_for(std::chrono::milliseconds(700));
          kill(process, SIGINT);
        },
        options);
    EXPECT_EQ(outcome.status, 130);
    const Json document = outcome.Document();
    // An interruption hides the steps of an exchange that were not shown before.
    for (const char* const step : each.done) EXPECT_EQ(StepOf(document, step)["status"], "ok");
    EXPECT_EQ(StepOf(document, each.interrupted)["found"], "interrupted in this step");
    EXPECT_EQ(StepOf(document, "identity")["found"], "interrupted");
    EXPECT_THAT(outcome.err, HasSubstr(each.line));
    EXPECT_THAT(outcome.err,
                HasSubstr("interrupted in the step \"" + std::string(each.interrupted) + "\""));
  }
}

/// A diagnosis is complete with a failed step. An interrupted one is not.
TEST(Check, ADiagnosisReplacesTheFile) {
  const support::TempDir folder;
  const std::string file = (folder.Path() / "check.json").string();
  std::ofstream(file) << "before";
  const Outcome outcome =
      RunTool({"--url", "http://127.0.0.1:1/xmla", "--format", "json", "-o", file, "check"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(support::ReadFile(file), HasSubstr("\"failed\""));
  EXPECT_FALSE(std::filesystem::exists(file + ".partial"));
  const sample::Provider provider;
  const Outcome interrupted = RunToolWhile(
      {"--url", provider.Url(sample::Kind::kSapBw) + "?mood=stall", "-o", file, "check"},
      [](pid_t process) {
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        kill(process, SIGINT);
      });
  EXPECT_EQ(interrupted.status, 130);
  EXPECT_THAT(support::ReadFile(file), HasSubstr("\"failed\""));
  EXPECT_TRUE(std::filesystem::exists(file + ".partial"));
}

}  // namespace
}  // namespace tool
