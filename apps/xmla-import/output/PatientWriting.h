#pragma once

#include <chrono>
#include <string_view>

/// How long a reader who does not read is waited for: for ever, but half a second after an
/// interruption. All that the tool writes shares it, so that one reader who was given up leaves
/// none of it to the next; whoever reads brings it back. Safe to use from several threads.
class Patience {
 public:
  /// To be asked before each wait, which then takes no longer than a slice.
  static bool IsOver();
  static void Renew();

  /// A signal may come just before a wait begins, so no wait is longer.
  static constexpr std::chrono::milliseconds kSlice{50};
};

/// How writing ended.
struct Ending {
  int error = 0;               ///< 0, or why not all is written; EINTR when patience was over
  bool isInterrupted = false;  ///< there was an interruption before the last piece was written
};

/// Writes to a place that may make us wait: a pipe, a terminal, a socket.
Ending WritePatiently(int file, std::string_view text);

/// The same for a standard stream, whose descriptor is shared with other processes.
Ending WriteToStream(int number, std::string_view text);

/// Writes to standard error as long as somebody reads it. What cannot be written is dropped: there
/// is nobody to tell. For one thread at a time.
void WriteToStandardError(std::string_view text);
