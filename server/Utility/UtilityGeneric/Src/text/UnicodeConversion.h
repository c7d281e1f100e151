#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>

#include "Utility/Generic/String.h"

/// Conversions between UTF-8 and wide text without allocation: first compute the size, then
/// convert. Ill-formed input becomes U+FFFD, see BaseStringUtil.
namespace UnicodeConversion {

/// Number of wide characters of the decoded bytes.
std::size_t WideLength(std::string_view bytes) noexcept;
/// Writes the wide characters. Returns the end of the output.
wchar_t* Decode(std::string_view bytes, wchar_t* place) noexcept;

bool IsWellFormed(std::string_view bytes) noexcept;
/// Replaces ill-formed sequences by U+FFFD. Calls `isToStop` regularly. If that returns true,
/// returns false without changing the bytes.
bool MakeWellFormed(NarrowString& bytes, const std::function<bool()>& isToStop);
/// Size of the bytes after MakeWellFormed. Stops counting above `most`, and when `isToStop` returns
/// true.
std::uint64_t WellFormedLength(std::string_view bytes, std::uint64_t most,
                               const std::function<bool()>& isToStop);

/// Number of bytes of the encoded text.
std::size_t UTF8Length(std::wstring_view text) noexcept;
/// Writes the bytes. Returns the end of the output.
char* Encode(std::wstring_view text, char* place) noexcept;
/// Maximum number of bytes of one encoded character.
inline constexpr std::size_t kMaxBytesPerCharacter = 4;

/// True for characters that XML 1.0 allows.
constexpr bool IsXMLCharacter(wchar_t character) noexcept {
  const auto code = static_cast<char32_t>(character);
  return code >= 0x20 ? code < 0xD800 || (code >= 0xE000 && code <= 0xFFFD) ||
                            (code >= 0x10000 && code <= 0x10FFFF)
                      : code == 0x9 || code == 0xA || code == 0xD;
}

}  // namespace UnicodeConversion
