#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// A usage error. The text says what is wrong and what to do.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// "; see xmla-import COMMAND --help". The command may be empty.
std::string SeeHelp(std::string_view command);
/// The error for an option or variable whose value is none of `values`: suggests the nearest one
/// and lists all, as in `all`.
std::string UnknownValue(std::string_view option, std::string_view value,
                         const std::vector<std::string>& values, std::string_view all);
/// The texts, separated by commas.
std::string Enumerated(const std::vector<std::string>& texts);
