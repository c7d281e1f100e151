// Tests import --jobs on servers that refuse requests beside others: only the time changes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "CubeCopies.h"
#include "DiscoverService.h"
#include "SampleProvider.h"
#include "loopback-server/Server.h"
#include "support/Effort.h"
#include "support/Sanitized.h"
#include "support/ScriptedServer.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

using Clock = std::chrono::steady_clock;

/// How a server refuses a request.
struct Refusal {
  const char* name;
  int status;        ///< 0: no complete reply
  const char* text;  ///< body of the reply
  bool isReset = false;
  bool isSilent = false;  ///< sends nothing until the client gives up
  bool isHalving = true;  ///< the client sends fewer requests at a time after it

  friend void PrintTo(const Refusal& refusal, std::ostream* stream) { *stream << refusal.name; }
};

const std::string kFault = support::FaultReply("c", "too many requests");
const Refusal kRefusals[] = {
    {"429", 429, "busy"},
    {"503", 503, "busy"},
    {"503 with a fault", 503, kFault.c_str()},
    {"502", 502, "busy"},
    {"504", 504, "busy"},
    {"closed", 0, ""},
    {"closed in the head", 0, "HTTP/1.1 200 OK\r\nContent-"},
    {"closed in the body", 0, "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n<?xml"},
    {"reset", 0, "", true},
    {"silent", 0, "", false, true},
    {"a fault", 200, kFault.c_str(), false, false, false},
    {"500 with a fault", 500, kFault.c_str(), false, false, false},
    {"500", 500, "busy", false, false, false},
    {"403", 403, "busy", false, false, false},
    {"a page", 200, "<html><body>busy</body></html>", false, false, false},
    {"a cut reply", 200, "<?xml version='1.0'?><a>", false, false, false}};

/// The cubes of the sample provider, on a server that refuses requests while more than some are in
/// progress.
class LimitedServer {
 public:
  std::string Url() const { return "http://" + m_server.Authority() + "/xmla"; }

  std::atomic<int> most{1000};  ///< requests in progress that are not refused
  std::atomic<const Refusal*> refusal{&kRefusals[1]};
  std::atomic<int> milliseconds{1};   ///< for which a request is in progress
  std::atomic<bool> isFaulty{false};  ///< the levels of some hierarchies are a fault
  std::atomic<bool> isBroken{false};  ///< refuses all levels of some hierarchies
  std::atomic<int> refused{0};
  std::atomic<int> count{0};
  int TakeMostInProgress() { return m_mostInProgress.exchange(0); }

 private:
  void Serve(loopback::Connection& connection, const loopback::Request& request) {
    ++count;
    const int now = ++m_inProgress;
    int former = m_mostInProgress;
    while (now > former && !m_mostInProgress.compare_exchange_weak(former, now)) continue;
    m_server.Stop().Sleep(std::chrono::milliseconds(milliseconds));
    --m_inProgress;  // the client may send the next request as soon as it has the reply
    const bool isOfLevels = support::RequestType(request.body) == "MDSCHEMA_LEVELS" &&
                            request.body.find(">[Date].[") != std::string::npos;
    if (now > most || (isBroken && isOfLevels)) {
      ++refused;
      Refuse(connection, *refusal);
    } else if (isFaulty && isOfLevels) {
      connection.Send(loopback::Answer(support::FaultReply("c", "no levels")));
    } else {
      connection.Send(
          loopback::Answer(sample::Answer(sample::Kind::kAnalysisServices, request.body).body));
    }
  }

  static void Refuse(loopback::Connection& connection, const Refusal& how) {
    if (how.isSilent) connection.AwaitPeerGone();
    if (how.isReset) return connection.Reset();
    connection.Send(how.status == 0
                        ? how.text
                        : loopback::Answer(how.text, how.status, "Content-Type: text/plain\r\n"));
    if (how.status == 0) connection.Close();
  }

  std::atomic<int> m_inProgress{0};
  std::atomic<int> m_mostInProgress{0};
  loopback::Server m_server{
      [this](loopback::Connection& connection, const loopback::Request& request) {
        Serve(connection, request);
      },
      {.requestsKept = 0}};
};

Outcome ImportAll(const LimitedServer& server, const std::string& jobs) {
  const char* const timeout = !server.refusal.load()->isSilent ? "60"
                              : support::kIsSanitized          ? "3"
                                                               : "1";
  return RunTool(
      {"--url", server.Url(), "--timeout", timeout, "--format", "json", "import", "--jobs", jobs});
}

class ImportJobsRefused : public testing::TestWithParam<Refusal> {};
INSTANTIATE_TEST_SUITE_P(Refusals, ImportJobsRefused, testing::ValuesIn(kRefusals));

/// Refusals that happen only to simultaneous requests do not change the document.
TEST_P(ImportJobsRefused, GiveTheSameDocument) {
  constexpr struct {
    int most;
    int jobs;
  } kLimits[] = {{1, 8}, {1, 2}, {2, 4}, {3, 8}};
  // With sanitizers, every second one, and the others for the next refusal.
  const std::size_t step = support::Stride(std::size(kLimits), std::size(kLimits));
  const auto position = std::ranges::find(kRefusals, GetParam().name, &Refusal::name) - kRefusals;
  LimitedServer server;
  server.refusal = &GetParam();
  int refused = 0;
  for (const bool isFaulty : {false, true}) {
    server.isFaulty = isFaulty;
    server.most = 1000;
    const Outcome one = ImportAll(server, "1");
    ASSERT_EQ(one.status, isFaulty ? 3 : 0) << one.err;
    ASSERT_GE(one.Document()["cubes"].size(), 4u);
    for (std::size_t i = static_cast<std::size_t>(position) % step; i < std::size(kLimits);
         i += step) {
      const auto [most, jobs] = kLimits[i];
      const bool isSlow = GetParam().isSilent || GetParam().status == 429;  // takes seconds
      if (isSlow && refused > 0) break;
      server.most = most;
      server.refused = 0;
      server.TakeMostInProgress();
      const Outcome many = ImportAll(server, std::to_string(jobs));
      EXPECT_EQ(many.status, one.status) << most << ", " << jobs << many.err;
      EXPECT_TRUE(many.out == one.out) << most << ", " << jobs << many.err;
      refused += server.refused;
      // The budget is halved to the limit; only the requests before that are refused. libcurl
      // itself repeats requests whose connection was closed.
      if (GetParam().isHalving && GetParam().status != 0) {
        EXPECT_LE(server.refused, 2 * jobs) << most << ", " << jobs;
      }
      // After an error, the server still works on requests that were cancelled.
      if (!isFaulty) {
        EXPECT_LE(server.TakeMostInProgress(), jobs);
      }
    }
  }
  EXPECT_GT(refused, 0);
}

TEST(ImportJobs, VerboseSaysThatABusyServerGetsFewerRequests) {
  LimitedServer server;
  server.most = 1;
  for (const char* const jobs : {"1", "4"})
    for (const int status : {429, 503, 500, 0}) {
      server.refusal = std::ranges::find(kRefusals, status, &Refusal::status);
      const Outcome outcome =
          RunTool({"--url", server.Url(), "--verbose", "import", "--jobs", jobs});
      EXPECT_EQ(outcome.status, 0);
      const auto count = [&](const char* text) {
        return std::ranges::count_if(outcome.ErrorLines(), [&](const std::string& line) {
          return line.find(text) != std::string::npos;
        });
      };
      const bool isOverload = jobs[0] != '1' && status != 500;
      for (const char* const left : {"2 requests at a time", "1 request at a time"}) {
        const auto lines = count(
            (std::string("the server seems overloaded: from now on, at most ") + left).c_str());
        EXPECT_EQ(lines > 0, isOverload) << outcome.err;
        if (status != 0) {
          EXPECT_LE(lines, 1) << outcome.err;  // the number stays low
        }
      }
      EXPECT_EQ(count("the server is busy: no request is sent before ") > 0,
                isOverload && status == 429)
          << outcome.err;
      EXPECT_EQ(count("no sign of overload: from now on, at most 2 requests at a time") > 0,
                isOverload && status == 0)
          << outcome.err;
    }
}

/// A refusal that a request gets alone, too, is the result.
TEST_P(ImportJobsRefused, ReportARefusalThatHappensAlone) {
  LimitedServer server;
  server.refusal = &GetParam();
  server.isBroken = true;
  const Outcome one = ImportAll(server, "1");
  EXPECT_EQ(one.status, 3);
  const int requests = server.count.exchange(0);
  for (const char* const jobs : {"2", "8"}) {
    if ((GetParam().isSilent || GetParam().status == 429) && jobs[0] == '2') continue;
    const Outcome many = ImportAll(server, jobs);
    EXPECT_EQ(many.status, 3);
    EXPECT_EQ(many.out, one.out) << jobs;
    // If the number of requests at a time is not halved, more are sent ahead in vain.
    const bool isQuick = GetParam().isHalving && !GetParam().isSilent;
    EXPECT_LT(server.count.exchange(0), (isQuick ? 2 : 4) * requests);
  }
}

TEST(ImportJobs, NothingIsRepeatedWithOneJob) {
  LimitedServer server;
  ImportAll(server, "1");
  const int requests = server.count.exchange(0);
  server.isBroken = true;
  ImportAll(server, "1");
  const int refused = server.refused;
  EXPECT_GT(refused, 0);
  EXPECT_LT(server.count, requests);  // a cube ends with its first refusal
  const Json document = ImportAll(server, "1").Document();
  EXPECT_EQ(server.refused, 2 * refused);
  EXPECT_LE(static_cast<std::size_t>(refused), document["cubes"].size());
}

/// A thread that has read as many cubes ahead as it may waits for the slow cube before them.
/// Meanwhile that cube has two requests at a time.
TEST(ImportJobs, AThreadThatWaitsLendsItsPlace) {
  constexpr const char* kSlow = "Sales, copy 1<";  // not copy 10
  std::atomic<int> ofSlow{0};
  std::atomic<int> mostOfSlow{0};
  std::atomic<int> ofOthers{0};
  loopback::Server server([&](loopback::Connection& connection, const loopback::Request& request) {
    const std::string type = support::RequestType(request.body);
    const bool isOfCube = type == "MDSCHEMA_LEVELS" || type == "MDSCHEMA_PROPERTIES";
    const bool isSlow = isOfCube && request.body.find(kSlow) != std::string::npos;
    if (isOfCube && !isSlow) ++ofOthers;
    if (isSlow) {
      const int now = ++ofSlow;
      int former = mostOfSlow;
      while (now > former && !mostOfSlow.compare_exchange_weak(former, now)) continue;
      // The first request ends when the other thread has nothing to do.
      for (int quiet = 0, last = -1; quiet < 20 && mostOfSlow < 2; ++quiet) {
        if (last != ofOthers) quiet = 0;
        last = ofOthers;
        server.Stop().Sleep(std::chrono::milliseconds(20));
      }
      --ofSlow;
    }
    connection.Send(loopback::Answer(
        sample::AnswerWithCopies(sample::Kind::kAnalysisServices, request.body, 12).body));
  });
  const Outcome outcome = RunTool({"--url", "http://" + server.Authority() + "/xmla", "--format",
                                   "json", "import", "--jobs", "2"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(mostOfSlow, 2);
}

/// Also while requests wait to be alone.
TEST(ImportJobs, AnInterruptionEndsThemAtOnce) {
  double longest = 0;
  LimitedServer server;
  for (const int most : {1, 3, 1000}) {
    server.most = most;
    server.milliseconds = 80;
    for (int i = 0; i < 4; ++i) {
      Clock::time_point interrupted;
      const Outcome outcome =
          RunToolWhile({"--url", server.Url(), "--format", "json", "--target",
                        "analysis-services-2005", "import", "--jobs", "8"},
                       [&](pid_t tool) {
                         // Name, version, sources, catalogs and cubes are read one at a time.
                         std::this_thread::sleep_for(std::chrono::milliseconds(900 + 70 * i));
                         interrupted = Clock::now();
                         kill(tool, SIGINT);
                       });
      longest =
          std::max(longest, std::chrono::duration<double>(Clock::now() - interrupted).count());
      EXPECT_EQ(outcome.status, 130) << outcome.err;
    }
  }
  EXPECT_LT(longest, 0.1 + 0.4);
}

}  // namespace
}  // namespace tool
