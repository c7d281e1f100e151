#pragma once

#include <string.h>

#include <string>

#include "Utility/Generic/String.h"

// No freed memory contains a secret. A string that grows leaves a copy behind, so callers reserve
// capacity before they read a secret.

/// Overwrites the whole capacity of the string.
inline void Erase(std::string& text) noexcept {
  explicit_bzero(text.data(), text.capacity());
  text.clear();
}

/// Overwrites the buffer, which all copies of the string share. String::Erase does not overwrite a
/// shared buffer; here the tool owns all copies.
template <class Char>
void Erase(BasicString<Char>& text) noexcept {
  // The buffer is on the heap, so the cast is valid.
  if (!text.empty()) explicit_bzero(const_cast<Char*>(text.data()), text.size() * sizeof(Char));
  text.clear();
}

/// Converts a UTF-8 secret to wide text and erases `bytes`.
String WideSecret(std::string&& bytes);
