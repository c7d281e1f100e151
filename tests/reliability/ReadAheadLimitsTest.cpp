// The limits of the read-ahead: number of requests and connections, unread bytes, overloaded
// servers, passwords, cancellation, and what is left after many imports.

#include <dirent.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <set>
#include <thread>

#include "NetworkSupport.h"
#include "ReadAheadSupport.h"
#include "Utility/Generic/HTTPReadAhead.h"
#include "Utility/Generic/VXExecutionState.h"
#include "support/Effort.h"
#include "support/FailingAllocation.h"
#include "support/ResidentMemory.h"
#include "support/Sanitized.h"
#include "support/ScriptedServer.h"
#include "xmlasax/CubeScript.h"

namespace readahead {
namespace {

using testing::HasSubstr;

/// A cube of equal hierarchies with two levels each.
CubeScript Equal(int hierarchies, const std::string& caption = "c") {
  CubeScript script;
  for (int i = 0; i < hierarchies; ++i) {
    const std::string name = "[H" + std::to_string(i) + "]";
    script.hierarchies += ::Row({{"HIERARCHY_UNIQUE_NAME", name},
                                 {"HIERARCHY_CAPTION", "h"},
                                 {"STRUCTURE", "0"},
                                 {"DIMENSION_TYPE", "3"},
                                 {"DEFAULT_MEMBER", name + ".[All]"}});
    script.members[name] = ::Row({{"MEMBER_TYPE", "2"}});
    for (const char* const number : {"0", "1"}) {
      const std::string level = name + ".[" + number + "]";
      script.levels[name] += ::Row({{"LEVEL_UNIQUE_NAME", level}, {"LEVEL_NUMBER", number}});
      script.properties[level] = ::Row({{"PROPERTY_NAME", "P"}, {"PROPERTY_CAPTION", caption}});
    }
  }
  return script;
}

void Send(loopback::Connection& connection, const support::Reply& reply) {
  connection.Send(loopback::Answer(reply.body, reply.status, "Content-Type: text/xml\r\n"));
}

Answer With(const CubeScript& script) {
  return [&script](loopback::Connection& connection, const loopback::Request& request) {
    Send(connection, script(request));
  };
}

constexpr unsigned int kExchangesOfEach = 4;  // member, levels, two times properties

TEST(ReadAheadLimits, RequestsAndConnectionsDoNotExceedTheNumber) {
  const CubeScript script = Equal(40);
  Server server(With(script));
  server.maxDelay = 4000;
  const Outcome one = Import(server.Url(), {}, {});
  for (const unsigned int number : {2U, 3U, 5U, 16U}) {
    server.TakeMostInProgress();
    const std::size_t before = server.Wire().Connections();
    const Outcome many = Import(server.Url(), {}, {.requests = number});
    EXPECT_EQ(Difference(many, one), "");
    const int most = server.TakeMostInProgress();
    EXPECT_LE(most, static_cast<int>(number));
    EXPECT_GE(most, static_cast<int>(number + 1) / 2);
    EXPECT_LE(server.Wire().Connections() - before, std::size_t{number});
    EXPECT_EQ(many.ahead.used, many.ahead.sent);
    // With a sanitizer, the import can be slower than the server.
    const unsigned int share = support::kIsSanitized ? 5 : 9;
    EXPECT_GT(many.ahead.used, 40U * kExchangesOfEach * (number - 1) / number * share / 10);
    EXPECT_TRUE(support::kIsSanitized || many.seconds < one.seconds)
        << many.seconds << " " << one.seconds;
  }
}

/// Several import objects share the places, and the last one gets those that are left.
TEST(ReadAheadLimits, ImportObjectsShareTheNumber) {
  const CubeScript small = Equal(5);
  const CubeScript large = Equal(60);
  Server server([&](loopback::Connection& connection, const loopback::Request& request) {
    const bool isLarge = request.body.find("<CUBE_NAME>L<") != std::string::npos;
    Send(connection, isLarge ? large(request) : small(request));
  });
  server.maxDelay = 4000;
  constexpr unsigned int kImports = 3;
  for (const unsigned int requests : {kImports, 2 * kImports}) {
    HTTPClientOptions http;
    http.requestBudget = std::make_shared<HTTPRequestBudget>(requests, kImports);
    std::vector<Outcome> outcomes(kImports);
    std::vector<std::thread> threads;
    for (unsigned int i = 0; i < kImports; ++i)
      threads.emplace_back([&, i] {
        const Cube cube{.cube = i == 0 ? L"L" : L"Q"};
        outcomes[i] = Import(server.Url(), cube, {.http = http});
        http.requestBudget->EndImport();
      });
    for (std::thread& thread : threads) thread.join();
    const int most = server.TakeMostInProgress();
    EXPECT_LE(most, static_cast<int>(requests));
    EXPECT_GE(most, static_cast<int>(kImports));
    for (const Outcome& outcome : outcomes) EXPECT_TRUE(outcome.IsSuccess()) << outcome.errors;
    EXPECT_EQ(outcomes[0].records.size(), 60u);
    EXPECT_GT(outcomes[0].ahead.used, 60u) << requests;
  }
}

/// Answers requests that are sent ahead with a status, while more than `most` are in progress.
class BusyServer {
 public:
  explicit BusyServer(int status) : m_status(status) {}
  Server& Wire() { return m_server; }
  std::atomic<int> mostAllowed{1000};
  std::atomic<int> refused{0};

 private:
  void Serve(loopback::Connection& connection, const loopback::Request& request) {
    const int now = ++m_inProgress;
    m_server.Wire().Stop().Sleep(std::chrono::milliseconds(4));
    const bool isRefused = now > mostAllowed;
    --m_inProgress;
    if (!isRefused) return Send(connection, m_script(request));
    ++refused;
    connection.Send(loopback::Answer("busy", m_status, "Content-Type: text/plain\r\n"));
  }

  const int m_status;
  const CubeScript m_script = Equal(60);
  std::atomic<int> m_inProgress{0};
  Server m_server{[this](loopback::Connection& connection, const loopback::Request& request) {
    Serve(connection, request);
  }};
};

TEST(ReadAheadLimits, AnOverloadedServerHalvesTheNumber) {
  for (const int status : {429, 503}) {
    BusyServer server(status);
    const Outcome one = Import(server.Wire().Url(), {}, {});
    server.mostAllowed = 4;
    const Outcome many = Import(server.Wire().Url(), {}, {.requests = 16});
    EXPECT_EQ(Difference(many, one), "") << status;
    EXPECT_GT(server.refused, 0) << status;
    // Of 16 at a time, most are refused once, then of 8: the rest is sent four at a time.
    EXPECT_LE(server.refused, 16 + 8) << status;
    EXPECT_GT(many.ahead.used, 100u) << status;
  }
}

TEST(ReadAheadLimits, AServerThatRefusesEverythingAheadGetsOneRequestAtATime) {
  BusyServer server(503);
  server.mostAllowed = 1;
  const Outcome many = Import(server.Wire().Url(), {}, {.requests = 32});
  EXPECT_TRUE(many.errors.empty()) << many.errors;
  EXPECT_LE(server.refused, 32 + 16 + 8 + 4 + 2);
  EXPECT_EQ(many.ahead.used + many.ahead.repeated + many.ahead.unused, many.ahead.sent);
}

/// The server accepts only one connection.
TEST(ReadAheadLimits, RefusedConnectionsEndTheReadAhead) {
  const CubeScript script = Equal(30);
  std::mutex mutex;
  std::set<int> known;
  Server server([&](loopback::Connection& connection, const loopback::Request& request) {
    {
      const std::lock_guard lock(mutex);
      if (known.empty()) known.insert(connection.Socket());
      if (known.count(connection.Socket()) == 0) return connection.Reset();
    }
    Send(connection, script(request));
  });
  const Outcome many = Import(server.Url(), {}, {.requests = 8});
  EXPECT_TRUE(many.IsSuccess()) << many.errors << many.warnings;
  EXPECT_EQ(many.records.size(), 30u);
}

/// On all connections but the first, a failure that a repeated request does not have.
TEST(ReadAheadLimits, AFailureOfARequestThatWasSentAheadIsNotSeen) {
  const CubeScript script = Equal(12);
  struct {
    int status;
    std::string body;
  } const kFailures[] = {{200, support::FaultReply("c", "too busy")},
                         {500, support::FaultReply("c", "too busy")},
                         {500, script({}).body},
                         {403, "no"},
                         {404, "no"},
                         {302, "no"},
                         {200, ""},
                         {200, "<html><head><title>log in</title></head></html>"},
                         {200, "plain text"},
                         {200, script({}).body.substr(0, 300)},
                         {200, "<a><b></a>"},
                         {429, "later"},
                         {503, "later"}};
  for (const auto& failure : kFailures) {
    std::mutex mutex;
    int own = -1;
    int failed = 0;
    Server server([&](loopback::Connection& connection, const loopback::Request& request) {
      std::unique_lock lock(mutex);
      if (own < 0) own = connection.Socket();
      const bool isOwn = own == connection.Socket();
      if (!isOwn) ++failed;
      lock.unlock();
      Send(connection, isOwn ? script(request) : support::Reply{failure.body, failure.status});
    });
    server.maxDelay = 1000;
    const Outcome many = Import(server.Url(), {}, {.requests = 5});
    EXPECT_TRUE(many.IsSuccess()) << failure.status << failure.body << many.errors << many.warnings;
    EXPECT_EQ(many.records.size(), 12u);
    EXPECT_GT(failed, 0) << failure.status << failure.body;
    EXPECT_GT(many.ahead.repeated, 0u) << failure.status << failure.body;
  }
}

TEST(ReadAheadLimits, UnreadRepliesStayBelowTheirLimit) {
  constexpr int kHierarchies = 40;
  // 80 replies of 4 MB, while the import waits for the first member.
  const CubeScript script = Equal(kHierarchies, std::string(4 << 20, 'c'));
  std::atomic<int> sentProperties{0};
  std::atomic<int> sentBeforeFirst{0};
  Server server([&](loopback::Connection& connection, const loopback::Request& request) {
    const bool isFirst = request.body.find("<MEMBER_UNIQUE_NAME>[H0].[All]<") != std::string::npos;
    if (isFirst) {
      std::this_thread::sleep_for(std::chrono::seconds(3));
      sentBeforeFirst = sentProperties.load();
    }
    if (support::RequestType(request.body) == "MDSCHEMA_PROPERTIES") ++sentProperties;
    Send(connection, script(request));
  });
  const Outcome many = Import(server.Url(), {}, {.requests = 8});
  EXPECT_TRUE(many.IsSuccess()) << many.errors << many.warnings;
  EXPECT_EQ(many.records.size(), std::size_t{kHierarchies});
  // 32 MiB are unread before the last requests are sent; then up to seven more arrive.
  EXPECT_GE(sentBeforeFirst, 8);
  EXPECT_LE(sentBeforeFirst, 8 + 7);
}

/// A reply that is longer than the limit of unread bytes is read when the import asks for it.
TEST(ReadAheadLimits, AVeryLongReplyIsNotReadAhead) {
  const CubeScript script = Equal(2);
  std::string comments;
  for (int i = 0; i < 9; ++i) comments += "<!--" + std::string(std::size_t{8} << 20, 'c') + "-->";
  Server server([&](loopback::Connection& connection, const loopback::Request& request) {
    support::Reply reply = script(request);
    if (request.body.find("<LEVEL_UNIQUE_NAME>[H1].[1]<") != std::string::npos)
      reply.body.insert(reply.body.find("<row>"), comments);
    Send(connection, reply);
  });
  const Outcome one = Import(server.Url(), {}, {});
  const Outcome many = Import(server.Url(), {}, {.requests = 4});
  EXPECT_EQ(Difference(many, one), "");
  EXPECT_TRUE(many.IsSuccess()) << many.errors;
}

/// A wrong password must not be sent more often than without read-ahead.
TEST(ReadAheadLimits, AWrongPasswordIsSentOnce) {
  const CubeScript script = Equal(20);
  std::atomic<int> withPassword{0};
  std::atomic<int> accepted{1'000'000};
  Server server([&](loopback::Connection& connection, const loopback::Request& request) {
    const bool hasPassword = !request.Header("Authorization").empty();
    if (hasPassword) ++withPassword;
    if (hasPassword && withPassword <= accepted) return Send(connection, script(request));
    connection.Send(loopback::Answer("no", 401, "WWW-Authenticate: Basic realm=\"r\"\r\n"));
  });
  Way way{.user = L"ann", .password = L"secret"};
  const Outcome whole = Import(server.Url(), {}, way);
  EXPECT_TRUE(whole.IsSuccess()) << whole.errors;
  way.requests = 4;
  EXPECT_EQ(Difference(Import(server.Url(), {}, way), whole), "");
  for (const unsigned int requests : {1U, 4U}) {
    accepted = 0;
    withPassword = 0;
    way.requests = requests;
    const Outcome refused = Import(server.Url(), {}, way);
    EXPECT_THAT(refused.errors, HasSubstr("rejected the user name or the password"));
    EXPECT_EQ(withPassword, 2) << requests;  // one for each operation
  }
  // A password that becomes invalid in the middle: only the requests in progress are refused.
  accepted = 30;
  withPassword = 0;
  const Outcome late = Import(server.Url(), {}, way);
  EXPECT_THAT(late.errors, HasSubstr("rejected the user name or the password"));
  EXPECT_LE(withPassword, 30 + 4 + 2);
}

/// An additional connection begins with the scheme that the server has accepted.
TEST(ReadAheadLimits, AdditionalConnectionsLogInWithTheirFirstRequest) {
  const CubeScript script = Equal(20);
  std::atomic<int> withoutPassword{0};
  Server server([&](loopback::Connection& connection, const loopback::Request& request) {
    if (!request.Header("Authorization").empty()) return Send(connection, script(request));
    ++withoutPassword;
    connection.Send(loopback::Answer("no", 401, "WWW-Authenticate: Basic realm=\"r\"\r\n"));
  });
  server.maxDelay = 1000;
  const Outcome many =
      Import(server.Url(), {}, {.requests = 6, .user = L"ann", .password = L"secret"});
  EXPECT_TRUE(many.IsSuccess()) << many.errors;
  EXPECT_GT(many.ahead.used, 0u);
  EXPECT_EQ(withoutPassword, 1);
}

/// A server that offers Digest first, and Basic on further connections, does not get the password
/// in clear.
TEST(ReadAheadLimits, AdditionalConnectionsDoNotUseAWeakerScheme) {
  const CubeScript script = Equal(20);
  std::atomic<int> basic{0};
  std::atomic<int> offers{0};
  Server server([&](loopback::Connection& connection, const loopback::Request& request) {
    const std::string given = request.Header("Authorization");
    if (given.find("username=\"ann\"") != std::string::npos)
      return Send(connection, script(request));
    if (given.starts_with("Basic")) ++basic;
    const std::string offer =
        offers++ == 0 ? "Digest realm=\"r\", nonce=\"n\", qop=\"auth\"" : "Basic realm=\"r\"";
    connection.Send(loopback::Answer("no", 401, "WWW-Authenticate: " + offer + "\r\n"));
  });
  server.maxDelay = 1000;
  const Outcome many =
      Import(server.Url(), {}, {.requests = 6, .user = L"ann", .password = L"secret"});
  EXPECT_TRUE(many.IsSuccess()) << many.errors;
  EXPECT_GT(offers, 1);
  EXPECT_EQ(basic, 0);
}

TEST(ReadAheadLimits, ConnectionsShareTheCookies) {
  const CubeScript script = Equal(20);
  std::atomic<int> without{0};
  Server server([&](loopback::Connection& connection, const loopback::Request& request) {
    if (request.Header("Cookie") != "session=7") ++without;
    connection.Send(loopback::Answer(script(request).body, 200,
                                     "Set-Cookie: session=7\r\nContent-Type: text/xml\r\n"));
  });
  EXPECT_TRUE(Import(server.Url(), {}, {.requests = 6}).IsSuccess());
  EXPECT_EQ(without, 1);
}

/// A balancer sends what is too much to a broken server, and a cookie keeps a client there.
TEST(ReadAheadLimits, ADroppedReplyDoesNotChangeTheCookies) {
  const CubeScript script = Equal(30);
  std::atomic<int> inProgress{0};
  std::atomic<int> failed{0};
  Server server([&](loopback::Connection& connection, const loopback::Request& request) {
    const bool isKeptAtBroken = request.Header("Cookie") == "route=broken";
    const bool isTooMuch = ++inProgress > 2;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    --inProgress;
    if (!isKeptAtBroken && !isTooMuch) return Send(connection, script(request));
    ++failed;
    connection.Send(loopback::Answer("broken", 500, "Set-Cookie: route=broken\r\n"));
  });
  const Outcome one = Import(server.Url(), {}, {});
  EXPECT_TRUE(one.IsSuccess()) << one.errors;
  for (const unsigned int requests : {3U, 8U}) {
    failed = 0;
    EXPECT_EQ(Difference(Import(server.Url(), {}, {.requests = requests}), one), "");
    EXPECT_GT(failed, 0);
  }
}

/// Whatever single allocation fails on whatever thread: an error or the complete result.
TEST(ReadAheadLimits, AFailedAllocationIsAnErrorAtMost) {
  if (!FailingAllocation::kIsPossible) GTEST_SKIP() << "allocations cannot be made to fail";
  const CubeScript script = Equal(6);
  Server server(With(script));
  const Outcome whole = Import(server.Url(), {}, {.requests = 4});
  std::mt19937 random(3);
  long failed = 0;
  long complete = 0;
  const int rounds = support::Effort(300, 20000);
  for (int i = 0; i < rounds; ++i) {
    const long number = std::uniform_int_distribution<long>(1, 7000)(random);
    const FailingAllocation failing(number, FailingAllocation::Which::kOnlyThat,
                                    FailingAllocation::Whose::kAnyThread);
    try {
      const Outcome outcome = Import(server.Url(), {}, {.requests = 4});
      complete += outcome.records == whole.records ? 1 : 0;
    } catch (const std::exception&) {
      // In the test's own code.
    }
    failed += FailingAllocation::HasFailed() ? 1 : 0;
  }
  EXPECT_GT(failed, rounds / 10);
  EXPECT_GT(complete, 0);
  network::Figure("imports with read-ahead in which one allocation fails",
                  network::Text(failed, " of ", rounds, " imports: ", complete, " complete"));
}

TEST(ReadAheadLimits, ACancellationEndsEverythingAtOnce) {
  const CubeScript script = Equal(200);
  Server server(With(script));
  server.maxDelay = 20000;
  std::mt19937 random(5);
  double longest = 0;
  const int rounds = support::Effort(30, 500);
  for (int i = 0; i < rounds; ++i) {
    VXExecutionState state;
    const VXExecutionState::Scope scope(state);
    std::chrono::steady_clock::time_point cancelled;
    const int wait = std::uniform_int_distribution<int>(0, 120)(random);
    std::thread canceller([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(wait));
      cancelled = std::chrono::steady_clock::now();
      state.RequestCancellation(VXExecutionState::kCancelReasonHost);
    });
    const Outcome outcome = Import(server.Url(), {}, {.requests = 8});
    const auto returned = std::chrono::steady_clock::now();
    canceller.join();
    EXPECT_NE(outcome.errors, "");
    longest = std::max(longest, std::chrono::duration<double>(returned - cancelled).count());
  }
  EXPECT_LT(longest, 0.1 + network::Slack());
  network::Figure("cancellation of imports with read-ahead at random moments",
                  network::Text(rounds, " imports, objects destroyed after at most ",
                                static_cast<int>(longest * 1000), " ms"));
}

TEST(ReadAheadLimits, TheDeadlineEndsTheImport) {
  const CubeScript script = Equal(2000);
  Server server(With(script));
  server.maxDelay = 20000;
  const Outcome outcome =
      Import(server.Url(), {}, {.requests = 4, .limits = {.deadlineSeconds = 1}});
  EXPECT_THAT(outcome.errors, HasSubstr("limit deadlineSeconds"));
  EXPECT_LT(outcome.seconds, 1.1 + network::Slack());
}

TEST(ReadAheadLimits, LimitsOfAnOperationCountWhatTheImportUses) {
  const CubeScript script = Equal(20);
  Server server(With(script));
  Import(server.Url(), {}, {});
  std::uint64_t levels = 0;  // size of such a request
  for (const loopback::Request& request : server.Wire().Requests())
    if (support::RequestType(request.body) == "MDSCHEMA_LEVELS") levels = request.body.size();
  for (const ImportLimits& limits :
       {ImportLimits{.maxRowsPerReply = 10}, ImportLimits{.maxRows = 30},
        ImportLimits{.maxRequests = 25}, ImportLimits{.maxTotalReplyBytes = 20000},
        ImportLimits{.maxRequestBytes = levels}, ImportLimits{.maxRequestBytes = levels - 1}}) {
    const Outcome one = Import(server.Url(), {}, {.limits = limits});
    EXPECT_NE(one.errors + one.warnings, "") << limits.maxRequestBytes;
    server.Wire().TakeRequests();
    for (const unsigned int number : {2U, 9U}) {
      const Outcome many = Import(server.Url(), {}, {.requests = number, .limits = limits});
      EXPECT_EQ(Difference(many, one), "");
    }
    for (const loopback::Request& request : server.Wire().TakeRequests())
      EXPECT_LE(request.body.size(), limits.maxRequestBytes);
  }
}

long Entries(const char* path) {
  DIR* const folder = opendir(path);
  long count = 0;
  while (readdir(folder)) ++count;
  closedir(folder);
  return count;
}

TEST(ReadAheadLimits, ManyImportsLeaveNothingBehind) {
  const CubeScript script = Equal(3);
  Server server(With(script), 100);
  const auto import = [&](int number) {
    const Outcome outcome =
        Import(server.Url(), {}, {.requests = 2 + static_cast<unsigned>(number % 5)});
    ASSERT_TRUE(outcome.IsSuccess()) << outcome.errors;
  };
  for (int i = 0; i < 50; ++i) import(i);
  // The server's threads end when they notice that their clients have gone.
  const auto settled = [](const char* path, long most) {
    long count = Entries(path);
    for (int i = 0; i < 200 && count > most; ++i, usleep(10000)) count = Entries(path);
    return count;
  };
  const long threads = settled("/proc/self/task", 0);
  const long descriptors = settled("/proc/self/fd", 0);
  const long resident = support::ResidentKiB();
  const int imports = support::Effort(300, 10000);
  for (int i = 0; i < imports; ++i) import(i);
  EXPECT_LE(settled("/proc/self/task", threads), threads);
  EXPECT_LE(settled("/proc/self/fd", descriptors), descriptors);
  const long more = support::ResidentKiB() - resident;
  if (!support::kIsSanitized) {
    EXPECT_LT(more, 4096);
  }
  network::Figure("imports with read-ahead, one after another",
                  network::Text(imports, " imports: no more threads and descriptors, ", more,
                                " KiB more in memory"));
}

}  // namespace
}  // namespace readahead
