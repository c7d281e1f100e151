#include "base/ChildCommand.h"

#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iterator>
#include <system_error>

#include "base/Descriptor.h"

// Two processes are started. The guard runs the program, and ends it when the caller closes a pipe
// or ends. After a fork of a process with several threads, only functions may be called that are
// safe in a signal handler.

namespace {

// Signals from the terminal go to all processes. The guard must live longer than the program.
constexpr int kIgnoredByGuard[] = {SIGINT, SIGTERM, SIGQUIT, SIGHUP, SIGTSTP, SIGTTOU};
constexpr int kExecFailed = 127;

struct Pipe {
  Pipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category());
    read = Descriptor(ends[0]);
    write = Descriptor(ends[1]);
  }
  Descriptor read;
  Descriptor write;
};

/// How the program ended, from the guard to the caller.
struct Report {
  int error = 0;
  int status = 0;
};

void Send(const Descriptor& pipe, const Report& report) {
  // Smaller than the pipe's buffer, so it is written completely.
  [[maybe_unused]] const ssize_t count = write(pipe.Number(), &report, sizeof report);
}

class Guard {
 public:
  /// Call before the fork.
  Guard(const std::vector<std::string>& words, const Pipe& output, const Pipe& report,
        const Pipe& life)
      : m_output(output), m_report(report), m_life(life) {
    for (const std::string& word : words) m_words.push_back(const_cast<char*>(word.c_str()));
    m_words.push_back(nullptr);
    m_hasSettings = tcgetattr(STDIN_FILENO, &m_settings) == 0;
  }

  /// Runs in the guard's process.
  [[noreturn]] void Run() {
    close(m_life.write.Number());
    for (std::size_t i = 0; i < std::size(kIgnoredByGuard); ++i) {
      struct sigaction ignore {};
      ignore.sa_handler = SIG_IGN;
      sigaction(kIgnoredByGuard[i], &ignore, &m_former[i]);
    }
    // Orphaned descendants become children of the guard, which can then end them.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const pid_t self = getpid();
    const pid_t program = fork();
    if (program == 0) Execute(self);
    if (program < 0) Send(m_report.write, {errno, 0});
    if (program > 0) Watch(program);
    _exit(0);
  }

 private:
  [[noreturn]] void Execute(pid_t guard) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != guard) _exit(kExecFailed);
    for (std::size_t i = 0; i < std::size(kIgnoredByGuard); ++i)
      sigaction(kIgnoredByGuard[i], &m_former[i], nullptr);
    // The tool ignores these.
    std::signal(SIGPIPE, SIG_DFL);
    std::signal(SIGXFSZ, SIG_DFL);
    // Input that is not typed belongs to the tool.
    if (!m_hasSettings) dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
    dup2(m_output.write.Number(), STDOUT_FILENO);
    execvp(m_words.front(), m_words.data());
    Send(m_report.write, {errno, 0});
    _exit(kExecFailed);
  }

  void Watch(pid_t program) const {
    close(m_output.write.Number());
    close(m_output.read.Number());
    const int ended = static_cast<int>(syscall(SYS_pidfd_open, program, 0));
    pollfd waits[] = {{ended, POLLIN, 0}, {m_life.read.Number(), POLLIN, 0}};
    while (poll(waits, std::size(waits), -1) < 0 && errno == EINTR) {
    }
    Report report;
    const bool hasEnded = waits[0].revents != 0 && waitpid(program, &report.status, 0) == program;
    // A successful program may leave others in the background. A signal from the terminal may have
    // ended the program, but not all of its descendants.
    if (!hasEnded || report.status != 0) EndDescendants(hasEnded ? 0 : program);
    if (hasEnded) return Send(m_report.write, report);
    if (m_hasSettings) tcsetattr(STDIN_FILENO, TCSANOW, &m_settings);
  }

  /// Ends all descendants in the guard's session. An orphan becomes a child of the guard before the
  /// wait for its parent returns.
  /// `program` is 0 if it has ended.
  static void EndDescendants(pid_t program) {
    if (program > 0) {
      kill(program, SIGKILL);
      waitpid(program, nullptr, 0);
    }
    while (EndChildren()) {
    }
  }

  /// Ends the guard's children. False if there was none.
  static bool EndChildren() {
    char text[4096];
    const int file = open("/proc/thread-self/children", O_RDONLY | O_CLOEXEC);
    const ssize_t length = file < 0 ? 0 : read(file, text, sizeof text);
    close(file);
    bool hasEnded = false;
    pid_t child = 0;
    for (ssize_t i = 0; i < length; ++i) {
      if (text[i] >= '0' && text[i] <= '9') {
        child = child * 10 + (text[i] - '0');
        continue;
      }
      if (child > 0 && getsid(child) == getsid(0)) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        hasEnded = true;
      }
      child = 0;
    }
    return hasEnded;
  }

  const Pipe& m_output;
  const Pipe& m_report;
  const Pipe& m_life;
  std::vector<char*> m_words;
  bool m_hasSettings = false;  // standard input is a terminal
  termios m_settings{};
  struct sigaction m_former[std::size(kIgnoredByGuard)]{};
};

/// Appends what the pipe contains. False at its end.
bool ReadAvailable(const Descriptor& pipe, std::string& text, std::size_t max) {
  while (text.size() <= max) {
    char block[256];
    const ssize_t count = read(pipe.Number(), block, std::min(sizeof block, max + 1 - text.size()));
    if (count > 0) text.append(block, static_cast<std::size_t>(count));
    explicit_bzero(block, sizeof block);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return count < 0;
  }
  return true;
}

}  // namespace

CommandOutcome RunCommand(const std::vector<std::string>& words, const CommandLimits& limits,
                          const std::function<bool()>& mustStop) {
  using Clock = std::chrono::steady_clock;
  using Ending = CommandOutcome::Ending;
  constexpr int kPollMilliseconds = 50;
  Pipe output;
  Pipe reports;
  Pipe life;
  fcntl(output.read.Number(), F_SETFL, O_NONBLOCK);
  Guard guard(words, output, reports, life);
  const pid_t process = fork();
  if (process < 0) throw std::system_error(errno, std::generic_category());
  if (process == 0) guard.Run();
  output.write = {};
  reports.write = {};
  life.read = {};

  CommandOutcome outcome;
  outcome.output.reserve(limits.bytes + 1);
  Clock::time_point deadline = Clock::now() + limits.time;
  bool hasLine = false;
  bool isOpen = true;
  for (;;) {
    pollfd waits[] = {{isOpen ? output.read.Number() : -1, POLLIN, 0},
                      {reports.read.Number(), POLLIN, 0}};
    poll(waits, std::size(waits), kPollMilliseconds);
    if (isOpen) isOpen = ReadAvailable(output.read, outcome.output, limits.bytes);
    if (outcome.output.size() > limits.bytes) {
      outcome.ending = Ending::kTooMuch;
      break;
    }
    if (waits[1].revents != 0) {
      Report report;
      const bool isReported =
          read(reports.read.Number(), &report, sizeof report) == ssize_t{sizeof report};
      outcome.ending = report.error != 0 ? Ending::kNotStarted : Ending::kEnded;
      outcome.error = report.error;
      outcome.status = isReported ? report.status : kExecFailed << 8;
      // It may have written more before it ended.
      if (isOpen) ReadAvailable(output.read, outcome.output, limits.bytes);
      if (outcome.output.size() > limits.bytes) outcome.ending = Ending::kTooMuch;
      break;
    }
    if (mustStop()) break;
    if (!hasLine && outcome.output.find('\n') != std::string::npos) {
      hasLine = true;
      deadline = std::min(deadline, Clock::now() + limits.timeAfterLine);
    }
    if (Clock::now() > deadline) {
      outcome.ending = Ending::kTooLong;
      break;
    }
  }
  life.write = {};
  while (waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
  }
  return outcome;
}
