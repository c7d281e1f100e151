// The library changes no state of the host process.

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <locale.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>
#include <wchar.h>

#include <atomic>
#include <cfenv>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <span>
#include <stdexcept>
#include <thread>

#include "DiscoverService.h"
#include "ExemptServerSupport.h"
#include "NetworkSupport.h"
#include "OperationsSupport.h"
#include "ResolverSupport.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/VXThread.h"
#include "support/Certificate.h"
#include "support/Effort.h"
#include "support/FailingAllocation.h"
#include "support/Sanitized.h"
#include "support/TempDir.h"
#include "support/WireServer.h"

namespace reliability {
namespace {

/// All process state that a library could change, as names and texts.
using State = std::map<std::string, std::string>;

void AddSignals(State& state) {
  sigset_t mask;
  pthread_sigmask(SIG_BLOCK, nullptr, &mask);
  for (int number = 1; number < NSIG; ++number) {
    const std::string name = "signal " + std::to_string(number);
    struct sigaction action {};
    if (sigaction(number, nullptr, &action) != 0) continue;
    state[name + " handler"] = std::to_string(reinterpret_cast<std::uintptr_t>(action.sa_handler)) +
                               " " + std::to_string(action.sa_flags);
    state[name + " blocked"] = std::to_string(sigismember(&mask, number));
  }
}

void AddDescriptors(State& state) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code error;
    const std::filesystem::path target = std::filesystem::read_symlink(entry.path(), error);
    if (error || target == "/proc/" + std::to_string(getpid()) + "/fd") continue;
    const int number = std::stoi(entry.path().filename());
    state["descriptor " + std::to_string(number)] = target.string() + " " +
                                                    std::to_string(fcntl(number, F_GETFL)) + " " +
                                                    std::to_string(fcntl(number, F_GETFD));
  }
}

State TakeState() {
  State state;
  AddSignals(state);
  AddDescriptors(state);
  for (char** variable = environ; *variable; ++variable) {
    const std::string text = *variable;
    state["environment " + text.substr(0, text.find('='))] = text;
  }
  state["locale"] = setlocale(LC_ALL, nullptr);
  state["thread's locale"] = std::to_string(uselocale(nullptr) == LC_GLOBAL_LOCALE);
  state["directory"] = std::filesystem::current_path();
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.starts_with("Umask:") || line.starts_with("Threads:")) state[line.substr(0, 6)] = line;
  cpu_set_t processors;
  CPU_ZERO(&processors);
  if (sched_getaffinity(0, sizeof processors, &processors) == 0)
    for (int i = 0; i < CPU_SETSIZE; ++i)
      if (CPU_ISSET(i, &processors)) state["processor " + std::to_string(i)] = "usable";
  state["rounding"] = std::to_string(fegetround());
  state["floating-point traps"] = std::to_string(fegetexcept());
  for (const auto& [name, stream] :
       {std::pair("stdin", stdin), std::pair("stdout", stdout), std::pair("stderr", stderr)}) {
    state[std::string(name) + " width"] = std::to_string(fwide(stream, 0));
    state[std::string(name) + " error"] = std::to_string(ferror(stream));
  }
  itimerval timer{};
  getitimer(ITIMER_REAL, &timer);  // the test sets a timer of one hour
  state["timer"] = std::to_string(timer.it_interval.tv_sec) + " " +
                   (timer.it_value.tv_sec > 3000 ? "late" : "soon");
  rlimit limit{};
  for (int resource = 0; resource < RLIM_NLIMITS; ++resource)
    if (getrlimit(static_cast<__rlimit_resource_t>(resource), &limit) == 0)
      state["limit " + std::to_string(resource)] = std::to_string(limit.rlim_cur);
  return state;
}

void ExpectSame(const State& before, const State& after, const std::string& what) {
  for (const auto& [name, text] : before) {
    const auto found = after.find(name);
    EXPECT_TRUE(found != after.end()) << name << " is gone after " << what << ": " << text;
    if (found != after.end()) {
      EXPECT_EQ(found->second, text) << name << " after " << what;
    }
  }
  for (const auto& [name, text] : after)
    EXPECT_TRUE(before.contains(name)) << name << " is new after " << what << ": " << text;
}

/// Number of times that any signal action was set. Restoring an action does not help if two threads
/// do so at once.
std::atomic<long> g_signalActionsSet{0};

/// Does the work with something before, after or during it.
using Around = std::function<void(const std::function<void()>& work)>;

/// An operation, with its object created and destroyed around it.
Outcome RunWithNewObject(const Operation& operation, const Kind& kind, const std::string& url) {
  Outcome outcome;
  try {
    Subject subject(kind, url);
    Outputs outputs;
    outcome = OutcomeOf(outputs, [&] { operation.run(subject, outputs); });
  } catch (const ErrorMessage&) {
    // No object can be created for this case, which must not change state either.
    outcome.thrown = ThrownText(outcome.end);
  }
  return outcome;
}

long ThreadCount() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/task"),
                       std::filesystem::directory_iterator());
}

void AwaitThreadsEnd(long count, int milliseconds) {
  for (int i = 0; i < milliseconds && ThreadCount() > count; ++i) usleep(1000);
}

/// Every operation of all kinds. `isAnswered`: the operation must succeed; otherwise it must fail.
long RunAll(
    const std::string& name, bool isAnswered, const std::function<std::string(const Kind&)>& url,
    const Around& around = [](const auto& work) { work(); }, std::span<const Kind> kinds = kKinds) {
  long count = 0;
  long records = 0;
  for (const Kind& kind : kinds)
    for (const Operation& operation : kOperations) {
      SCOPED_TRACE(name + ", " + kind.name + ": " + operation.name);
      const std::string theUrl = url(kind);
      Outcome outcome;
      const long threads = ThreadCount();
      const State before = TakeState();
      around([&] { outcome = RunWithNewObject(operation, kind, theUrl); });
      AwaitThreadsEnd(threads, 200);  // the kernel counts a joined thread for a moment
      ExpectSame(before, TakeState(), operation.name);
      const std::string operationName = operation.name;
      // An operation that a kind of provider does not support ends in its fault.
      if (isAnswered) {
        EXPECT_TRUE(outcome.IsWhole() || outcome.thrown.starts_with("[64203] ")) << ToText(outcome);
      } else if (operationName != "SetupConnInfo" && operationName != "create and destroy") {
        EXPECT_FALSE(outcome.IsWhole()) << ToText(outcome);
      }
      records += static_cast<long>(outcome.records.size());
      ++count;
    }
  if (isAnswered) {
    EXPECT_GT(records, 30 * std::ssize(kinds));
  }
  return count;
}

/// Servers in a child process, since their threads and descriptors come and go: one that answers,
/// one that sends broken replies, one that closes its connections, one that answers over TLS.
class ServersElsewhere {
 public:
  enum Server { kGood, kBroken, kCut, kTLS };

  explicit ServersElsewhere(const Certificate& certificate) {
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("no pipe");
    m_process = fork();
    if (m_process == 0) {
      ExemptServer good;
      ExemptServer broken([](loopback::Connection& wire, const loopback::Request&) {
        wire.Send(loopback::Answer("<a><b></a>"));
      });
      ExemptServer cut([](loopback::Connection& wire, const loopback::Request&) {
        wire.Send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n<a>");
        wire.Close();
      });
      WireServer tls(
          [](loopback::Connection& connection, const loopback::Request& request) {
            const std::string path = request.head.substr(6, request.head.find(' ', 6) - 6);
            const sample::HttpReply reply =
                sample::Answer(*sample::KindFromName(path), request.body);
            connection.Send(Answer(reply.body, std::to_string(reply.status) + " X"));
          },
          certificate.Context());
      const int ports[] = {good.Port(), broken.Port(), cut.Port(), std::stoi(tls.Port())};
      if (write(ends[1], ports, sizeof ports) == ssize_t{sizeof ports}) pause();
      _exit(1);
    }
    close(ends[1]);
    if (read(ends[0], m_ports, sizeof m_ports) != ssize_t{sizeof m_ports})
      throw std::runtime_error("no servers");
    close(ends[0]);
  }
  ~ServersElsewhere() {
    kill(m_process, SIGKILL);
    waitpid(m_process, nullptr, 0);
  }
  ServersElsewhere(const ServersElsewhere&) = delete;
  ServersElsewhere& operator=(const ServersElsewhere&) = delete;
  std::string Url(Server server, const char* path, const char* host = "127.0.0.1") const {
    return std::string(server == kTLS ? "https://" : "http://") + host + ":" +
           std::to_string(m_ports[server]) + path;
  }

 private:
  pid_t m_process = -1;
  int m_ports[4] = {};
};

}  // namespace

#if XMLA_OWN_ALLOCATOR && !defined(XMLA_ADDRESS_SANITIZER)
// Interposes the C library's function: the loader finds this definition first. Sanitizers interpose
// their own.
extern "C" __attribute__((visibility("default"))) int sigaction(int number,
                                                                const struct sigaction* action,
                                                                struct sigaction* former) noexcept {
  using Function = int (*)(int, const struct sigaction*, struct sigaction*);
  static const auto next = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "sigaction"));
  if (action) ++g_signalActionsSet;
  return next(number, action, former);
}
#endif

namespace {

TEST(HostState, IsUnchangedAfterEveryOperation) {
  // Unusual values, so that resetting them to defaults is noticed.
  const auto formerDirectory = std::filesystem::current_path();
  const support::TempDir folder;
  std::filesystem::current_path(folder.Path());
  const mode_t formerMask = umask(0027);
  setlocale(LC_ALL, "C.UTF-8");
  fesetround(FE_UPWARD);
  sigset_t blocked;
  sigset_t formerBlocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR2);
  pthread_sigmask(SIG_BLOCK, &blocked, &formerBlocked);
  signal(SIGUSR1, [](int) {});

  signal(SIGPIPE, SIG_DFL);
  const itimerval formerTimer = [] {
    itimerval former{};
    const itimerval late{{1800, 0}, {3600, 0}};
    setitimer(ITIMER_REAL, &late, &former);
    return former;
  }();
  std::thread([] {}).join();  // a sanitizer starts a thread of its own with the first one
  AwaitThreadsEnd(1, 100);
  const Certificate certificate("IP:127.0.0.1", kDay);
  const network::Variable trusted("SSL_CERT_FILE", certificate.Path());
  g_signalActionsSet = 0;

  long count = 0;
  {
    using enum ServersElsewhere::Server;
    const ServersElsewhere servers(certificate);
    const auto good = [&](const Kind& kind) { return servers.Url(kGood, kind.path); };
    const auto slow = [&](const Kind& kind) { return servers.Url(kGood, kind.path, "slow.test"); };
    count += RunAll("answered", true, good);
    count += RunAll("answered over TLS", true,
                    [&](const Kind& kind) { return servers.Url(kTLS, kind.path); });
    count +=
        RunAll("broken", false, [&](const Kind& kind) { return servers.Url(kBroken, kind.path); });
    count += RunAll("cut", false, [&](const Kind& kind) { return servers.Url(kCut, kind.path); });
    {
      const network::Variable logs("OT_XMLA_IMPORT_LOGGING", "1");
      const network::Variable place("XMLA_IMPORT_LOG_DIR", folder.Path() / "logs");
      count += RunAll("answered, with the import log on", true, good);
      EXPECT_FALSE(folder.Files().empty());
    }
    constexpr std::chrono::milliseconds kMoment{3};
    const auto some = std::span<const Kind>(kKinds).first(support::IsLong() ? 3 : 1);
    count += RunAll(
        "resolved late", true, slow,
        [&](const auto& work) {
          const SlowResolver resolver;
          const std::jthread release([&] {
            std::this_thread::sleep_for(kMoment);
            SlowResolver::Release();
          });
          work();
        },
        some);
    count += RunAll(
        "cancelled while resolved", false, slow,
        [&](const auto& work) {
          const long threads = ThreadCount();
          {
            const SlowResolver resolver;
            VXExecutionState state;
            const std::jthread host([&] {
              std::this_thread::sleep_for(kMoment);
              state.RequestCancellation(VXExecutionState::kCancelReasonHost);
            });
            const VXExecutionState::Scope scope(state);
            work();
          }
          AwaitThreadsEnd(threads, 5000);  // asks the resolver until that returns
        },
        some);
  }
  count += RunAll("refused", false, [](const Kind&) { return "http://127.0.0.1:1/"; });
  count += RunAll("no URL", false, [](const Kind&) { return "no URL"; });
  {
    VXExecutionState cancelled;
    cancelled.RequestCancellation(VXExecutionState::kCancelReasonHost);
    const VXExecutionState::Scope scope(cancelled);
    count += RunAll("cancelled", false, [](const Kind&) { return "http://127.0.0.1:1/"; });
  }

  EXPECT_EQ(g_signalActionsSet, 0);
  setitimer(ITIMER_REAL, &formerTimer, nullptr);
  signal(SIGUSR1, SIG_DFL);
  pthread_sigmask(SIG_SETMASK, &formerBlocked, nullptr);
  fesetround(FE_TONEAREST);
  setlocale(LC_ALL, "C");
  umask(formerMask);
  std::filesystem::current_path(formerDirectory);
  if (!HasFailure())
    support::PrintFigure(
        "the host's state (signals, descriptors, environment, locale, directory, "
        "umask, threads, processors, rounding, streams, limits, timer)",
        std::to_string(count) + " operations, 0 changes");
}

}  // namespace
}  // namespace reliability
