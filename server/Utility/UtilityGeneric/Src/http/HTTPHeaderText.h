#pragma once

#include <algorithm>
#include <string_view>

/// Small rules of HTTP header text. Only ASCII letters have two cases.
namespace HTTPHeaderText {

inline char Lower(char character) {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                              : character;
}

inline bool IsSame(std::string_view text, std::string_view lowerCase) {
  return std::equal(text.begin(), text.end(), lowerCase.begin(), lowerCase.end(),
                    [](char a, char b) { return Lower(a) == b; });
}

inline bool IsControl(char character) {
  return (static_cast<unsigned char>(character) < 0x20 && character != '\t') || character == 0x7F;
}

inline std::string_view Trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

}  // namespace HTTPHeaderText
