#pragma once

#include <string>
#include <string_view>

/// Simple, slow reference implementations of the text conversions, as the standards define them.
namespace inprocess {

/// Replaces each maximal subpart of an ill-formed sequence by one U+FFFD (Unicode Standard, table
/// 3-7).
std::wstring PlainDecode(std::string_view bytes);
/// Replaces surrogates and values above U+10FFFF by U+FFFD.
std::string PlainEncode(std::wstring_view text);
/// True for characters allowed in XML 1.0 (production 2).
bool IsPlainXmlCharacter(wchar_t character);

}  // namespace inprocess
