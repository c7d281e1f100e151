#pragma once

#include <span>
#include <string>
#include <variant>
#include <vector>

struct Arguments;

/// An option of a command.
struct CommandOption {
  const char* name;
  const char* help;
  /// Where its value is stored: a flag, a text, a number, or a list of texts.
  std::variant<bool Arguments::*, std::string Arguments::*, int Arguments::*,
               std::vector<std::string> Arguments::*>
      value;
  const char* placeholder = "NAME";  ///< of the value in the help; a flag has none
  int max = 0;                       ///< of a number; the minimum is 1
  bool mayRepeat = false;            ///< only a list may be repeated
};

/// Name, help text and options of a command.
struct CommandForm {
  const char* name;
  const char* help;
  std::span<const CommandOption> options;
};
