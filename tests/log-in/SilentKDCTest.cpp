// A KDC that does not answer: cancellation, time-outs, and threads that wait for it.
#include <gmock/gmock.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Servers.h"
#include "SilentKDC.h"
#include "Utility/Generic/VXExecutionState.h"
#include "support/ChildProcess.h"
#include "support/Sanitized.h"
#include "support/TempDir.h"

namespace login {
namespace {

using testing::HasSubstr;
using Clock = std::chrono::steady_clock;

constexpr unsigned int kNegotiateOnly = kAuthNegotiate;
constexpr double kAtOnceSeconds = support::kIsSanitized ? 0.5 : 0.1;

double Since(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

std::map<std::string, std::string> AnnAt(const SilentKDC& kdc) {
  const Realm& realm = Servers::Get().realm;
  return realm.ClientOf(kdc.Address(), realm.LogIn("ann"));
}

std::string NegotiateProxy() {
  return "http://localhost:" + std::to_string(Servers::Get().web.Port("NEGOTIATE_PROXY")) + "/";
}

/// Who asks for the ticket.
struct Asker {
  const char* name;
  const char* folder;
  bool isProxy;
};

class SilentKDCOf : public LogIn, public testing::WithParamInterface<Asker> {
 public:
  /// The threads that were left to ask end soon after their KDC is closed. LeakSanitizer may miss
  /// what a thread holds that ends at the same time as the process.
  static void TearDownTestSuite() {
    for (int i = 0; i < 3000 && HTTPClientWrapper::IsKerberosThreadLeft(); ++i) usleep(10'000);
    EXPECT_FALSE(HTTPClientWrapper::IsKerberosThreadLeft());
  }

 protected:
  std::string Url() const { return Servers::Get().Gateway(GetParam().folder); }
  Given GivenFor(std::uint32_t connectTimeout) const {
    return {.schemes = kNegotiateOnly,
            .proxy = GetParam().isProxy ? NegotiateProxy() : "",
            .connectTimeout = connectTimeout};
  }
};

TEST_P(SilentKDCOf, CancellationEndsTheWaitAtOnce) {
  const std::string url = Url();
  double best = 100;
  for (int attempt = 0; attempt < 3 && best > kAtOnceSeconds; ++attempt) {  // of a busy machine
    const SilentKDC kdc;
    const Environment environment(AnnAt(kdc));
    const RefCnt<VXExecutionState> state(new VXExecutionState);
    Clock::time_point cancelled;
    Posted posted;
    {
      const std::jthread host([&] {
        EXPECT_TRUE(kdc.Await(10'000));
        cancelled = Clock::now();
        state->RequestCancellation(VXExecutionState::kCancelReasonHost);
      });
      const VXExecutionState::Scope scope(*state);
      posted = PostOnce(url, GivenFor(60));
    }
    best = std::min(best, Since(cancelled));
    EXPECT_FALSE(posted.ok);
    EXPECT_THAT(posted.error, HasSubstr("interrupted: the request was cancelled"));
  }
  EXPECT_LT(best, kAtOnceSeconds);
}

TEST_P(SilentKDCOf, ConnectTimeOutEndsTheWait) {
  const SilentKDC kdc;
  const Environment environment(AnnAt(kdc));
  const Clock::time_point begin = Clock::now();
  const Posted posted = PostOnce(Url(), GivenFor(1));
  EXPECT_GE(Since(begin), 1);
  EXPECT_LT(Since(begin), 5);
  EXPECT_THAT(posted.error,
              HasSubstr("the Kerberos server (KDC) of the ticket's realm does not answer; check "
                        "the network, and the realm's kdc in /etc/krb5.conf or the file named by "
                        "KRB5_CONFIG, or try a longer time-out (it offers Negotiate"));
  EXPECT_THAT(posted.error, HasSubstr("No Kerberos server (KDC) has answered within 1 second)"));
}

INSTANTIATE_TEST_SUITE_P(LogIn, SilentKDCOf,
                         testing::Values(Asker{"TheService", "negotiate", false},
                                         Asker{"TheProxy", "open", true}),
                         [](const auto& test) { return test.param.name; });

TEST_F(LogIn, APasswordIsTriedIfTheKDCIsSilent) {
  const SilentKDC kdc;
  const Environment environment(AnnAt(kdc));
  const Posted posted = PostOnce(Servers::Get().Gateway("negotiate-or-basic"),
                                 {.user = "bob",
                                  .password = Realm::Password("bob"),
                                  .schemes = kAuthNegotiate | kAuthPasswordSchemes,
                                  .connectTimeout = 1});
  EXPECT_TRUE(posted.ok) << posted.error;
}

/// Without a ticket, or if Negotiate is not used, no KDC is asked.
TEST_F(LogIn, ASilentKDCIsNotAskedWithoutNeed) {
  Servers& servers = Servers::Get();
  const SilentKDC kdc;
  const struct {
    const char* name;
    const char* folder;
    bool hasTicket;
    Given given;
  } kCases[] = {
      {"no ticket", "negotiate", false, {.schemes = kNegotiateOnly}},
      {"not offered", "basic", true, {.schemes = kNegotiateOnly}},
      {"not allowed", "negotiate", true, {.user = "bob", .password = Realm::Password("bob")}},
      {"not needed", "open", true, {.schemes = kNegotiateOnly}},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.name);
    const Environment environment(
        test.hasTicket ? AnnAt(kdc)
                       : servers.realm.ClientOf(kdc.Address(), servers.folder.Path() / "no-cache"));
    const Clock::time_point begin = Clock::now();
    PostOnce(servers.Gateway(test.folder), test.given);
    EXPECT_LT(Since(begin), 1);
    EXPECT_FALSE(kdc.Await(0));
  }
}

TEST_F(LogIn, CtrlCEndsTheToolWhileItWaitsForAKDC) {
  double best = 100;
  for (int attempt = 0; attempt < 3 && best > 2 * kAtOnceSeconds; ++attempt) {
    const SilentKDC kdc;
    tool::Options options;
    options.environment = AnnAt(kdc);
    // This sanitizer waits for a second before a process with threads ends.
    if (support::kIsThreadSanitized) options.environment["TSAN_OPTIONS"] = "atexit_sleep_ms=0";
    Clock::time_point sent;
    const tool::Outcome outcome = tool::RunToolWhile(
        {"--url", Servers::Get().GatewayToProvider("negotiate"), "tree"},
        [&](pid_t process) {
          EXPECT_TRUE(kdc.Await(10'000));
          sent = Clock::now();
          kill(process, SIGINT);
        },
        options);
    best = std::min(best, Since(sent));
    // A crash at the end of the process would be a signal.
    EXPECT_EQ(outcome.status, 130) << outcome.signal << outcome.err;
    EXPECT_THAT(outcome.err, HasSubstr("interrupted"));
  }
  EXPECT_LT(best, 2 * kAtOnceSeconds);
}

/// The blocked signals of each thread of this process, in hexadecimal digits.
std::map<std::string, std::string> ThreadsOfThisProcess() {
  std::map<std::string, std::string> threads;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    const std::string status = FileText(task.path() / "status");
    const std::size_t signals = status.find("SigBlk:");
    if (signals != std::string::npos)
      threads[task.path().filename()] = status.substr(signals + 8, 16);
  }
  return threads;
}

/// Runs in its own process, because the threads stay.
TEST_F(LogIn, DISABLED_AbandonedThreads) {
  const SilentKDC kdc;
  const Environment environment(AnnAt(kdc));
  const std::string url = Servers::Get().Gateway("negotiate");
  PostOnce(Servers::Get().Gateway("open"), {});  // starts the threads that a sanitizer needs
  const auto before = ThreadsOfThisProcess();
  const RefCnt<VXExecutionState> state(new VXExecutionState);
  constexpr std::size_t kClients = 40;
  std::atomic<std::size_t> interrupted{0};
  std::size_t during = 0;
  std::mutex mutex;
  std::set<std::string> own;  // the kernel may list a thread for a moment after it was joined
  {
    std::vector<std::jthread> clients;
    for (std::size_t i = 0; i < kClients; ++i)
      clients.emplace_back([&] {
        {
          const std::lock_guard lock(mutex);
          own.insert(std::to_string(gettid()));
        }
        const VXExecutionState::Scope scope(*state);
        const Posted posted = PostOnce(url, {.schemes = kNegotiateOnly, .connectTimeout = 60});
        if (posted.error.find("interrupted") != std::string::npos) ++interrupted;
      });
    EXPECT_TRUE(kdc.Await(10'000));
    std::this_thread::sleep_for(std::chrono::milliseconds(800));
    during = ThreadsOfThisProcess().size();
    state->RequestCancellation(VXExecutionState::kCancelReasonHost);
  }
  EXPECT_EQ(interrupted, kClients);
  EXPECT_LE(during, before.size() + kClients + 16);
  std::size_t abandoned = 0;
  for (const auto& [thread, blocked] : ThreadsOfThisProcess()) {
    if (before.contains(thread) || own.contains(thread)) continue;
    ++abandoned;
    // Bit N - 1 is signal N.
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGUSR1, SIGALRM, SIGCHLD})
      EXPECT_TRUE(std::stoull(blocked, nullptr, 16) >> (signal - 1) & 1) << signal;
  }
  EXPECT_GT(abandoned, 0u);
  EXPECT_LE(abandoned, 16u);
  EXPECT_TRUE(HTTPClientWrapper::IsKerberosThreadLeft());
  // Ends the process while the threads run. Hosts should call _exit. Without this sanitizer, the
  // test shows that exit works, too. With it, even _exit reports threads, so this ends the process
  // and prints what RunTestInChild expects.
  if (support::kIsThreadSanitized) {
    if (!HasFailure()) std::puts("[  PASSED  ] 1 test.");
    std::fflush(stdout);
    syscall(SYS_exit_group, HasFailure() ? 1 : 0);
  }
}

TEST_F(LogIn, ASilentKDCKeepsAtMost16Threads) {
  const support::TempDir folder;  // the child may end without removing its files
  const support::ChildResult result =
      support::RunTestInChild("LogIn.DISABLED_AbandonedThreads", {{"TMPDIR", folder.Path()}});
  EXPECT_EQ(result.exitStatus, 0) << result.signal << result.out << result.err;
}

/// The host unloads all libraries while a thread waits for the KDC. The thread then ends.
TEST_F(LogIn, UnloadingIsSafeWhileAKDCIsAsked) {
  SilentKDC kdc;
  const std::map<std::string, std::string> environment = AnnAt(kdc);
  std::jthread closing([&] {
    EXPECT_TRUE(kdc.Await(10'000));
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    kdc.Close();  // the Kerberos library gives up
  });
  const std::string url = Servers::Get().GatewayToProvider("negotiate");
  const support::ChildResult run = support::RunChild(
      LOAD_AND_UNLOAD, {LOADED_HOST, XMLASAX_LIBRARY, url, "1", "1500"}, environment);
  EXPECT_EQ(run.exitStatus, 0) << run.signal << run.out << run.err;
  EXPECT_THAT(run.out, HasSubstr("records 0\n"));
  EXPECT_THAT(run.out, testing::Not(HasSubstr("threads 0\n")));
  EXPECT_THAT(run.out, HasSubstr("ended\n"));
}

}  // namespace
}  // namespace login
