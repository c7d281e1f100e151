#pragma once

#include <stdexcept>

/// The call is wrong; the text says what, and what would be right.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};
