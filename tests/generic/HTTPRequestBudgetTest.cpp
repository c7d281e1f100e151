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
        const bool isAlone = i < 4 && round % 7 == i;
        const Permit permit = i < 4 ? budget.Take(isAlone) : budget.TryTakeAhead();
        if (!permit) continue;
        if (i >= 4) ++ahead;
        if (++inProgress > kMost) ++tooMany;
        if (isAlone && inProgress != 1) ++notAlone;
        std::this_thread::sleep_for(std::chrono::microseconds(50));
        if (isAlone && inProgress != 1) ++notAlone;
        --inProgress;
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(tooMany, 0);
  EXPECT_EQ(notAlone, 0);
  EXPECT_TRUE(budget.Take(true));
}

TEST(HTTPRequestBudget, RefusedRequestsHalveItOnce) {
  HTTPRequestBudget budget(8);
  std::vector<Permit> permits;
  for (int i = 0; i < 8; ++i)
    permits.push_back(i == 0 ? budget.Take(false) : budget.TryTakeAhead());
  for (Permit& permit : permits) EXPECT_TRUE(permit.Refuse());
  permits.clear();
  EXPECT_EQ(budget.MostAhead(), 3u);
  for (int i = 0; i < 5; ++i) {
    const Permit own = budget.Take(false);
    Permit ahead = budget.TryTakeAhead();
    if (ahead) ahead.Refuse();
  }
  EXPECT_EQ(budget.MostAhead(), 0u);
  EXPECT_TRUE(budget.Take(false));
}

/// What happens to a request that was alone would happen to it with one request at a time.
TEST(HTTPRequestBudget, ARefusalOfARequestThatWasAloneIsFinal) {
  for (const bool isAlone : {false, true}) {
    HTTPRequestBudget budget(8, 4);
    EXPECT_FALSE(budget.Take(isAlone).Refuse());
    EXPECT_EQ(budget.MostAhead(), 7u);
  }
  HTTPRequestBudget budget(8, 4);
  Permit first = budget.Take(false);
  budget.Take(false).Return();  // began later, and is over
  EXPECT_TRUE(first.Refuse());
  HTTPRequestBudget single(1, 4);
  EXPECT_FALSE(single.Take(false).Refuse());
}

/// The server may still work on a request that was cancelled.
TEST(HTTPRequestBudget, ARequestIsNotAloneSoonAfterACancellation) {
  HTTPRequestBudget budget(4);
  const BudgetClock::time_point begin = BudgetClock::now();
  budget.Take(false).Abandon();
  EXPECT_TRUE(budget.Take(false).Refuse());
  Permit alone = budget.Take(true);
  EXPECT_GE(Seconds(begin), 0.4);
  EXPECT_FALSE(alone.Refuse());
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

/// A client without credentials.
struct BudgetClient {
  explicit BudgetClient(const std::string& authority,
                        const std::shared_ptr<HTTPRequestBudget>& budget,
                        const String& proxy = String()) {
    HTTPClientOptions options;
    options.proxy = proxy;
    options.requestBudget = budget;
    const std::string url = "http://" + authority + "/xmla";
    client = std::make_unique<HTTPClientWrapper>(
        BaseStringUtil::FromUTF8(NarrowString(url.c_str())), String(), String(), 10, &options);
  }
  bool Post(const char* body) { return client->ReadBytes(NarrowString(body), reply, error); }

  std::unique_ptr<HTTPClientWrapper> client;
  NarrowString reply;
  String error;
};

/// A request is answered while another one is in progress, and again if it is repeated.
TEST(HTTPRequestBudget, OnlyARefusalForLoadIsRepeated) {
  struct {
    int status;
    std::string body;
    int requests;
  } const kCases[] = {
      {429, "later", 2}, {503, "", 2},      {503, support::FaultReply("c", "no"), 1},
      {200, "<r/>", 1},  {500, "no", 1},    {401, "no", 1},
      {403, "no", 1},    {502, "later", 1}, {504, "later", 1},
      {200, "", 1},
  };
  for (const auto& test : kCases) {
    std::atomic<int> requests{0};
    std::atomic<bool> isSlowOver{false};
    const support::ScriptedServer server([&](const support::Request& request) {
      if (request.body == "slow") {
        while (requests == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        isSlowOver = true;
        return support::Reply{"<slow/>"};
      }
      EXPECT_TRUE(requests == 0 || isSlowOver);
      return ++requests == 1 ? support::Reply{test.body, test.status} : support::Reply{"<r/>"};
    });
    const std::string authority = server.Url().substr(7, server.Url().rfind('/') - 7);
    const auto budget = std::make_shared<HTTPRequestBudget>(4, 2);
    std::thread other([&] { EXPECT_TRUE(BudgetClient(authority, budget).Post("slow")); });
    while (server.Requests().empty()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    BudgetClient client(authority, budget);
    client.Post("asked");
    other.join();
    EXPECT_EQ(requests, test.requests) << test.status << test.body;
    EXPECT_EQ(client.reply == NarrowString("<r/>"), test.requests == 2 || test.body == "<r/>");
    EXPECT_EQ(budget->MostAhead(), test.requests == 2 ? 1u : 3u) << test.status << test.body;
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
    const int port = std::make_unique<loopback::Server>(loopback::Handler())->Port();
    const std::string authority = "127.0.0.1:" + std::to_string(port);
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
          loopback::Options{.port = port});
      mayEnd = true;
    });
    BudgetClient client(isProxy ? "127.0.0.1:1" : authority, budget, proxy);
    EXPECT_TRUE(client.Post("asked")) << support::Narrow(client.error);
    opener.join();
    other.join();
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
