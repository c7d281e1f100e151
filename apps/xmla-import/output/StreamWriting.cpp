#include "output/StreamWriting.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <thread>

#include "base/Interrupt.h"

namespace {

using std::chrono::steady_clock;

ReaderTimeout g_messageTimeout{std::chrono::milliseconds(30)};  // never renewed

/// Opens a second, non-blocking descriptor for the pipe or terminal `file`; -1 if that is not
/// possible. Other processes share the flags of `file` itself.
int OpenWithoutWaiting(int file) {
  struct stat status {};
  if (fstat(file, &status) != 0) return -1;
  char name[64];
  // Excludes the master side, since opening it would create a new terminal.
  const bool isTerminal = isatty(file) == 1 && ptsname_r(file, name, sizeof name) != 0;
  if (!S_ISFIFO(status.st_mode) && !isTerminal) return -1;
  std::snprintf(name, sizeof name, "/proc/self/fd/%d", file);
  return open(name, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

/// Writes as much as is possible without blocking.
ssize_t WritePiece(int file, std::string_view piece) {
  const ssize_t count = send(file, piece.data(), piece.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (count >= 0 || errno != ENOTSOCK) return count;
  return write(file, piece.data(), piece.size());
}

/// Waits until the file is writable or has an error.
bool AwaitRoom(int file, std::chrono::milliseconds limit) {
  pollfd wait{file, POLLOUT, 0};
  const int ready = poll(&wait, 1, static_cast<int>(limit.count()));
  return ready > 0 || (ready < 0 && errno != EINTR);
}

/// Writes to a pipe, terminal or socket. If the reader reads, renews the timeout only if `renews`.
WriteOutcome Write(int file, std::string_view text, ReaderTimeout& timeout, bool renews) {
  // A pipe that is writable accepts this many bytes without blocking.
  constexpr std::size_t kPiece = PIPE_BUF;
  // A terminal may be writable according to poll and still have no room for a line end.
  constexpr std::chrono::milliseconds kPause{1};
  WriteOutcome ending;
  while (!text.empty()) {
    // Even after the grace period, write what is possible without blocking.
    const bool hasTimedOut = timeout.HasTimedOut();
    const bool hasRoom =
        AwaitRoom(file, hasTimedOut ? std::chrono::milliseconds(0) : ReaderTimeout::kSlice);
    if (hasRoom) {
      ending.isInterrupted = Interrupt::Happened();
      const ssize_t count = WritePiece(file, text.substr(0, kPiece));
      if (count > 0) {
        text.remove_prefix(static_cast<std::size_t>(count));
        if (renews) timeout.Renew();
        continue;
      }
      if (count < 0 && errno != EAGAIN && errno != EINTR) {
        ending.error = errno;
        return ending;
      }
    }
    if (hasTimedOut) return {EINTR, true};
    if (hasRoom) std::this_thread::sleep_for(kPause);
  }
  return ending;
}

/// Writes to a standard stream, whose descriptor other processes share.
WriteOutcome WriteToShared(int number, std::string_view text, ReaderTimeout& timeout, bool renews) {
  const int ours = OpenWithoutWaiting(number);
  const WriteOutcome ending = Write(ours < 0 ? number : ours, text, timeout, renews);
  if (ours >= 0) close(ours);
  return ending;
}

}  // namespace

bool ReaderTimeout::HasTimedOut() {
  if (!Interrupt::Happened()) return false;
  const steady_clock::rep now = steady_clock::now().time_since_epoch().count();
  steady_clock::rep since = 0;
  if (m_unreadSince.compare_exchange_strong(since, now)) since = now;
  return steady_clock::duration(now - since) >= m_grace;
}

WriteOutcome WriteWithTimeout(int file, std::string_view text) {
  return Write(file, text, g_resultTimeout, true);
}

WriteOutcome WriteToStandardOutput(std::string_view text) {
  return WriteToShared(STDOUT_FILENO, text, g_resultTimeout, true);
}

void WriteToStandardError(std::string_view text) {
  WriteToShared(STDERR_FILENO, text, g_messageTimeout, false);
}
