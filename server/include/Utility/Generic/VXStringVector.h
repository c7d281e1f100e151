#pragma once

/// \file
/// The list of texts.

#include <vector>

#include "Utility/Generic/String.h"

/// The host's list of wide texts: a vector with a virtual destructor.
class VXStringVector : public std::vector<String> {
 public:
  using std::vector<String>::vector;
  VXStringVector() = default;
  VXStringVector(const VXStringVector&) = default;
  VXStringVector& operator=(const VXStringVector&) = default;
  virtual ~VXStringVector() = default;
};
