#pragma once

#include <string>
#include <vector>

/// Errors and warnings of the library and of the tool, one line each.
struct Messages {
  std::vector<std::string> errors;
  std::vector<std::string> warnings;
};
