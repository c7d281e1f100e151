#pragma once

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

/// Errors and warnings of the library and of the tool, one line each.
struct Messages {
  std::vector<std::string> errors;
  std::vector<std::string> warnings;
};

/// Moves the lines of `more` to the end of `messages`.
inline void AddMessages(Messages more, Messages& messages) {
  std::ranges::move(more.errors, std::back_inserter(messages.errors));
  std::ranges::move(more.warnings, std::back_inserter(messages.warnings));
}
