#pragma once

#include <vector>

#include "Utility/Generic/String.h"

/// The host's messages by number.
namespace MessageCatalogue {

/// The message's pattern, in which {1} to {9} stand for arguments, or null for an unknown number.
const wchar_t* FindPattern(int number) noexcept;

/// "[NUMBER] text" on one line; see SUStrUtil::LoadMsgStringOnly.
String Render(int number, const std::vector<String>& arguments);

/// The text with every line break, tab and null character shown as a blank.
String OneLine(const String& text);

}  // namespace MessageCatalogue
