#pragma once

#include <span>
#include <string>
#include <vector>

struct Arguments;

/// An option of a command. Its value is stored in one of the two members; the other one is null.
struct CommandOption {
  const char* name;
  const char* help;
  bool mayRepeat = false;
  std::vector<std::string> Arguments::*names = nullptr;
  int Arguments::*count = nullptr;  ///< 1 to 64
};

/// Name, help text and options of a command.
struct CommandForm {
  const char* name;
  const char* help;
  std::span<const CommandOption> options;
};
