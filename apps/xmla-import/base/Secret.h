#pragma once

#include <string.h>

#include <string>

#include "Utility/Generic/String.h"

// Secrets leave no copy behind in memory that is given back. A buffer that grows leaves one, so
// room is reserved before a secret is read.

/// Overwrites the text and all the room that it has.
inline void Erase(std::string& text) noexcept {
  explicit_bzero(text.data(), text.capacity());
  text.clear();
}

/// Overwrites the text, also in all copies, which share it.
template <class Char>
void Erase(BasicString<Char>& text) noexcept {
  // The buffer is on the heap, and its owner may change it.
  if (!text.empty()) explicit_bzero(const_cast<Char*>(text.data()), text.size() * sizeof(Char));
  text.clear();
}

/// A secret as wide text. `bytes` is erased.
String WideSecret(std::string&& bytes);
