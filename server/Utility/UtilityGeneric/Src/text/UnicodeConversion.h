#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>

#include "Utility/Generic/String.h"

/// UTF-8 and wide text, without allocation: first the size, then the characters. Ill-formed input
/// becomes U+FFFD as BaseStringUtil says.
namespace UnicodeConversion {

/// How many wide characters the bytes make.
std::size_t WideLength(std::string_view bytes) noexcept;
/// Writes them; returns the end of what was written.
wchar_t* Decode(std::string_view bytes, wchar_t* place) noexcept;

bool IsWellFormed(std::string_view bytes) noexcept;
/// Leaves the bytes as they are when they are well-formed, else makes them the text that they mean.
/// Asks again and again whether it is to stop; false, and the bytes as they were, when it is.
bool MakeWellFormed(NarrowString& bytes, const std::function<bool()>& isToStop);
/// How many bytes MakeWellFormed would make of them. Stops counting above `most`, and when it is to
/// stop.
std::uint64_t WellFormedLength(std::string_view bytes, std::uint64_t most,
                               const std::function<bool()>& isToStop);

/// How many bytes the wide characters make.
std::size_t UTF8Length(std::wstring_view text) noexcept;
/// Writes them; returns the end of what was written.
char* Encode(std::wstring_view text, char* place) noexcept;
/// The greatest number of bytes that one wide character makes.
inline constexpr std::size_t kMaxBytesPerCharacter = 4;

/// True for the characters that XML 1.0 can hold.
constexpr bool IsXMLCharacter(wchar_t character) noexcept {
  const auto code = static_cast<char32_t>(character);
  return code >= 0x20 ? code < 0xD800 || (code >= 0xE000 && code <= 0xFFFD) ||
                            (code >= 0x10000 && code <= 0x10FFFF)
                      : code == 0x9 || code == 0xA || code == 0xD;
}

}  // namespace UnicodeConversion
