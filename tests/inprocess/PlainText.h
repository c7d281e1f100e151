#pragma once

#include <string>
#include <string_view>

/// Text conversions as the standards' texts put them, one character at a time, without regard to
/// speed: what the product's conversions are compared with.
namespace inprocess {

/// Each maximal subpart of an ill-formed sequence becomes one U+FFFD (Unicode Standard, table 3-7).
std::wstring PlainDecode(std::string_view bytes);
/// Surrogates and values above U+10FFFF become U+FFFD.
std::string PlainEncode(std::wstring_view text);
/// True for the characters that XML 1.0 can hold (production 2).
bool IsPlainXmlCharacter(wchar_t character);

}  // namespace inprocess
