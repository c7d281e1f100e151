// Every fault mode of the sample provider over real sockets: the error text of the import interface
// and of the tool, the time until it appears, and that the next request succeeds.

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include "NetworkSupport.h"
#include "SampleProvider.h"
#include "Utility/Generic/HTTPClientWrapper.h"
#include "support/ChildProcess.h"
#include "support/Effort.h"
#include "support/ScriptedServer.h"
#include "support/WireServer.h"

namespace network {
namespace {

using testing::HasSubstr;

struct MoodCase {
  const char* mood;
  const char* says;  // the error text; null: the reply is valid
  double seconds = 0.5;
  double atLeast = 0;  // seconds
};

constexpr char kSilent[] = "in the middle of its reply and has sent nothing for 1 second; ";
constexpr char kUnanswered[] = "the server closed the connection without a response; ";
constexpr char kCut[] = "the connection was closed in the middle of the reply; ";
constexpr char kBroken[] = "the connection failed while the reply was received";
constexpr char kFault[] = "[64203] The server refused the request with the SOAP fault ";
constexpr char kTooTight[] =
    "compressed by a factor of more than 500 (limit maxCompressionRatio); ";
constexpr char kNoXml[] = "[46100] The server's reply could not be read as XML: ";

// The time-out is one second.
constexpr MoodCase kCases[] = {
    {"stall", "the server has not responded for 1 second;", 2},
    {"stall-head", kSilent, 2},
    {"stall-head:100", kSilent, 2},
    {"stall-body", kSilent, 2},
    {"stall-body:0", kSilent, 2},
    {"slow:30000", "the server has not responded for 1 second;", 2},
    {"slow:300", nullptr, 1},
    {"drip:1", nullptr, 20, 1},  // longer in all than the time-out
    // The client retries once on a reused connection, and never on a new one.
    {"cut:0", nullptr},
    {"reset", nullptr},
    {"cut:0/1", kUnanswered},
    {"reset/1", kBroken},
    {"truncate", kCut},
    {"truncate:0", kCut},
    {"truncate:1", kCut},
    {"cut:20", kCut},
    {"cut:60", kCut},
    {"reset:20", kBroken},
    {"reset:500", kBroken},
    {"wrong-length", "10 bytes remaining to read"},
    {"wrong-length:-10", kNoXml},
    {"wrong-length:1000000", kCut},
    {"no-length", nullptr},
    {"chunked", nullptr},
    {"broken-chunks", "Illegal or missing hexadecimal sequence in chunked-encoding"},
    {"endless-head", "more than 307200 bytes of headers (limit maxHeaderBytes)", 2},
    {"bomb:1", kTooTight},
    {"bomb:64", kTooTight, 2},
    {"fault", kFault},
    {"fault-500", kFault},
    {"garble", kNoXml},
    {"html", "the server sent a web page instead of XML, titled \"Please sign in\""},
    {"empty", "HTTP 200 OK, but the reply is empty"},
    {"redirect", "HTTP 302 Found, points to http://127.0.0.1:"},
    {"status:401", "HTTP 401 Unauthorized: the server requires a log-in; "},
    {"status:403", "HTTP 403 Forbidden"},
    {"status:404", "HTTP 404 Not Found"},
    {"status:407", "HTTP 407 Proxy Authentication Required: no proxy is set"},
    {"status:413", "HTTP 413 Content Too Large"},
    {"status:500", "HTTP 500 Internal Server Error"},
    {"status:503", "HTTP 503 Service Unavailable"},
    {"status:504", "HTTP 504 Gateway Timeout"},
    {"double-declaration", kNoXml},
    {"latin-1", nullptr},
    {"utf-16", nullptr},
};

/// A gibibyte, which takes time and memory.
constexpr MoodCase kEndless = {
    "endless", "the reply is longer than 268435456 bytes and was not read to its end", 20};

/// The three kinds of server; the quick form uses only the first.
struct KindCase {
  sample::Kind kind;
  ServerInfo::TargetType target;
  const char* targetName;
  std::vector<std::string> sources;
};
const KindCase kKindCases[] = {
    {sample::Kind::kAnalysisServices,
     ServerInfo::kAnalysisServices2005,
     "analysis-services-2005",
     {"NORTHQUAY"}},
    {sample::Kind::kSapBw, ServerInfo::kSAP_BW35, "sap-bw35", {"default"}},
    {sample::Kind::kTamarind,
     ServerInfo::kTamarind7,
     "tamarind-7",
     {"Provider=Kelvora;Data Source=localhost", "Provider=Kelvora;Data Source=archive",
      "Provider=Kelvora;Data Source=rehearsal"}},
};

/// The expected error text of the fault mode for this kind.
const char* Says(const KindCase& kind, const MoodCase& test) {
  const std::string mood = test.mood;
  const bool isTamarind = kind.kind == sample::Kind::kTamarind;
  // Skips identification, so that no connection exists yet.
  if (isTamarind && mood == "cut:0") return kUnanswered;
  if (isTamarind && mood == "reset") return kBroken;
  // Two declarations are accepted; a reply without its own declaration gets one more.
  if (kind.kind != sample::Kind::kAnalysisServices && mood == "double-declaration") return nullptr;
  return test.says;
}

Service Moody(const sample::Provider& provider, const KindCase& kind, const MoodCase& test) {
  std::string mood = std::string("?mood=") + test.mood;
  if (!mood.ends_with("/1")) mood += "@DISCOVER_DATASOURCES/1";
  return {provider.Url(kind.kind) + mood, kind.target, kind.targetName, kind.sources};
}

void ThroughTheImport(const KindCase& kind, const MoodCase& test) {
  const sample::Provider provider;
  const char* const says = Says(kind, test);
  Import import(Moody(provider, kind, test));
  const Outcome first = import.DataSources();
  EXPECT_LT(first.seconds, test.seconds * Slack());
  EXPECT_GT(first.seconds, test.atLeast);
  EXPECT_EQ(first.names.empty(), says != nullptr);
  if (says)
    EXPECT_THAT(first.errors, HasSubstr(says));
  else
    EXPECT_EQ(first.errors, "");
  EXPECT_THAT(first.errors, testing::Not(HasSubstr("\n")));
  const Outcome next = import.DataSources();
  EXPECT_EQ(next.names, kind.sources);
  EXPECT_EQ(next.errors, "");
}

void ThroughTheTool(const KindCase& kind, const MoodCase& test) {
  const sample::Provider provider;
  const Service service = Moody(provider, kind, test);
  if (const char* const says = Says(kind, test)) ExpectOneErrorLine(service, says, test.seconds);
  ExpectDataSources(service);
}

/// Runs several at a time, since most of them wait. Returns their number.
std::string TryAll(void (*attempt)(const KindCase&, const MoodCase&)) {
  const std::size_t kinds = support::IsLong() ? std::size(kKindCases) : 1;
  const std::size_t count = kinds * std::size(kCases);
  constexpr int kAtATime = 6;
  std::atomic<std::size_t> next{0};
  std::vector<std::jthread> workers;
  for (int i = 0; i < kAtATime; ++i)
    workers.emplace_back([&] {
      for (std::size_t n = next++; n < count; n = next++) {
        const KindCase& kind = kKindCases[n / std::size(kCases)];
        const MoodCase& test = kCases[n % std::size(kCases)];
        SCOPED_TRACE(std::string(kind.targetName) + ", " + test.mood);
        attempt(kind, test);
      }
    });
  workers.clear();
  if (!support::IsLong()) return Text(count, " moods");
  for (const KindCase& kind : kKindCases) {
    SCOPED_TRACE(std::string(kind.targetName) + ", " + kEndless.mood);
    attempt(kind, kEndless);
  }
  return Text(count / kinds + 1, " moods of ", kinds, " kinds of server");
}

// The library reads the time-out once, when it is loaded.
TEST_IN_CHILD(NetworkMoods, ImportReportsErrorsInTimeAndTheNextRequestSucceeds,
              {{"MORVEN_BI_XMLA_HTTP_TIMEOUT", "1"}}) {
  const std::string tried = TryAll(ThroughTheImport);
  Figure("server fault modes, import interface",
         tried + ", each with its text and in its time, the next request answered");
}

TEST(NetworkMoods, ToolReportsOneLineInTime) {
  const std::string tried = TryAll(ThroughTheTool);
  Figure("server fault modes, tool", tried + ", each status 1 and one line, or the result");
}

TEST(NetworkMoods, ReplyMayHave256Mebibytes) {
  EXPECT_EQ(HTTPClientOptions().maxReplyBytes, 268'435'456u);
}

TEST_IN_CHILD(NetworkMoods, PausesShorterThanTheTimeOutAreAllowed,
              {{"MORVEN_BI_XMLA_HTTP_TIMEOUT", "1"}}) {
  constexpr std::chrono::milliseconds kGap{800};
  const std::string reply = Answer(support::RowsetReply("DataSourceName", {"NORTHQUAY"}));
  std::atomic<Clock::duration> longest{};
  WireServer server([&](loopback::Connection& connection, const loopback::Request& request) {
    if (support::RequestType(request.body) != "DISCOVER_DATASOURCES") {
      connection.Send(reply);
      return;
    }
    std::size_t sent = 0;
    // In the headers, and in the body.
    for (const std::size_t end : {std::size_t{20}, reply.size() - 50, reply.size()}) {
      const Clock::time_point begin = Clock::now();
      if (sent > 0) std::this_thread::sleep_for(kGap);
      connection.Send(reply.substr(sent, end - sent));
      longest = std::max(longest.load(), Clock::now() - begin);
      sent = end;
    }
  });
  Import import("http://" + server.Authority() + "/");
  constexpr int kTries = 5;
  int tries = 0;
  Outcome outcome;
  do {
    longest = Clock::duration();
    outcome = import.DataSources();
    // Pauses of a busy machine may be too long.
  } while (++tries < kTries && longest.load() > std::chrono::milliseconds(950));
  EXPECT_EQ(outcome.errors, "");
  EXPECT_THAT(outcome.names, testing::ElementsAre("NORTHQUAY"));
  EXPECT_GE(outcome.seconds, 1.6);
  Figure("gaps of 0.8 s with a time-out of 1 s", Text("read whole at try ", tries));
}

}  // namespace
}  // namespace network
