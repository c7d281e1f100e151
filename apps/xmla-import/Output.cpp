#include "Output.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <thread>
#include <utility>

#include "Arguments.h"
#include "Text.h"

namespace {

bool standardOutputIsClosed = false;

[[noreturn]] void Fail(const std::string& place, int error) {
  throw OutputError("the result cannot be written to " + place + ": " + std::strerror(error));
}

/// Writes everything; 0 or the error number.
int WriteAll(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(file, text.data(), text.size());
    if (count >= 0)
      text.remove_prefix(static_cast<std::size_t>(count));
    else if (errno != EINTR)
      return errno;
  }
  return 0;
}

/// How long a reader who does not read is waited for: for ever, but a moment after an interruption.
class Patience {
 public:
  explicit Patience(const std::function<bool()>& isInterrupted) : m_isInterrupted(&isInterrupted) {}

  /// To be asked whenever nobody has read for a slice of time.
  bool IsOver() {
    if (!IsInterrupted()) return false;
    const auto now = std::chrono::steady_clock::now();
    if (!std::exchange(m_isEnding, true)) m_since = now;
    return now - m_since >= kGrace;
  }
  void Renew() { m_isEnding = false; }
  bool IsInterrupted() const { return (*m_isInterrupted)(); }

  /// A signal may come just before a wait begins, so no wait is longer.
  static constexpr std::chrono::milliseconds kSlice{50};

 private:
  // A reader that is merely slow, or waits for its turn on a busy machine, gets the whole.
  static constexpr std::chrono::milliseconds kGrace{500};

  const std::function<bool()>* m_isInterrupted;
  bool m_isEnding = false;
  std::chrono::steady_clock::time_point m_since;
};

/// How writing ended.
struct Ending {
  int error = 0;               ///< 0, or why not all is written; EINTR when patience was over
  bool isInterrupted = false;  ///< there was an interruption before the last piece was written
};

/// A descriptor of our own for the pipe or terminal that `file` is, on which writing never waits;
/// -1 when there is none. The flag is not set on `file` itself: others share that.
int OpenWithoutWaiting(int file) {
  struct stat status {};
  if (fstat(file, &status) != 0) return -1;
  char name[64];
  // The name of a terminal's other side makes a new terminal.
  const bool isTerminal = isatty(file) == 1 && ptsname_r(file, name, sizeof name) != 0;
  if (!S_ISFIFO(status.st_mode) && !isTerminal) return -1;
  const std::string self = "/proc/self/fd/" + std::to_string(file);
  return open(self.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

/// Writes what the place takes now.
ssize_t WritePiece(int file, std::string_view piece) {
  const ssize_t count = send(file, piece.data(), piece.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (count >= 0 || errno != ENOTSOCK) return count;
  return write(file, piece.data(), piece.size());
}

/// Writes to a place that may make us wait: a pipe, a terminal, a socket.
Ending WritePatiently(int file, std::string_view text, Patience patience) {
  // A pipe that can be written at all takes so much without waiting.
  constexpr std::size_t kPiece = PIPE_BUF;
  // A terminal may say that it can be written, and yet have no room for a line's end.
  constexpr std::chrono::milliseconds kPause{1};
  Ending ending;
  while (!text.empty()) {
    pollfd wait{file, POLLOUT, 0};
    const int ready = poll(&wait, 1, static_cast<int>(Patience::kSlice.count()));
    if (ready == 0 || (ready < 0 && errno == EINTR)) {
      if (patience.IsOver()) return {EINTR, true};
      continue;
    }
    ending.isInterrupted = patience.IsInterrupted();
    const ssize_t count = WritePiece(file, text.substr(0, kPiece));
    if (count > 0) {
      text.remove_prefix(static_cast<std::size_t>(count));
      patience.Renew();
      continue;
    }
    if (count < 0 && errno != EAGAIN && errno != EINTR) {
      ending.error = errno;
      return ending;
    }
    if (patience.IsOver()) return {EINTR, true};
    std::this_thread::sleep_for(kPause);
  }
  return ending;
}

/// False when there was an interruption, and yet all is written.
bool Judge(const Ending& ending, const std::string& place) {
  if (ending.error == EINTR)
    throw OutputInterrupted("interrupted while nobody read " + place +
                            "; the result there is cut short");
  if (ending.error != 0) Fail(place, ending.error);
  return !ending.isInterrupted;
}

/// The file that a chain of links leads to, so that renaming replaces it and not the link.
std::filesystem::path Target(const std::string& file) {
  std::error_code error;
  const std::filesystem::path target = std::filesystem::weakly_canonical(file, error);
  return error ? std::filesystem::path(file) : target;
}

/// A device or a pipe takes text but must not be replaced.
bool IsSpecial(const std::filesystem::path& file) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(file, error);
  return std::filesystem::exists(status) && !std::filesystem::is_regular_file(status);
}

/// The mode that the finished file gets: that of the one it replaces, else what is usual.
mode_t FileMode(const std::filesystem::path& file) {
  struct stat former {};
  if (stat(file.c_str(), &former) == 0) return former.st_mode & 07777;
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

/// Opens a device or a pipe, and awaits the pipe's reader; throws when that takes too long.
int OpenSpecial(const std::filesystem::path& file, const std::string& shown, Patience patience) {
  for (;;) {
    const int special = open(file.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (special >= 0) return special;
    const int failure = errno;
    std::error_code error;
    // A pipe without a reader; a socket's name fails in the same way, and always will.
    const bool canWait = failure == ENXIO && std::filesystem::is_fifo(file, error);
    if (!canWait && failure != EINTR) Fail(shown, failure);
    if (patience.IsOver())
      throw OutputInterrupted("interrupted while nobody read " + shown +
                              "; the result is not written");
    std::this_thread::sleep_for(Patience::kSlice);
  }
}

bool WriteSpecial(const std::filesystem::path& file, const std::string& shown,
                  std::string_view text, const Patience& patience) {
  const int special = OpenSpecial(file, shown, patience);
  const Ending ending = WritePatiently(special, text, patience);
  close(special);
  return Judge(ending, shown);
}

bool WriteToStandardOutput(std::string_view text, const Patience& patience) {
  const std::string shown = "standard output";
  if (standardOutputIsClosed) Fail(shown, EBADF);
  const int ours = OpenWithoutWaiting(STDOUT_FILENO);
  Ending ending = WritePatiently(ours < 0 ? STDOUT_FILENO : ours, text, patience);
  if (ours >= 0) close(ours);
  if (ending.error == EPIPE) ending.error = 0;
  return Judge(ending, shown);
}

void WriteAndRename(const std::filesystem::path& file, const std::string& shown,
                    std::string_view text, const std::function<bool()>& isToStop) {
  std::string beside = file.string() + ".XXXXXX";
  const int unfinished = mkostemp(beside.data(), O_CLOEXEC);
  if (unfinished < 0) Fail(shown, errno);
  int failure = WriteAll(unfinished, text);
  if (failure == 0 && fchmod(unfinished, FileMode(file)) != 0) failure = errno;
  if (failure == 0 && fsync(unfinished) != 0) failure = errno;
  if (close(unfinished) != 0 && failure == 0) failure = errno;
  const bool isStopped = failure == 0 && isToStop();
  if (failure == 0 && !isStopped && std::rename(beside.c_str(), file.c_str()) != 0) failure = errno;
  if (failure == 0 && !isStopped) return;
  unlink(beside.c_str());
  if (isStopped)
    throw OutputInterrupted("interrupted before the result was in " + shown +
                            "; the file is as it was");
  Fail(shown, failure);
}

}  // namespace

void GuardStandardStreams() {
  for (int number = 0; number <= STDERR_FILENO; ++number) {
    if (fcntl(number, F_GETFD) >= 0 || errno != EBADF) continue;
    if (number == STDOUT_FILENO) standardOutputIsClosed = true;
    // The lowest free number is this one: those below it are open.
    if (open("/dev/null", O_RDWR) != number) std::abort();
  }
}

// Standard output by its names: opened anew it would lose its place, or what stands in it.
Output::Output(std::string file)
    : m_file(file == "-" || file == "/dev/stdout" || file == "/dev/fd/1" ? std::string()
                                                                         : std::move(file)) {}

void Output::Check() const {
  if (m_file.empty()) return;
  const std::filesystem::path file = Target(m_file);
  const std::string named = "--output " + Listed({m_file});
  std::error_code error;
  if (std::filesystem::is_directory(file, error)) throw UsageError(named + " is a directory");
  const std::filesystem::path place =
      IsSpecial(file) ? file : (file.has_parent_path() ? file.parent_path() : ".");
  if (access(place.c_str(), W_OK) != 0)
    throw UsageError(named + " cannot be written: " + std::strerror(errno));
}

bool Output::IsTerminal() const {
  if (m_file.empty()) return isatty(STDOUT_FILENO) == 1;
  const std::filesystem::path file = Target(m_file);
  std::error_code error;
  if (!std::filesystem::is_character_file(file, error)) return false;
  const int device = open(file.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (device < 0) return false;
  const bool isTerminal = isatty(device) == 1;
  close(device);
  return isTerminal;
}

bool Output::Write(std::string_view text, const std::function<bool()>& isInterrupted,
                   bool isPartial) const {
  if (text.empty()) return !isInterrupted();
  if (m_file.empty()) return WriteToStandardOutput(text, Patience(isInterrupted));
  const std::filesystem::path file = Target(m_file);
  const std::string shown = Listed({m_file});
  if (IsSpecial(file)) return WriteSpecial(file, shown, text, Patience(isInterrupted));
  WriteAndRename(file, shown, text, [&] { return !isPartial && isInterrupted(); });
  return true;
}
