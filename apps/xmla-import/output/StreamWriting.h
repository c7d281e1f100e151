#pragma once

#include <chrono>
#include <string_view>

/// Decides how long to wait for a reader that does not read: without limit, but half a second after
/// an interruption. All writes of the process share this period, so it is not granted again for the
/// next reader. A reader that reads renews it. Thread-safe.
class ReaderTimeout {
 public:
  /// Call before each wait of at most kSlice. True if the writer must give up.
  static bool HasTimedOut();
  static void Renew();

  /// Maximum length of a wait, because a signal may arrive just before it.
  static constexpr std::chrono::milliseconds kSlice{50};
};

/// Result of a write.
struct WriteOutcome {
  int error =
      0;  ///< 0, or why the text is not completely written; EINTR: gave up after an interruption
  bool isInterrupted = false;  ///< interrupted before the last piece was written
};

/// Writes to a pipe, terminal or socket, and waits for its reader as long as ReaderTimeout allows.
WriteOutcome WriteWithTimeout(int file, std::string_view text);

/// Writes to a standard stream, whose descriptor other processes share.
WriteOutcome WriteToStream(int number, std::string_view text);

/// Writes to standard error and ignores errors. One thread at a time.
void WriteToStandardError(std::string_view text);
