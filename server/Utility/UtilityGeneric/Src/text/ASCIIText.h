#pragma once

#include <algorithm>
#include <string_view>

/// Functions for texts of protocols and markup. Only ASCII letters have an upper and a lower case.
namespace ASCIIText {

constexpr char Lower(char character) {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                              : character;
}

/// `lowerCase` must not contain capitals. The same applies to all parameters with this name.
inline bool EqualsIgnoringCase(std::string_view text, std::string_view lowerCase) {
  return std::equal(text.begin(), text.end(), lowerCase.begin(), lowerCase.end(),
                    [](char a, char b) { return Lower(a) == b; });
}

inline bool StartsWithIgnoringCase(std::string_view text, std::string_view lowerCase) {
  return text.size() >= lowerCase.size() &&
         EqualsIgnoringCase(text.substr(0, lowerCase.size()), lowerCase);
}

/// Position of the first occurrence, or npos.
inline std::size_t FindIgnoringCase(std::string_view text, std::string_view lowerCase) {
  const auto found = std::search(text.begin(), text.end(), lowerCase.begin(), lowerCase.end(),
                                 [](char a, char b) { return Lower(a) == b; });
  return found == text.end() ? std::string_view::npos
                             : static_cast<std::size_t>(found - text.begin());
}

/// True for control characters other than tab.
constexpr bool IsControl(char character) {
  return (static_cast<unsigned char>(character) < 0x20 && character != '\t') || character == 0x7F;
}

/// True for space, tab, CR and LF.
template <class Char>
constexpr bool IsSpace(Char character) {
  return character == Char{' '} || character == Char{'\t'} || character == Char{'\r'} ||
         character == Char{'\n'};
}

/// The text without leading and trailing white space.
template <class Char>
constexpr std::basic_string_view<Char> Trimmed(std::basic_string_view<Char> text) {
  while (!text.empty() && IsSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsSpace(text.back())) text.remove_suffix(1);
  return text;
}

}  // namespace ASCIIText
