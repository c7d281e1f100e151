#include "connection/Password.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <poll.h>
#include <sys/vfs.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <iterator>
#include <string_view>

#include "base/Interrupt.h"
#include "base/Secret.h"
#include "base/TerminalText.h"
#include "base/Text.h"
#include "base/TrustedPath.h"
#include "call/UsageError.h"

namespace {

constexpr std::size_t kMaxPasswordBytes = std::size_t{64} * 1024;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// Signals that would end or stop the process.
constexpr int kDeferredSignals[] = {SIGINT,  SIGTERM, SIGQUIT, SIGHUP, SIGALRM,
                                    SIGUSR1, SIGUSR2, SIGXCPU, SIGTSTP};
constexpr std::size_t kDeferredCount = std::size(kDeferredSignals);

volatile std::sig_atomic_t g_arrivedSignals[kDeferredCount];  // set by the handler

extern "C" void DeferSignal(int number) {
  for (std::size_t i = 0; i < kDeferredCount; ++i)
    if (kDeferredSignals[i] == number) g_arrivedSignals[i] = 1;
}

/// Defers signals. The destructor raises those that arrived. Ignored signals stay ignored. Requires
/// a process with one thread.
class DeferredSignals {
 public:
  DeferredSignals() {
    struct sigaction action {};
    action.sa_handler = DeferSignal;
    sigemptyset(&action.sa_mask);
    for (std::size_t i = 0; i < kDeferredCount; ++i) {
      g_arrivedSignals[i] = 0;
      sigaction(kDeferredSignals[i], nullptr, &m_former[i]);
      if (m_former[i].sa_handler != SIG_IGN) sigaction(kDeferredSignals[i], &action, nullptr);
    }
  }
  ~DeferredSignals() {
    for (std::size_t i = 0; i < kDeferredCount; ++i)
      sigaction(kDeferredSignals[i], &m_former[i], nullptr);
    for (std::size_t i = 0; i < kDeferredCount; ++i)
      if (g_arrivedSignals[i]) std::raise(kDeferredSignals[i]);
  }
  DeferredSignals(const DeferredSignals&) = delete;
  DeferredSignals& operator=(const DeferredSignals&) = delete;

  static bool HaveArrived() {
    for (const volatile std::sig_atomic_t& held : g_arrivedSignals)
      if (held) return true;
    return false;
  }

 private:
  struct sigaction m_former[kDeferredCount] {};
};

enum class LineEnd { kLineFeed, kEndOfFile, kStopped, kError };

/// True for a pipe that was opened through /dev/fd. For such a pipe, poll does not report an end
/// that came earlier.
bool IsReopenedPipe(int file) {
  struct statfs system {};
  return fstatfs(file, &system) == 0 && system.f_type == PIPEFS_MAGIC &&
         (fcntl(file, F_GETFL) & O_NONBLOCK) != 0;
}

/// Waits for input or end of file. False if `mustStop` returns true. Each wait is short, because a
/// signal may arrive just before it.
template <class Stop>
bool WaitForInput(int file, Stop mustStop) {
  constexpr int kMilliseconds = 50;
  pollfd wait{file, POLLIN, 0};
  while (!mustStop()) {
    const int ready = poll(&wait, 1, kMilliseconds);
    if (ready > 0 || (ready < 0 && errno != EINTR)) return true;  // read() reports the error
    if (ready == 0 && IsReopenedPipe(file)) return true;
  }
  return false;
}

/// Reads byte by byte, so that the rest of the input remains for later readers.
template <class Stop>
LineEnd ReadLine(int file, std::string& line, Stop mustStop) {
  line.clear();
  line.reserve(kMaxPasswordBytes);
  while (line.size() < kMaxPasswordBytes) {
    if (!WaitForInput(file, mustStop)) return LineEnd::kStopped;
    char byte = 0;
    const ssize_t count = read(file, &byte, 1);
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (count < 0) return LineEnd::kError;
    if (count == 0) return LineEnd::kEndOfFile;
    if (byte == '\n') {
      if (!line.empty() && line.back() == '\r') line.pop_back();
      return LineEnd::kLineFeed;
    }
    line += byte;
  }
  errno = EFBIG;
  return LineEnd::kError;
}

/// Disables the echo of a terminal and restores it in the destructor.
class NoEcho {
 public:
  explicit NoEcho(int terminal) : m_terminal(terminal) {
    m_changed = tcgetattr(terminal, &m_former) == 0;
    if (!m_changed) return;
    termios silent = m_former;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    silent.c_lflag |= ECHONL;
    Set(silent);
  }
  ~NoEcho() {
    if (m_changed) Set(m_former);
  }
  NoEcho(const NoEcho&) = delete;
  NoEcho& operator=(const NoEcho&) = delete;

 private:
  void Set(const termios& settings) const {
    while (tcsetattr(m_terminal, TCSAFLUSH, &settings) != 0 && errno == EINTR) {
    }
  }

  int m_terminal;
  termios m_former{};
  bool m_changed = false;
};

/// Prompts once. A signal ends the prompt and takes effect after the echo is restored.
LineEnd Ask(int terminal, const std::string& prompt, std::string& line) {
  const DeferredSignals signals;
  const NoEcho silence(terminal);
  if (write(terminal, prompt.data(), prompt.size()) < 0) return LineEnd::kEndOfFile;
  return ReadLine(terminal, line, [] { return DeferredSignals::HaveArrived() || MustStop(); });
}

/// Opens the file, or standard input for "-". On failure the result is not open and errno is set.
Descriptor OpenInput(const std::string& file) {
  if (file == "-") return Descriptor(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  return TrustedPath::Find(file).Open(O_RDONLY);
}

}  // namespace

std::string FirstLine(const std::string& text) {
  const std::size_t end = text.find('\n');
  std::string line;
  line.reserve(text.size());
  line.append(text, 0, end);
  if (end != text.npos && line.ends_with('\r')) line.pop_back();
  if (line.starts_with(kByteOrderMark)) line.erase(0, kByteOrderMark.size());
  return line;
}

std::string SecretFromFile(const std::string& what, const std::string& file,
                           const std::string& setting) {
  const std::string name = file == "-" ? "standard input" : setting + " \"" + OneLine(file) + '"';
  std::string line;
  const auto fail = [&](const char* reason) {
    Erase(line);
    throw UsageError(what + " cannot be read from " + name + ": " + OneLine(reason));
  };
  try {
    const Descriptor input = OpenInput(file);
    const LineEnd end =
        input.IsOpen() ? ReadLine(input.Number(), line, &MustStop) : LineEnd::kError;
    if (end == LineEnd::kStopped) {
      Erase(line);
      throw InterruptedEarly();
    }
    if (end == LineEnd::kError) fail(std::strerror(errno));
    if (end == LineEnd::kEndOfFile && line.empty()) fail("it is empty");
  } catch (const PathError& error) {
    fail(error.what());
  }
  // Some editors write a byte-order mark.
  if (line.starts_with(kByteOrderMark)) line.erase(0, kByteOrderMark.size());
  // An empty password on every run would lock the account.
  if (line.empty()) fail("its first line is empty");
  return line;
}

UsageError InterruptedEarly() { return UsageError("interrupted before the first request"); }

std::optional<std::string> SecretFromTerminal(const std::string& noun, const std::string& prompt) {
  const Descriptor terminal(open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (!terminal.IsOpen()) return std::nullopt;
  const std::string shown = EscapedForTerminal(prompt) + ": ";
  std::string line;
  LineEnd end = LineEnd::kStopped;
  // Prompts again after the process was stopped and continued.
  while (end == LineEnd::kStopped && !MustStop()) end = Ask(terminal.Number(), shown, line);
  if (end == LineEnd::kLineFeed && line.empty())
    throw UsageError("the " + noun + " is empty; nothing was sent");
  if (end == LineEnd::kLineFeed) return line;
  const bool isShown = write(terminal.Number(), "\n", 1) == 1;
  if (isShown && end == LineEnd::kEndOfFile && !line.empty()) return line;
  Erase(line);
  if (end == LineEnd::kStopped) throw InterruptedEarly();
  throw UsageError("no " + noun + " was entered");
}
