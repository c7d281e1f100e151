#pragma once

#include <stdexcept>

/// A usage error. The text says what is wrong and what to do.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};
