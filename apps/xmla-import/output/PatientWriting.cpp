#include "output/PatientWriting.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <thread>

#include "base/Interrupt.h"

namespace {

using std::chrono::steady_clock;

// A reader that is merely slow, or waits for its turn on a busy machine, gets the whole.
constexpr std::chrono::milliseconds kGrace{500};

/// Since when nobody has read, once there was an interruption; 0 for not at all.
std::atomic<steady_clock::rep> unreadSince{0};

/// A descriptor of our own for the pipe or terminal that `file` is, on which writing never waits;
/// -1 when there is none. The flag is not set on `file` itself: others share that.
int OpenWithoutWaiting(int file) {
  struct stat status {};
  if (fstat(file, &status) != 0) return -1;
  char name[64];
  // The name of a terminal's other side makes a new terminal.
  const bool isTerminal = isatty(file) == 1 && ptsname_r(file, name, sizeof name) != 0;
  if (!S_ISFIFO(status.st_mode) && !isTerminal) return -1;
  std::snprintf(name, sizeof name, "/proc/self/fd/%d", file);
  return open(name, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

/// Writes what the place takes now.
ssize_t WritePiece(int file, std::string_view piece) {
  const ssize_t count = send(file, piece.data(), piece.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (count >= 0 || errno != ENOTSOCK) return count;
  return write(file, piece.data(), piece.size());
}

/// True when writing tells more than waiting on.
bool AwaitRoom(int file, std::chrono::milliseconds limit) {
  pollfd wait{file, POLLOUT, 0};
  const int ready = poll(&wait, 1, static_cast<int>(limit.count()));
  return ready > 0 || (ready < 0 && errno != EINTR);
}

}  // namespace

bool Patience::IsOver() {
  if (!Interrupt::Happened()) return false;
  const steady_clock::rep now = steady_clock::now().time_since_epoch().count();
  steady_clock::rep since = 0;
  if (unreadSince.compare_exchange_strong(since, now)) since = now;
  return steady_clock::duration(now - since) >= kGrace;
}

void Patience::Renew() { unreadSince = 0; }

Ending WritePatiently(int file, std::string_view text) {
  // A pipe that can be written at all takes so much without waiting.
  constexpr std::size_t kPiece = PIPE_BUF;
  // A terminal may say that it can be written, and yet have no room for a line's end.
  constexpr std::chrono::milliseconds kPause{1};
  Ending ending;
  while (!text.empty()) {
    // What a place takes at once it gets all the same.
    const bool isOver = Patience::IsOver();
    const bool hasRoom = AwaitRoom(file, isOver ? std::chrono::milliseconds(0) : Patience::kSlice);
    if (hasRoom) {
      ending.isInterrupted = Interrupt::Happened();
      const ssize_t count = WritePiece(file, text.substr(0, kPiece));
      if (count > 0) {
        text.remove_prefix(static_cast<std::size_t>(count));
        Patience::Renew();
        continue;
      }
      if (count < 0 && errno != EAGAIN && errno != EINTR) {
        ending.error = errno;
        return ending;
      }
    }
    if (isOver) return {EINTR, true};
    if (hasRoom) std::this_thread::sleep_for(kPause);
  }
  return ending;
}

Ending WriteToStream(int number, std::string_view text) {
  const int ours = OpenWithoutWaiting(number);
  const Ending ending = WritePatiently(ours < 0 ? number : ours, text);
  if (ours >= 0) close(ours);
  return ending;
}

void WriteToStandardError(std::string_view text) { WriteToStream(STDERR_FILENO, text); }
