#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

struct CommandLimits {
  std::size_t bytes = std::size_t{64} * 1024;  ///< of the output
  std::chrono::milliseconds time{120'000};     ///< people may have to enter something
  std::chrono::milliseconds timeAfterLine{5'000};
};

struct CommandOutcome {
  enum class Ending {
    kEnded,       ///< see `status`
    kNotStarted,  ///< see `error`
    kTooLong,     ///< it exceeded a time limit
    kTooMuch,     ///< it exceeded the limit of the output
    kStopped,     ///< `mustStop` returned true
  };
  Ending ending = Ending::kStopped;
  int error = 0;       ///< error number
  int status = 0;      ///< as from waitpid
  std::string output;  ///< may be a secret: the caller erases it
};

/// Runs a program without a shell and returns its output. Its name is looked up in PATH unless it
/// contains a slash. The program has the caller's terminal and standard error, so it can ask and
/// explain. Its standard input is the terminal, or else empty.
///
/// The program and its descendants end when a limit is exceeded, when `mustStop` returns true, and
/// when the calling process ends in any way while the program runs. Descendants that started a
/// session of their own are exempt, such as agents that keep keys, and those that a successful
/// program leaves behind. If the program is ended early, the settings of the
/// terminal are restored.
///
/// Throws std::system_error if there are no resources for another process.
CommandOutcome RunCommand(const std::vector<std::string>& words, const CommandLimits& limits,
                          const std::function<bool()>& mustStop);
