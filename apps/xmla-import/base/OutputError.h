#pragma once

#include <stdexcept>

/// The result could not be written. The text says where and why.
class OutputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Because of an interruption, the result is missing or incomplete. The text says what the output
/// contains.
class OutputInterrupted : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};
