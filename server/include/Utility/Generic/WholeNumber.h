#pragma once

/// \file
/// The check whether a text is a whole number.

#include <algorithm>

#include "Utility/Generic/String.h"

/// True if BaseStringUtil::UIntFrom reads the whole text as a number: digits with an optional plus
/// sign, and white space around them. For settings, because UIntFrom reads "abc" and "-1" as 0, and
/// "3x" as 3.
inline bool IsWholeNumber(String::View text) noexcept {
  constexpr String::View kWhiteSpace = L" \t\r\n";
  text.remove_prefix(std::min(text.find_first_not_of(kWhiteSpace), text.size()));
  text = text.substr(0, text.find_last_not_of(kWhiteSpace) + 1);
  if (text.starts_with(L'+')) text.remove_prefix(1);
  return !text.empty() && text.find_first_not_of(L"0123456789") == String::npos;
}
