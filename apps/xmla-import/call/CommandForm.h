#pragma once

#include <span>
#include <string>
#include <variant>
#include <vector>

struct Arguments;

/// An option of a command, or of every command.
struct CommandOption {
  const char* name;
  /// For the help. {formats} and {targets} stand for the lists of formats and target kinds.
  const char* help;
  /// Where its value is stored: a flag, a text, a number, or a list of texts.
  std::variant<bool Arguments::*, std::string Arguments::*, int Arguments::*,
               std::vector<std::string> Arguments::*>
      value;
  const char* placeholder = "NAME";  ///< of the value in the help; a flag has none
  int max = 0;                       ///< of a number; the minimum is 1
  bool mayRepeat = false;            ///< only a list may be repeated
  const char* shortName = "";        ///< such as -o
};

/// Name, help text and options of a command.
struct CommandForm {
  const char* name;
  const char* help;
  std::span<const CommandOption> options;
};
