#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace tool {

using Arguments = std::vector<std::string>;
/// Keeps and compares the order of keys.
using Json = nlohmann::ordered_json;

/// Destination of a standard stream of the tool.
enum class Stream {
  kPipe,        ///< captured
  kClosed,      ///< closed
  kFull,        ///< /dev/full
  kReaderGone,  ///< a pipe whose reader has closed it
  kUnread,      ///< a pipe with a small buffer whose reader does not read
  kAsOut,       ///< standard error: same as standard output
  kTerminal,    ///< its own terminal, captured
};

struct Options {
  std::map<std::string, std::string> environment;
  std::string input;  ///< standard input: a pipe unless `inputIsTerminal` is set
  Stream out = Stream::kPipe;
  Stream err = Stream::kPipe;
  /// Gives the process a controlling terminal. `typed` is typed there when a prompt appears.
  bool terminal = false;
  std::string typed;
  bool inputIsTerminal = false;         ///< standard input is that terminal, too
  std::chrono::seconds longestRun{30};  ///< a longer run is killed
  /// Called in the child before exec.
  std::function<void()> prepare;
};

struct Outcome {
  int status = -1;  ///< -1 if a signal ended it
  int signal = 0;
  bool dumpedCore = false;
  double cpuSeconds = 0;
  std::string out;
  std::string err;
  std::string terminal;                           ///< what the terminal showed
  bool echoed = false;                            ///< the terminal echoed `typed`
  bool echoes = false;                            ///< the echo is on after the process has ended
  std::chrono::steady_clock::time_point typedAt;  ///< when `typed` was typed

  Json Document() const { return Json::parse(out); }
  std::vector<std::string> ErrorLines() const;
};

/// Runs the tool in its own session and waits for it. The environment has none of the tool's
/// variables except those given, and no proxies or certificates.
Outcome RunTool(const Arguments& arguments, const Options& options = {});

/// Likewise, and calls `meanwhile` on another thread while the process runs.
Outcome RunToolWhile(const Arguments& arguments, const std::function<void(pid_t)>& meanwhile,
                     const Options& options = {});

/// Options of a call with a server file, which this writes.
Options WithServers(const std::string& file, const std::string& text);

/// Path of the tool.
std::string ToolPath();

}  // namespace tool
