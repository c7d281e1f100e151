#pragma once

#include <span>
#include <string>
#include <vector>

struct Arguments;

/// An option of a command. What it gives goes to one of the two members, the other one is null.
struct CommandOption {
  const char* name;
  const char* help;
  bool mayRepeat = false;
  std::vector<std::string> Arguments::*names = nullptr;
  int Arguments::*count = nullptr;  ///< 1 to 64
};

/// How a command is called, and what its help says.
struct CommandForm {
  const char* name;
  const char* help;
  std::span<const CommandOption> options;
};
