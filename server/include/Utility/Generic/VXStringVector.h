#pragma once

#include <vector>

#include "Utility/Generic/String.h"

/// The host's list of wide text: a standard vector that may be deleted through its own type.
class VXStringVector : public std::vector<String> {
 public:
  using std::vector<String>::vector;
  VXStringVector() = default;
  VXStringVector(const VXStringVector&) = default;
  VXStringVector& operator=(const VXStringVector&) = default;
  virtual ~VXStringVector() = default;
};
