#include "Password.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "Arguments.h"
#include "TerminalText.h"
#include "Text.h"
#include "Utility/Generic/VXExecutionState.h"

namespace {

constexpr std::size_t kMaxPasswordBytes = std::size_t{64} * 1024;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

/// An open file that is closed at the end, unless it was open before.
class Descriptor {
 public:
  Descriptor(int number, bool owned) : m_number(number), m_owned(owned && number >= 0) {}
  ~Descriptor() {
    if (m_owned) close(m_number);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int Number() const { return m_number; }

 private:
  int m_number;
  bool m_owned;
};

enum class LineEnd { kLineFeed, kEndOfFile, kError };

/// Waits for something to read, or for its end; false when the call is interrupted. A signal may
/// come just before a wait begins, so no wait is long.
bool WaitForInput(int file) {
  constexpr int kMilliseconds = 50;
  pollfd wait{file, POLLIN, 0};
  for (;;) {
    const VXExecutionState* const state = VXExecutionState::Current();
    if (state && state->IsCancellationRequested()) return false;
    const int ready = poll(&wait, 1, kMilliseconds);
    if (ready > 0 || (ready < 0 && errno != EINTR)) return true;  // reading tells what is wrong
  }
}

/// Reads byte by byte: what follows the line belongs to whoever reads next.
LineEnd ReadLine(int file, std::string& line) {
  line.clear();
  while (line.size() < kMaxPasswordBytes) {
    if (!WaitForInput(file)) {
      errno = EINTR;
      return LineEnd::kError;
    }
    char byte = 0;
    const ssize_t count = read(file, &byte, 1);
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

/// Switches the echo of a terminal off, and on again at the end.
class Silence {
 public:
  explicit Silence(int terminal) : m_terminal(terminal) {
    m_changed = tcgetattr(terminal, &m_former) == 0;
    if (!m_changed) return;
    termios silent = m_former;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    silent.c_lflag |= ECHONL;
    tcsetattr(terminal, TCSAFLUSH, &silent);
  }
  ~Silence() {
    if (m_changed) tcsetattr(m_terminal, TCSAFLUSH, &m_former);
  }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;

 private:
  int m_terminal;
  termios m_former{};
  bool m_changed = false;
};

}  // namespace

std::string PasswordFromFile(const std::string& file) {
  const bool standardInput = file == "-";
  const std::string name = standardInput ? "standard input" : '"' + OneLine(file) + '"';
  const Descriptor input(standardInput ? STDIN_FILENO : open(file.c_str(), O_RDONLY | O_CLOEXEC),
                         !standardInput);
  std::string line;
  const LineEnd end = input.Number() < 0 ? LineEnd::kError : ReadLine(input.Number(), line);
  if (end == LineEnd::kError)
    throw UsageError("the password cannot be read from " + name + ": " + std::strerror(errno));
  // A byte-order mark is what an editor put there, not the user.
  if (line.starts_with(kByteOrderMark)) line.erase(0, kByteOrderMark.size());
  if (end == LineEnd::kEndOfFile && line.empty())
    throw UsageError("the password cannot be read from " + name + ": it is empty");
  return line;
}

std::optional<std::string> PasswordFromTerminal(const std::string& user) {
  const Descriptor terminal(open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC), true);
  if (terminal.Number() < 0) return std::nullopt;
  const std::string prompt = "Password of " + HarmlessOnTerminal(user) + ": ";
  const Silence silence(terminal.Number());
  if (write(terminal.Number(), prompt.data(), prompt.size()) < 0) return std::nullopt;
  std::string line;
  const LineEnd end = ReadLine(terminal.Number(), line);
  if (end == LineEnd::kLineFeed) return line;
  if (write(terminal.Number(), "\n", 1) < 0 || line.empty() || end == LineEnd::kError)
    return std::nullopt;
  return line;
}
