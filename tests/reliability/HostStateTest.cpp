// The process that the library works in is the host's: nothing of it changes.

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <locale.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <wchar.h>

#include <atomic>
#include <cfenv>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <stdexcept>
#include <thread>

#include "OperationsSupport.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/VXThread.h"
#include "WireServerSupport.h"
#include "support/Effort.h"
#include "support/FailingAllocation.h"
#include "support/TempDir.h"

namespace reliability {
namespace {

/// All of a process's state that a library could meddle with, as names and texts.
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
  state["rounding"] = std::to_string(fegetround());
  state["floating-point traps"] = std::to_string(fegetexcept());
  for (const auto& [name, stream] :
       {std::pair("stdin", stdin), std::pair("stdout", stdout), std::pair("stderr", stderr)}) {
    state[std::string(name) + " width"] = std::to_string(fwide(stream, 0));
    state[std::string(name) + " error"] = std::to_string(ferror(stream));
  }
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

/// How often an action of a signal was set by anybody: one that is put back again may be put back
/// wrongly when two threads do so.
std::atomic<long> g_signalActionsSet{0};

/// Every operation of all kinds, with an object made and destroyed for each.
long RunAll(const std::string& name, const std::function<std::string(const Kind&)>& url) {
  long count = 0;
  for (const Kind& kind : kKinds)
    for (const Operation& operation : kOperations) {
      const State before = TakeState();
      try {
        Subject subject(kind, url(kind));
        Outputs outputs;
        OutcomeOf(outputs, [&] { operation.run(subject, outputs); });
      } catch (const ErrorMessage&) {
        // No object can be made for this: that, too, changes nothing.
      }
      ExpectSame(before, TakeState(), name + ": " + operation.name);
      ++count;
    }
  return count;
}

/// Servers in a process of their own, since their threads and descriptors come and go: one that
/// answers, one whose replies are broken, one that cuts its connections.
class ServersElsewhere {
 public:
  ServersElsewhere() {
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("no pipe");
    m_process = fork();
    if (m_process == 0) {
      WireServer good;
      WireServer broken([](const Wire& wire, const std::string&, const std::string&) {
        return wire.SendAnswer("<a><b></a>");
      });
      WireServer cut([](const Wire& wire, const std::string&, const std::string&) {
        wire.Send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n<a>");
        return false;
      });
      const int ports[] = {good.Port(), broken.Port(), cut.Port()};
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
  std::string Url(int server, const char* path) const {
    return "http://127.0.0.1:" + std::to_string(m_ports[server]) + path;
  }

 private:
  pid_t m_process = -1;
  int m_ports[3] = {};
};

}  // namespace

#if XMLA_OWN_ALLOCATOR && !defined(__SANITIZE_ADDRESS__)
// Stands before the system's in the order in which the loader looks; a sanitizer has its own.
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

TEST(HostState, IsTheSameAfterEveryOperation) {
  // Anything but the usual, so that putting the usual back is noticed.
  const auto formerDirectory = std::filesystem::current_path();
  const support::TempDir folder;
  std::filesystem::current_path(folder.Path());
  const mode_t formerMask = umask(0127);
  setlocale(LC_ALL, "C.UTF-8");
  fesetround(FE_UPWARD);
  sigset_t blocked;
  sigset_t formerBlocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR2);
  pthread_sigmask(SIG_BLOCK, &blocked, &formerBlocked);
  signal(SIGUSR1, [](int) {});

  signal(SIGPIPE, SIG_DFL);
  std::thread([] {}).join();  // a sanitizer starts one of its own with the first
  g_signalActionsSet = 0;

  long count = 0;
  {
    const ServersElsewhere servers;
    count += RunAll("answered", [&](const Kind& kind) { return servers.Url(0, kind.path); });
    count += RunAll("broken", [&](const Kind& kind) { return servers.Url(1, kind.path); });
    count += RunAll("cut", [&](const Kind& kind) { return servers.Url(2, kind.path); });
  }
  count += RunAll("refused", [](const Kind&) { return "http://127.0.0.1:1/"; });
  count += RunAll("no URL", [](const Kind&) { return "no URL"; });
  {
    VXExecutionState cancelled;
    cancelled.RequestCancellation(VXExecutionState::kCancelReasonHost);
    const VXExecutionState::Scope scope(cancelled);
    count += RunAll("cancelled", [](const Kind&) { return "http://127.0.0.1:1/"; });
  }

  EXPECT_EQ(g_signalActionsSet, 0);
  signal(SIGUSR1, SIG_DFL);
  pthread_sigmask(SIG_SETMASK, &formerBlocked, nullptr);
  fesetround(FE_TONEAREST);
  setlocale(LC_ALL, "C");
  umask(formerMask);
  std::filesystem::current_path(formerDirectory);
  if (!HasFailure())
    support::PrintFigure(
        "the host's state (signals, descriptors, environment, locale, directory, "
        "umask, threads, rounding, streams, limits)",
        std::to_string(count) + " operations, 0 changes");
}

}  // namespace
}  // namespace reliability
