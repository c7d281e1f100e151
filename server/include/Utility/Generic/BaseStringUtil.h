#pragma once

#include <cstdint>

#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// Text services. All are pure functions of their arguments, independent of the locale and safe to
/// call from any thread; unless said otherwise they throw nothing but std::bad_alloc. What only
/// reads a text takes a view of it, so that a literal costs no allocation.
namespace BaseStringUtil {

/// The code page number of UTF-8, the only one that the conversions know.
inline constexpr unsigned int kCodePageUTF8 = 65001;

/// Whole-text comparison after simple (one to one) Unicode case folding of each character:
/// negative, zero or positive.
XMLAHOST_API int CaseInsensitiveCompare(String::View a, String::View b);
/// True when both texts are equal ignoring case (simple case folding).
XMLAHOST_API bool IsCaseInsensitiveMatch(String::View a, String::View b);
/// Position of the first occurrence of `pattern` at or after `from`, ignoring case, or
/// String::npos. An empty pattern is found at `from`.
XMLAHOST_API std::size_t CaseInsensitiveFindPattern(String::View text, String::View pattern,
                                                    std::size_t from = 0);
/// Position of the first exact occurrence of `pattern` at or after `from`, or String::npos.
XMLAHOST_API std::size_t ForwardPatternMatch(String::View text, String::View pattern,
                                             std::size_t from);
/// Replaces every occurrence of `pattern`, from left to right and not overlapping; replacements are
/// not searched again. An empty pattern changes nothing.
XMLAHOST_API void ReplacePatternInString(String& text, String::View pattern,
                                         String::View replacement);

/// `&`, `<`, `>`, `"` and `'` as the five named references of XML, CR as `&#13;`; a character that
/// XML 1.0 cannot hold at all becomes U+FFFD.
XMLAHOST_API String EscapeXMLChars(const String& text);

/// Numbers from text: leading blanks (blank, tab, CR, LF), an optional sign, then the longest run
/// of the digits 0 to 9; what follows is ignored. No digits give 0; out of range gives the nearest
/// value of the type.
XMLAHOST_API std::int16_t Int16From(const String& text) noexcept;
XMLAHOST_API std::int32_t IntFrom(const String& text) noexcept;
XMLAHOST_API std::uint32_t UIntFrom(const String& text) noexcept;
/// The number in decimal digits.
XMLAHOST_API String StringFrom(std::uint64_t number);

/// The one pair of conversions between wide text and UTF-8. Ill-formed input becomes U+FFFD, as
/// described below.
XMLAHOST_API NarrowString ToUTF8(String::View text);
XMLAHOST_API String FromUTF8(NarrowString::View bytes);
/// Wide text to bytes in `codePage` (UTF-8: 65001; another is a logic error). A value that is no
/// Unicode character (a surrogate, a value above U+10FFFF) becomes U+FFFD.
XMLAHOST_API NarrowString StringToStdString(const String& text, unsigned int codePage);
/// Bytes in `codePage` to wide text. Each maximal subpart of an ill-formed UTF-8 sequence becomes
/// one U+FFFD.
XMLAHOST_API String StdStringToString(const NarrowString& bytes, unsigned int codePage);
/// Makes UTF-8 well-formed, as StdStringToString and back would. Well-formed bytes stay as they
/// are, without a copy.
XMLAHOST_API void ReplaceIllFormedUTF8(NarrowString& bytes);

}  // namespace BaseStringUtil
