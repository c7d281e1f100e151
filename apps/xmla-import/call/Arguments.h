#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/LegendEntry.h"
#include "call/CommandForm.h"
#include "call/OutputFormat.h"
#include "call/UsageError.h"

/// The parsed command line. Texts are unchanged; an empty text means that the option is absent.
struct Arguments {
  std::string command;  ///< empty: no command
  std::string url, server, sample;
  std::string user, passwordFile, tokenFile, auth;
  std::string cert, key, keyPasswordFile, caFile;
  std::optional<std::string> proxy;  ///< empty: no proxy
  std::optional<int> connectTimeout, timeout, retry;
  std::string target, log, output;
  std::string format;      ///< after parsing: a format that the command supports
  bool hasFormat = false;  ///< --format was given
  std::string color;       ///< auto, always, never, or empty
  std::string warnings;    ///< all, summary, none, or empty
  bool quiet = false;
  bool verbose = false;
  bool sort = false;
  std::vector<std::string> sources, catalogs, cubes;
  int jobs = 1;
  std::vector<std::string> files;  ///< words without an option
  std::string failOn;              ///< any, breaking, or empty
  /// Set by --help and help: the text to print.
  std::string information;
  bool wantsVersion = false;
};

/// Parses a command line. Throws UsageError. Then `arguments` contains at least the command, the
/// format and the output file, if they were given, so that the error is reported in the requested
/// format. `legend` is for the help.
void ParseArguments(int argc, const char* const* argv, const std::vector<CommandForm>& commands,
                    OutputFormats formats, Arguments& arguments,
                    std::span<const LegendEntry> legend = {});
