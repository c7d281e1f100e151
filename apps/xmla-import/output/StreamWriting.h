#pragma once

#include <atomic>
#include <chrono>
#include <string_view>

/// Decides how long to wait for a reader that does not read: without limit, but only for a grace
/// period after an interruption. All writes that use one object share its period, so it is not
/// granted again for the next reader. Thread-safe.
class ReaderTimeout {
 public:
  explicit constexpr ReaderTimeout(std::chrono::milliseconds grace) : m_grace(grace) {}

  /// Call before each wait of at most kSlice. True if the writer must give up.
  bool HasTimedOut();
  /// The reader has read, and the period begins again.
  void Renew() { m_unreadSince = 0; }

  /// Maximum length of a wait, because a signal may arrive just before it.
  static constexpr std::chrono::milliseconds kSlice{20};

 private:
  const std::chrono::milliseconds m_grace;
  /// After an interruption: the time since which no reader has read; 0 if readers read.
  std::atomic<std::chrono::steady_clock::rep> m_unreadSince{0};
};

/// Long enough for a slow reader on a busy machine.
inline ReaderTimeout g_resultTimeout{std::chrono::milliseconds(500)};

/// Result of a write.
struct WriteOutcome {
  int error =
      0;  ///< 0, or why the text is not completely written; EINTR: gave up after an interruption
  bool isInterrupted = false;  ///< interrupted before the last piece was written
};

/// Writes to a pipe, terminal or socket, and waits for its reader as long as g_resultTimeout
/// allows.
WriteOutcome WriteWithTimeout(int file, std::string_view text);

/// Likewise to standard output.
WriteOutcome WriteToStandardOutput(std::string_view text);

/// Writes to standard error and ignores errors. After an interruption, waits for the reader for 50
/// ms in all: however slowly messages are read, the tool ends at once. One thread at a time.
void WriteToStandardError(std::string_view text);
