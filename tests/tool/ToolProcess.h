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
/// Keeps the order of keys, and compares it.
using Json = nlohmann::ordered_json;

/// What a standard stream of the tool is.
enum class Stream {
  kPipe,        ///< captured
  kClosed,      ///< not open at all
  kFull,        ///< a device without room
  kReaderGone,  ///< a pipe whose reader has gone
  kUnread,      ///< a short pipe whose reader is there and does not read
  kAsOut,       ///< standard error: wherever standard output goes
  kTerminal,    ///< a terminal of its own, captured
};

struct Options {
  std::map<std::string, std::string> environment;
  std::string input;  ///< standard input, a pipe unless `inputIsTerminal` is set
  Stream out = Stream::kPipe;
  Stream err = Stream::kPipe;
  /// The process gets a terminal, which is where `typed` is typed once a prompt has been shown.
  bool terminal = false;
  std::string typed;
  bool inputIsTerminal = false;  ///< that terminal is standard input, too
  /// Called in the child just before the tool is executed.
  std::function<void()> prepare;
};

struct Outcome {
  int status = -1;  ///< -1 when a signal ended it
  int signal = 0;
  bool dumpedCore = false;
  double cpuSeconds = 0;
  std::string out;
  std::string err;
  std::string terminal;  ///< what the terminal showed
  bool echoed = false;   ///< the terminal showed what was typed
  bool echoes = false;   ///< the terminal shows what is typed, now that the process has ended
  std::chrono::steady_clock::time_point typedAt;  ///< when `typed` was typed

  Json Document() const { return Json::parse(out); }
  std::vector<std::string> ErrorLines() const;
};

/// Runs the built tool to its end in a session of its own, with none of the tool's environment
/// variables but those given, and none that name proxies or certificates. A run that takes longer
/// than half a minute is killed.
Outcome RunTool(const Arguments& arguments, const Options& options = {});

/// The same, with something done meanwhile, on a thread of its own, to the running process.
Outcome RunToolWhile(const Arguments& arguments, const std::function<void(pid_t)>& meanwhile,
                     const Options& options = {});

/// Where the tool is.
std::string ToolPath();

}  // namespace tool
