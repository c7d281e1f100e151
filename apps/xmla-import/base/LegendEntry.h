#pragma once

#include <string_view>

/// A word of the text format and its meaning.
struct LegendEntry {
  std::string_view word;
  std::string_view meaning;
};
