#pragma once

#include <cstdio>
#include <string>

/// Prints one row of the table. `met`: the result meets the target.
inline void Print(const char* what, const std::string& baseline, const std::string& cost,
                  const std::string& result, const std::string& target, bool met) {
  std::printf("%-44s %14s %14s %10s  %-14s %s\n", what, baseline.c_str(), cost.c_str(),
              result.c_str(), target.c_str(), met ? "met" : "NOT MET");
  std::fflush(stdout);
}

template <class... Arguments>
std::string Format(const char* format, Arguments... arguments) {
  char text[64];
  std::snprintf(text, sizeof text, format, arguments...);
  return text;
}
