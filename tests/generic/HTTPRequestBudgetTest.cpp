// Tests the number of requests at a time that import objects share.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/HTTPReadAhead.h"
#include "Utility/Generic/VXExecutionState.h"
#include "loopback-server/Server.h"
#include "support/ReservedPort.h"
#include "support/Sanitized.h"
#include "support/ScriptedServer.h"
#include "support/Text.h"

namespace {

using Permit = HTTPRequestBudget::Permit;
using BudgetClock = std::chrono::steady_clock;

double Seconds(BudgetClock::time_point since) {
  return std::chrono::duration<double>(BudgetClock::now() - since).count();
}

TEST(HTTPRequestBudget, GivesAtMostSoManyPermits) {
  HTTPRequestBudget budget(3);
  Permit one = budget.Take(false);
  Permit two = budget.TryTakeAhead();
  const Permit three = budget.TryTakeAhead();
  EXPECT_TRUE(one && two && three);
  EXPECT_FALSE(budget.TryTakeAhead());
  EXPECT_FALSE(budget.TryTakeOwn());
  two.Return();
  EXPECT_TRUE(budget.TryTakeAhead());
}

/// A place is kept for each import object.
TEST(HTTPRequestBudget, PlacesAheadAreThoseThatImportsLeave) {
  HTTPRequestBudget budget(4, 3);
  EXPECT_TRUE(budget.HasRoom());
  const Permit ahead = budget.TryTakeAhead();
  EXPECT_TRUE(ahead);
  EXPECT_FALSE(budget.TryTakeAhead());
  budget.EndImport();
  EXPECT_TRUE(budget.TryTakeAhead());
}

/// TryTakeAhead fails while a request of an import object waits. When that request begins, the
/// places that are left are announced.
TEST(HTTPRequestBudget, AnnouncesThePlacesThatARequestLeaves) {
  struct Announced final : HTTPRequestBudget::Listener {
    void OnPlaceFree() noexcept override { ++count; }
    std::atomic<int> count{0};
  };
  HTTPRequestBudget budget(4);
  Announced announced;
  budget.Add(announced);
  Permit alone = budget.Take(true);
  std::atomic<bool> hasBegun{false};
  std::atomic<bool> mayEnd{false};
  std::jthread other([&] {
    const Permit permit = budget.Take(false);
    hasBegun = true;
    while (!mayEnd) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));  // the other thread waits
  EXPECT_FALSE(budget.TryTakeAhead());
  alone.Return();
  for (int i = 0; i < 5000 && !hasBegun; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  EXPECT_TRUE(hasBegun);
  EXPECT_GT(announced.count, 0);
  mayEnd = true;
  other.join();
  budget.Remove(announced);
}

/// Requests of import objects, some of them alone, and requests that are sent ahead, all at once.
TEST(HTTPRequestBudget, HoldsItsPromisesWithManyThreads) {
  constexpr int kMost = 3;
  HTTPRequestBudget budget(kMost, 2);
  std::atomic<int> inProgress{0};
  std::atomic<int> tooMany{0};
  std::atomic<int> notAlone{0};
  std::atomic<int> ahead{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 6; ++i)
    threads.emplace_back([&, i] {
      for (int round = 0; round < 300; ++round) {
        const bool isAlone = i < 2 && round % 7 == i;
        const Permit permit = i < 2 ? budget.Take(isAlone) : budget.TryTakeAhead();
        if (!permit) {
          std::this_thread::sleep_for(std::chrono::microseconds(20));
          continue;
        }
        if (i >= 2) ++ahead;
        if (++inProgress > kMost) ++tooMany;
        if (isAlone && inProgress != 1) ++notAlone;
        std::this_thread::sleep_for(std::chrono::microseconds(50));
        if (isAlone && inProgress != 1) ++notAlone;
        --inProgress;
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_GT(ahead, 0);
  EXPECT_EQ(tooMany, 0);
  EXPECT_EQ(notAlone, 0);
  EXPECT_TRUE(budget.Take(true));
}

TEST(HTTPRequestBudget, RefusedRequestsHalveItOnce) {
  HTTPRequestBudget budget(8);
  std::vector<Permit> permits;
  for (int i = 0; i < 8; ++i)
    permits.push_back(i == 0 ? budget.Take(false) : budget.TryTakeAhead());
  for (Permit& permit : permits) permit.Refuse(true);
  permits.clear();
  EXPECT_EQ(budget.MostAhead(), 3u);
  for (int i = 0; i < 5; ++i) {
    const Permit own = budget.Take(false);
    Permit ahead = budget.TryTakeAhead();
    if (ahead) ahead.Refuse(true);
  }
  EXPECT_EQ(budget.MostAhead(), 0u);
  EXPECT_TRUE(budget.Take(false));
}

/// Requests that have ended without a refusal.
void Pass(HTTPRequestBudget& budget, int requests) {
  for (int i = 0; i < requests; ++i) budget.Take(false).Return();
}

/// Two requests at a time, of which one is refused.
void RefuseOne(HTTPRequestBudget& budget, bool isCertain) {
  const Permit own = budget.Take(false);
  budget.Take(false).Refuse(isCertain);
}

/// A lost connection can have another reason than load, so the number does not stay low.
TEST(HTTPRequestBudget, DoublesAgainAfterAnUncertainRefusal) {
  HTTPRequestBudget budget(7);
  RefuseOne(budget, false);
  RefuseOne(budget, false);
  EXPECT_EQ(budget.MostAhead(), 0u);
  Pass(budget, 31);
  EXPECT_EQ(budget.MostAhead(), 0u);
  Pass(budget, 1);
  EXPECT_EQ(budget.MostAhead(), 1u);
  Pass(budget, 20);
  RefuseOne(budget, false);
  Pass(budget, 31);  // counted from the last refusal
  EXPECT_EQ(budget.MostAhead(), 0u);
  Pass(budget, 1 + 32);
  EXPECT_EQ(budget.MostAhead(), 3u);
  Pass(budget, 300);
  EXPECT_EQ(budget.MostAhead(), 6u);
}

/// A request that fails alone is a sign, too: the server may be down.
TEST(HTTPRequestBudget, DoesNotDoubleWhileRequestsFailAlone) {
  HTTPRequestBudget budget(4);
  RefuseOne(budget, false);
  RefuseOne(budget, false);
  for (int i = 0; i < 100; ++i) {
    Permit alone = budget.Take(true);
    alone.Refuse(false);
  }
  EXPECT_EQ(budget.MostAhead(), 0u);
  EXPECT_EQ(budget.Limit(), 4u);
}

/// It began when there were twice as many.
TEST(HTTPRequestBudget, ALateRefusalHalvesTheNumberOfItsTime) {
  HTTPRequestBudget budget(8);
  Permit slow = budget.Take(false);
  RefuseOne(budget, false);
  EXPECT_EQ(budget.MostAhead(), 3u);
  Pass(budget, 32);
  EXPECT_EQ(budget.MostAhead(), 7u);
  slow.Refuse(true);
  EXPECT_EQ(budget.MostAhead(), 3u);
  EXPECT_EQ(budget.Limit(), 4u);
}

/// With one request at a time from the beginning, nothing is repeated.
TEST(HTTPRequestBudget, NothingIsBesideOthersWithOne) {
  HTTPRequestBudget budget(1);
  budget.Take(false).Abandon();
  EXPECT_FALSE(budget.Take(false).IsBesideOthers());
}

TEST(HTTPRequestBudget, StaysHalvedAfterACertainRefusal) {
  HTTPRequestBudget budget(16);
  RefuseOne(budget, true);
  EXPECT_EQ(budget.MostAhead(), 7u);
  RefuseOne(budget, false);
  EXPECT_EQ(budget.MostAhead(), 3u);
  Pass(budget, 300);
  EXPECT_EQ(budget.MostAhead(), 7u);
  // Requests in progress together: the second refusal makes the first one last.
  const Permit own = budget.Take(false);
  Permit lost = budget.Take(false);
  Permit refused = budget.Take(false);
  lost.Refuse(false);
  refused.Refuse(true);
  lost.Return();
  refused.Return();
  Pass(budget, 300);
  EXPECT_EQ(budget.MostAhead(), 3u);
}

/// What happens to a request that was alone would happen to it with one request at a time.
TEST(HTTPRequestBudget, ARefusalOfARequestThatWasAloneIsFinal) {
  for (const bool isAlone : {false, true}) {
    HTTPRequestBudget budget(8, 4);
    Permit permit = budget.Take(isAlone);
    EXPECT_FALSE(permit.IsBesideOthers());
    permit.Refuse(true);
    EXPECT_EQ(budget.MostAhead(), 7u);
  }
  HTTPRequestBudget budget(8, 4);
  Permit first = budget.Take(false);
  budget.Take(false).Return();  // began later, and is over
  EXPECT_TRUE(first.IsBesideOthers());
  HTTPRequestBudget single(1, 4);
  EXPECT_FALSE(single.Take(false).IsBesideOthers());
}

/// The server may still work on a request that was cancelled.
TEST(HTTPRequestBudget, ARequestIsNotAloneSoonAfterACancellation) {
  HTTPRequestBudget budget(4);
  const BudgetClock::time_point begin = BudgetClock::now();
  budget.Take(false).Abandon();
  EXPECT_TRUE(budget.Take(false).IsBesideOthers());
  Permit alone = budget.Take(true);
  EXPECT_GE(Seconds(begin), 0.4);
  EXPECT_FALSE(alone.IsBesideOthers());
}

TEST(HTTPRequestBudget, GivesNothingDuringAPause) {
  for (const bool isAlone : {false, true}) {
    HTTPRequestBudget budget(4);
    const BudgetClock::time_point begin = BudgetClock::now();
    budget.Pause(0.3);
    budget.Pause(0.1);  // a shorter one does not end it
    EXPECT_FALSE(budget.TryTakeAhead());
    EXPECT_FALSE(budget.TryTakeOwn());
    EXPECT_TRUE(budget.Take(isAlone));
    EXPECT_GE(Seconds(begin), 0.29);
    EXPECT_TRUE(budget.TryTakeAhead());
  }
}

/// An import object that waits for something else does not keep its place.
TEST(HTTPRequestBudget, APlaceCanBeGivenBackAndTakenAgain) {
  HTTPRequestBudget budget(2, 2);
  EXPECT_FALSE(budget.TryTakeAhead());
  budget.EndImport();
  EXPECT_TRUE(budget.TryTakeAhead());
  budget.BeginImport();
  EXPECT_FALSE(budget.TryTakeAhead());
}

TEST(HTTPRequestBudget, ACancellationEndsTheWait) {
  for (const bool isAlone : {false, true}) {
    HTTPRequestBudget budget(1);
    Permit other = budget.Take(false);
    VXExecutionState state;
    const VXExecutionState::Scope scope(state);
    BudgetClock::time_point cancelled;
    std::thread canceller([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(30));
      cancelled = BudgetClock::now();
      state.RequestCancellation(VXExecutionState::kCancelReasonHost);
      std::this_thread::sleep_for(std::chrono::milliseconds(500));
      other.Return();
    });
    EXPECT_FALSE(budget.Take(isAlone));
    const BudgetClock::time_point returned = BudgetClock::now();
    canceller.join();
    EXPECT_LT(std::chrono::duration<double>(returned - cancelled).count(), 0.1 + 0.2);
    EXPECT_FALSE(budget.Take(isAlone));
  }
}

/// A request that waits to be alone keeps others away; if it is cancelled, they go on.
TEST(HTTPRequestBudget, ACancelledWaitKeepsNobodyAway) {
  HTTPRequestBudget budget(3);
  const Permit other = budget.Take(false);
  VXExecutionState state;
  std::thread waiting([&] {
    const VXExecutionState::Scope scope(state);
    EXPECT_FALSE(budget.Take(true));
  });
  while (budget.TryTakeAhead()) std::this_thread::yield();
  state.RequestCancellation(VXExecutionState::kCancelReasonHost);
  EXPECT_TRUE(budget.Take(false));
  waiting.join();
  EXPECT_TRUE(budget.TryTakeAhead());
}

struct Waking final : HTTPRequestBudget::Listener {
  void OnPlaceFree() noexcept override { ++count; }
  int count = 0;
};

TEST(HTTPRequestBudget, TellsWhenAPlaceIsFree) {
  HTTPRequestBudget budget(2);
  Waking listener;
  budget.Add(listener);
  {
    const Permit own = budget.Take(false);
    Permit ahead = budget.TryTakeAhead();
    EXPECT_FALSE(budget.TryTakeAhead());
    EXPECT_EQ(listener.count, 0);
    ahead.Return();
    EXPECT_EQ(listener.count, 1);
  }
  EXPECT_EQ(listener.count, 1);  // nobody has asked since
  budget.Remove(listener);
}

/// Predicts nothing, and rejects faults.
class NoPrediction final : public HTTPPrediction {
 public:
  bool IsFollowed(const NarrowString&) const override { return false; }
  bool IsAccepted(NarrowString reply) const override {
    return std::string_view(reply.view()).find("Fault>") == std::string_view::npos;
  }
  Requests RequestsAfter(const NarrowString&, NarrowString) const override { return {}; }
};

struct BudgetClient {
  explicit BudgetClient(const std::string& authority,
                        const std::shared_ptr<HTTPRequestBudget>& budget,
                        const String& proxy = String(), bool hasPassword = false,
                        std::uint32_t timeoutSeconds = 10, std::uint32_t retries = 0) {
    HTTPClientOptions options;
    options.maxRetries = retries;
    options.proxy = proxy;
    options.requestBudget = budget;
    const std::string url = "http://" + authority + "/xmla";
    client = std::make_unique<HTTPClientWrapper>(
        BaseStringUtil::FromUTF8(NarrowString(url.c_str())), hasPassword ? L"ann" : L"",
        hasPassword ? L"secret" : L"", timeoutSeconds, &options);
    client->SetPrediction(std::make_shared<NoPrediction>());
  }
  bool Post(const char* body) { return client->ReadBytes(NarrowString(body), reply, error); }

  std::unique_ptr<HTTPClientWrapper> client;
  NarrowString reply;
  String error;
};

/// A request is answered while another one is in progress, and again if it is repeated.
TEST(HTTPRequestBudget, AFailureBesideOthersIsRepeated) {
  enum End { kKept, kClosed, kReset, kSilent };
  enum Halving { kNone, kForNow, kLasting };
  const auto answer = [](int status, const std::string& body) {
    return loopback::Answer(body, status, "Content-Type: text/xml\r\n");
  };
  const std::string fault = support::FaultReply("c", "no");
  const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 99\r\n\r\n<r>";
  struct {
    const char* name;
    std::string sent;
    End end;
    bool hasPassword;
    bool isRepeated;
    Halving halving;
  } const kCases[] = {
      {"429", answer(429, "later"), kKept, false, true, kLasting},
      {"502", answer(502, ""), kKept, false, true, kLasting},
      {"503", answer(503, ""), kKept, false, true, kLasting},
      {"504", answer(504, ""), kKept, false, true, kLasting},
      {"503 with a fault", answer(503, fault), kKept, false, true, kLasting},
      {"closed", "", kClosed, false, true, kForNow},
      {"closed in the body", head, kClosed, false, true, kForNow},
      {"reset", "", kReset, false, true, kForNow},
      {"time-out", "", kSilent, false, true, kLasting},
      {"time-out in the body", head, kSilent, false, true, kLasting},
      {"a reply", answer(200, "<r/>"), kKept, false, false, kNone},
      {"an empty reply", answer(200, ""), kKept, false, true, kNone},
      {"a fault", answer(200, fault), kKept, false, true, kNone},
      {"500 with a fault", answer(500, fault), kKept, false, true, kNone},
      {"500", answer(500, "no"), kKept, false, true, kNone},
      {"401", answer(401, "no"), kKept, false, false, kNone},
      {"403", answer(403, "no"), kKept, false, true, kNone},
      {"404", answer(404, "no"), kKept, false, true, kNone},
      {"another protocol", "SSH-2.0-x\r\n", kClosed, false, true, kNone},
      // The server may have refused the log-in. Sent again, it could lock the account.
      {"closed after a log-in", "", kClosed, true, false, kNone},
      {"time-out after a log-in", "", kSilent, true, false, kNone},
      {"503 after a log-in", answer(503, ""), kKept, true, true, kLasting},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.name);
    std::atomic<bool> hasSlowBegun{false};
    std::atomic<bool> isSlowOver{false};
    std::atomic<int> requests{0};
    loopback::Server server(
        [&](loopback::Connection& connection, const loopback::Request& request) {
          if (request.body == "slow") {
            hasSlowBegun = true;
            while (requests == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            isSlowOver = true;
            connection.Send(answer(200, "<slow/>"));
            return;
          }
          if (test.hasPassword && request.Header("Authorization").empty()) {
            connection.Send(loopback::Answer("", 401, "WWW-Authenticate: Basic realm=\"r\"\r\n"));
            return;
          }
          EXPECT_TRUE(requests == 0 || isSlowOver);
          if (++requests > 1) {
            connection.Send(answer(200, "<again/>"));
            return;
          }
          connection.Send(test.sent);
          if (test.end == kSilent) connection.AwaitPeerGone();
          if (test.end == kReset) connection.Reset();
          if (test.end != kKept) connection.Close();
        });
    const auto budget = std::make_shared<HTTPRequestBudget>(4, 2);
    std::thread other([&] { EXPECT_TRUE(BudgetClient(server.Authority(), budget).Post("slow")); });
    while (!hasSlowBegun) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    BudgetClient client(server.Authority(), budget, L"", test.hasPassword,
                        test.end == kSilent ? 1 : 10);
    client.Post("asked");
    other.join();
    EXPECT_EQ(requests, test.isRepeated ? 2 : 1);
    EXPECT_EQ(client.reply == NarrowString("<again/>"), test.isRepeated);
    EXPECT_EQ(budget->MostAhead(), test.halving == kNone ? 3u : 1u);
    Pass(*budget, 100);
    EXPECT_EQ(budget->MostAhead(), test.halving == kLasting ? 1u : 3u);
  }
}

/// The number can grow again, and a request that was cancelled can still be in progress.
TEST(HTTPRequestBudget, AFaultBesideOthersIsRepeatedForAClientMadeWithOneRequest) {
  std::atomic<int> requests{0};
  const support::ScriptedServer server([&](const support::Request&) {
    return support::Reply{++requests == 1 ? support::FaultReply("c", "busy") : "<again/>"};
  });
  const auto budget = std::make_shared<HTTPRequestBudget>(2);
  RefuseOne(*budget, false);
  EXPECT_EQ(budget->MostAhead(), 0u);
  BudgetClient client(server.Url().substr(7, server.Url().rfind('/') - 7), budget);
  budget->Take(false).Abandon();
  EXPECT_TRUE(client.Post("asked"));
  EXPECT_EQ(client.reply, NarrowString("<again/>"));
}

TEST(HTTPRequestBudget, ARequestThatWaitsForARetryGivesItsPlaceAway) {
  std::atomic<bool> hasFailed{false};
  const support::ScriptedServer server([&](const support::Request& request) {
    if (request.body == "other") return support::Reply{"<r/>"};
    hasFailed = true;
    return support::Reply{"later", 503};
  });
  const std::string authority = server.Url().substr(7, server.Url().rfind('/') - 7);
  const auto budget = std::make_shared<HTTPRequestBudget>(2);
  RefuseOne(*budget, true);
  EXPECT_EQ(budget->Limit(), 1u);
  std::atomic<bool> isOver{false};
  std::thread waiting([&] {
    EXPECT_FALSE(BudgetClient(authority, budget, L"", false, 10, 2).Post("broken"));
    isOver = true;
  });
  while (!hasFailed) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  EXPECT_TRUE(BudgetClient(authority, budget).Post("other"));
  EXPECT_FALSE(isOver);
  waiting.join();
}

/// After 429, and after 503 with Retry-After, nothing is sent for some time.
TEST(HTTPRequestBudget, ARateLimitPausesAllRequests) {
  struct {
    int status;
    const char* headers;
    double atLeast;
    double atMost;
  } const kCases[] = {{429, "", 1, 8},
                      {429, "Retry-After: 2\r\n", 2, 8},
                      {503, "Retry-After: 2\r\n", 2, 8},
                      {503, "", 0, 0.9}};
  for (const auto& test : kCases) {
    std::atomic<bool> hasSlowBegun{false};
    std::atomic<int> requests{0};
    std::atomic<double> pause{0};
    BudgetClock::time_point refused;
    const loopback::Server server(
        [&](loopback::Connection& connection, const loopback::Request& request) {
          if (request.body == "slow") {
            hasSlowBegun = true;
            while (requests == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
          } else if (++requests == 1) {
            refused = BudgetClock::now();
            connection.Send(loopback::Answer("", test.status, test.headers));
            return;
          } else {
            pause = Seconds(refused);
          }
          connection.Send(loopback::Answer("<r/>"));
        });
    const auto budget = std::make_shared<HTTPRequestBudget>(4, 2);
    std::thread other([&] { EXPECT_TRUE(BudgetClient(server.Authority(), budget).Post("slow")); });
    while (!hasSlowBegun) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_TRUE(BudgetClient(server.Authority(), budget).Post("asked"));
    other.join();
    EXPECT_GE(pause, test.atLeast - 0.01) << test.status << test.headers;
    if (!support::kIsSanitized) {
      EXPECT_LE(pause, test.atMost) << test.status << test.headers;
    }
  }
}

/// A server, or a proxy, that accepts a connection only while no other request is in progress.
TEST(HTTPRequestBudget, ARefusedConnectionIsRepeated) {
  for (const bool isProxy : {false, true}) {
    std::atomic<bool> mayEnd{false};
    support::ScriptedServer slow([&](const support::Request&) {
      while (!mayEnd) std::this_thread::sleep_for(std::chrono::milliseconds(1));
      return support::Reply{"<slow/>"};
    });
    const support::ReservedPort port;
    const std::string authority = port.Authority();
    const String proxy =
        isProxy ? L"http://" + BaseStringUtil::FromUTF8(NarrowString(authority.c_str())) : String();
    const auto budget = std::make_shared<HTTPRequestBudget>(4, 2);
    std::thread other([&] {
      EXPECT_TRUE(BudgetClient(slow.Url().substr(7, slow.Url().rfind('/') - 7), budget).Post("s"));
    });
    while (slow.Requests().empty()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::unique_ptr<loopback::Server> opened;
    std::thread opener([&] {
      for (int i = 0; i < 2000 && budget->MostAhead() == 3; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      opened = std::make_unique<loopback::Server>(
          [](loopback::Connection& connection, const loopback::Request&) {
            connection.Send(loopback::Answer("<r/>"));
          },
          loopback::Options{.port = port.Port()});
      mayEnd = true;
    });
    BudgetClient client(isProxy ? "127.0.0.1:1" : authority, budget, proxy);
    EXPECT_TRUE(client.Post("asked")) << support::Narrow(client.error);
    opener.join();
    other.join();
    Pass(*budget, 100);
    EXPECT_EQ(budget->MostAhead(), 1u);
  }
}

/// With one request at a time, and for a request that is alone, nothing is repeated.
TEST(HTTPRequestBudget, ARefusalAloneIsReported) {
  const support::ScriptedServer server([](const support::Request&) {
    return support::Reply{"later", 503};
  });
  const std::string authority = server.Url().substr(7, server.Url().rfind('/') - 7);
  std::size_t sent = 0;
  for (const auto& budget :
       {std::shared_ptr<HTTPRequestBudget>(), std::make_shared<HTTPRequestBudget>(1, 3),
        std::make_shared<HTTPRequestBudget>(8, 3)}) {
    BudgetClient client(authority, budget);
    EXPECT_FALSE(client.Post("asked"));
    EXPECT_EQ(server.Requests().size(), ++sent);
  }
}

/// In a forked child, which has none of the other threads of its parent, there is no budget.
TEST(HTTPRequestBudget, IsNotUsedInAForkedChild) {
  if (support::kIsThreadSanitized) GTEST_SKIP() << "forks";
  const support::ScriptedServer server(
      [](const support::Request&) { return support::Reply{"<r/>"}; });
  const std::string authority = server.Url().substr(7, server.Url().rfind('/') - 7);
  const auto budget = std::make_shared<HTTPRequestBudget>(1);
  Permit permit = budget->Take(false);
  std::atomic<bool> mustEnd{false};
  std::thread busy([&] {  // holds the mutex most of the time
    while (!mustEnd) static_cast<void>(budget->MostAhead());
  });
  for (int i = 0; i < 50; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(10);
      permit.Return();
      budget->EndImport();
      _exit(BudgetClient(authority, budget).Post("asked") ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
  mustEnd = true;
  busy.join();
}

}  // namespace
