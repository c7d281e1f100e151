// Every way in which the sample provider can misbehave, over real sockets: what the user is told
// by the import interface and by the tool, how soon, and that the next request is answered.

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include "NetworkSupport.h"
#include "SampleProvider.h"
#include "support/ChildProcess.h"

namespace network {
namespace {

using testing::HasSubstr;

struct MoodCase {
  const char* mood;
  const char* says;  // the error's text; nothing: the reply is as good as another
  double seconds = 0.5;
};

constexpr char kSilent[] = "in the middle of its reply and has sent nothing for 1 seconds: ";
constexpr char kCut[] = "The connection was cut in the middle of the reply: ";
constexpr char kBroken[] = "The connection broke while the reply was read: ";
constexpr char kFault[] = "[64203] The server refused the request with the SOAP fault ";
constexpr char kNoXml[] = "[46100] The server's reply could not be read as XML: ";

// The time-out is one second.
constexpr MoodCase kCases[] = {
    {"stall", "The server has sent no answer for 1 seconds: ", 2},
    {"stall-head", kSilent, 2},
    {"stall-head:100", kSilent, 2},
    {"stall-body", kSilent, 2},
    {"stall-body:0", kSilent, 2},
    {"slow:30000", "The server has sent no answer for 1 seconds: ", 2},
    {"slow:300", nullptr, 1},
    {"drip:1", nullptr, 20},  // longer in all than the time-out
    // A kept connection that turns out to be closed is made anew; a new one is not.
    {"cut:0", nullptr},
    {"reset", nullptr},
    {"cut:0/1", "The server closed the connection without an answer: "},
    {"reset/1", kBroken},
    {"truncate", kCut},
    {"truncate:0", kCut},
    {"truncate:1", kCut},
    {"cut:20", kCut},
    {"cut:60", kCut},
    {"reset:20", kBroken},
    {"reset:500", kBroken},
    {"wrong-length", "10 bytes remaining to read: "},
    {"wrong-length:-10", kNoXml},
    {"wrong-length:1000000", kCut},
    {"no-length", nullptr},
    {"chunked", nullptr},
    {"broken-chunks", "Illegal or missing hexadecimal sequence in chunked-encoding: "},
    {"endless-head", "Too large response headers: ", 2},
    {"bomb:1", nullptr},
    {"bomb:64", "the text of the element Envelope is longer than 8388608 characters", 2},
    {"fault", kFault},
    {"fault-500", kFault},
    {"garble", kNoXml},
    {"html", "A web page came instead of XML, titled \"Please sign in\": "},
    {"empty", "HTTP 200 OK, but the reply is empty: "},
    {"redirect", "HTTP 302 Found, points to http://127.0.0.1:"},
    {"status:401", "HTTP 401 Unauthorized, log-in offered: Basic: "},
    {"status:403", "HTTP 403 Forbidden: "},
    {"status:404", "HTTP 404 Not Found: "},
    {"status:407", "HTTP 407 Proxy Authentication Required, log-in offered: Basic: "},
    {"status:413", "HTTP 413 Content Too Large: "},
    {"status:500", "HTTP 500 Internal Server Error: "},
    {"status:503", "HTTP 503 Service Unavailable: "},
    {"status:504", "HTTP 504 Gateway Timeout: "},
    {"double-declaration", kNoXml},
    {"latin-1", nullptr},
    {"utf-16", nullptr},
};

std::string Asked(const MoodCase& test) {
  const std::string mood = std::string("?mood=") + test.mood;
  return mood.ends_with("/1") ? mood : mood + "@DISCOVER_DATASOURCES/1";
}

void ThroughTheImport(const MoodCase& test) {
  const sample::Provider provider;
  Import import(provider.Url(sample::Kind::kAnalysisServices) + Asked(test));
  const Outcome first = import.DataSources();
  EXPECT_LT(first.seconds, test.seconds * Slack());
  EXPECT_EQ(first.names.empty(), test.says != nullptr);
  if (test.says)
    EXPECT_THAT(first.errors, HasSubstr(test.says));
  else
    EXPECT_EQ(first.errors, "");
  EXPECT_THAT(first.errors, testing::Not(HasSubstr("\n")));
  const Outcome next = import.DataSources();
  EXPECT_THAT(next.names, testing::ElementsAre("NORTHQUAY"));
  EXPECT_EQ(next.errors, "");
}

void ThroughTheTool(const MoodCase& test) {
  const sample::Provider provider;
  const std::string url = provider.Url(sample::Kind::kAnalysisServices) + Asked(test);
  if (test.says) ExpectOneErrorLine(url, test.says, test.seconds);
  ExpectDataSources(url);
}

/// Most of them wait for something, so some are tried at a time.
void TryAll(void (*attempt)(const MoodCase&)) {
  constexpr int kAtATime = 6;
  std::atomic<std::size_t> next{0};
  std::vector<std::jthread> workers;
  for (int i = 0; i < kAtATime; ++i)
    workers.emplace_back([&] {
      for (std::size_t n = next++; n < std::size(kCases); n = next++) {
        SCOPED_TRACE(kCases[n].mood);
        attempt(kCases[n]);
      }
    });
}

// The library reads its time-out once, when it is loaded.
TEST_IN_CHILD(NetworkMoods, AreTextsOfTheImportInTimeAndTheNextRequestIsAnswered,
              {{"MORVEN_BI_XMLA_HTTP_TIMEOUT", "1"}}) {
  TryAll(ThroughTheImport);
  Figure("misbehaving server, import interface",
         Text(std::size(kCases),
              " moods, each with its text and in its time, the next request answered"));
}

TEST(NetworkMoods, AreOneLineOfTheToolInTime) {
  TryAll(ThroughTheTool);
  Figure("misbehaving server, tool",
         Text(std::size(kCases), " moods, each status 1 and one line, or the result"));
}

}  // namespace
}  // namespace network
