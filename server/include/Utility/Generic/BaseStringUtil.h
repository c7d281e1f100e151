#pragma once

/// \file
/// Comparing, searching, escaping and converting texts.

#include <cstdint>

#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// Text functions. They depend only on their arguments and not on the locale. Call them from any
/// thread. They throw only std::bad_alloc, unless stated otherwise. Parameters that are only read
/// are views, so that a literal needs no allocation.
namespace BaseStringUtil {

/// Code page number of UTF-8. The conversions support no other.
inline constexpr unsigned int kCodePageUTF8 = 65001;

/// Compares texts after simple (one-to-one) Unicode case folding. Returns a negative number, zero
/// or a positive number.
XMLAHOST_API int CaseInsensitiveCompare(String::View a, String::View b);
/// True if the texts are equal after simple case folding.
XMLAHOST_API bool IsCaseInsensitiveMatch(String::View a, String::View b);
/// Position of the first occurrence of `pattern` at or after `from`, ignoring case, or
/// String::npos. An empty pattern is found at `from`.
XMLAHOST_API std::size_t CaseInsensitiveFindPattern(String::View text, String::View pattern,
                                                    std::size_t from = 0);
/// Position of the first exact occurrence of `pattern` at or after `from`, or String::npos.
XMLAHOST_API std::size_t ForwardPatternMatch(String::View text, String::View pattern,
                                             std::size_t from);
/// Replaces every occurrence of `pattern`, from left to right. Occurrences do not overlap, and
/// replacements are not searched again. An empty pattern changes nothing.
XMLAHOST_API void ReplacePatternInString(String& text, String::View pattern,
                                         String::View replacement);

/// Escapes `&`, `<`, `>`, `"` and `'` as named XML references, and CR as `&#13;`. A character that
/// XML 1.0 does not allow becomes U+FFFD.
XMLAHOST_API String EscapeXMLChars(const String& text);

/// Converts text to a number: skips leading white space (space, tab, CR, LF), accepts one sign,
/// reads the digits 0 to 9, and ignores the rest. No digits give 0. A number out of range becomes
/// the nearest value of the type.
/// @{
XMLAHOST_API std::int16_t Int16From(const String& text) noexcept;
XMLAHOST_API std::int32_t IntFrom(const String& text) noexcept;
XMLAHOST_API std::uint32_t UIntFrom(const String& text) noexcept;
/// @}
/// Converts a number to decimal digits.
XMLAHOST_API String StringFrom(std::uint64_t number);

/// Conversions between wide text and UTF-8. Ill-formed input becomes U+FFFD: each maximal subpart
/// of an ill-formed UTF-8 sequence, and each wide value that is a surrogate or above U+10FFFF.
/// @{
XMLAHOST_API NarrowString ToUTF8(String::View text);
XMLAHOST_API String FromUTF8(NarrowString::View bytes);
/// @}
/// The same conversions, as the host's interface defines them. Any `codePage` other than
/// kCodePageUTF8 is a logic error.
/// @{
XMLAHOST_API NarrowString StringToStdString(const String& text, unsigned int codePage);
XMLAHOST_API String StdStringToString(const NarrowString& bytes, unsigned int codePage);
/// @}
/// Length of the longest prefix of at most `most` bytes that does not end inside a character.
XMLAHOST_API std::size_t UTF8PrefixLength(NarrowString::View bytes, std::size_t most) noexcept;
/// Replaces ill-formed UTF-8 by U+FFFD, as FromUTF8 followed by ToUTF8 does. Does not copy bytes
/// that are well-formed.
XMLAHOST_API void ReplaceIllFormedUTF8(NarrowString& bytes);

}  // namespace BaseStringUtil
