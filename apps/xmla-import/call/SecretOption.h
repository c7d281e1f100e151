#pragma once

#include <algorithm>
#include <string_view>

// Options that users expect to take a password. The tool has none of them, because other users can
// read command lines.

/// True for the name of such an option, such as --password or --passwd.
inline bool IsPasswordOption(std::string_view name) {
  const bool isLong = name.starts_with("--pas") || name.starts_with("--pw");
  return name == "-p" || (isLong && name.find('-', 2) == name.npos);
}

/// True if the value of the option with this name must not stay in the process list. Includes
/// misspelt names.
inline bool MayTakeSecret(std::string_view name) {
  constexpr std::string_view kBeginnings[] = {"--user", "--pas", "--pw", "--token", "--secret"};
  if (name == "-p") return true;
  return !name.ends_with("-file") &&
         std::ranges::any_of(kBeginnings, [&](auto begin) { return name.starts_with(begin); });
}
