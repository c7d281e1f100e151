#pragma once

#include <string>
#include <vector>

#include "call/CommandForm.h"
#include "call/UsageError.h"

/// The command line as it was written, nothing interpreted yet. Texts are the bytes as given; an
/// empty one means that the option was not given.
struct Arguments {
  std::string command;  ///< its name; empty when none was given
  std::string url, sample, user, passwordFile, target, log, output;
  bool json = false;
  bool quiet = false;
  bool verbose = false;
  std::vector<std::string> sources, catalogs, cubes;
  int jobs = 1;
  /// Set by --help and --version: the text to print instead of doing anything.
  std::string information;
};

/// Reads a command line with one of the commands into `arguments`. Throws UsageError; `arguments`
/// then holds at least the command, the format and the output file as far as the line names them,
/// so that the error can be reported in the form that was asked for.
void ParseArguments(int argc, const char* const* argv, const std::vector<CommandForm>& commands,
                    Arguments& arguments);
