#pragma once

#include <algorithm>
#include <string_view>

// Options that users expect to take a password. The tool has none of them, because other users can
// read command lines.

/// True for the name of such an option, such as --password.
inline bool IsPasswordOption(std::string_view name) {
  constexpr std::string_view kNames[] = {"--password", "--passwd", "--pass", "--pwd", "-p"};
  return std::ranges::count(kNames, name) > 0;
}

/// True if the value of the option with this name must not stay in the process list. Includes
/// misspelt names.
inline bool MayTakeSecret(std::string_view name) {
  constexpr std::string_view kBeginnings[] = {"--user", "--pas", "--pw", "--token", "--secret"};
  if (name == "-p") return true;
  return !name.ends_with("-file") &&
         std::ranges::any_of(kBeginnings, [&](auto begin) { return name.starts_with(begin); });
}
