#pragma once

#include <string>
#include <vector>

/// The library's two texts as lines, and what the tool itself has to say.
struct Messages {
  std::vector<std::string> errors;
  std::vector<std::string> warnings;
};
