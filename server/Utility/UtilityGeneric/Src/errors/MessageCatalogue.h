#pragma once

#include <cstddef>
#include <vector>

#include "Utility/Generic/String.h"

/// The host's messages by number.
namespace MessageCatalogue {

/// A server chooses names as long as it likes, and a message may be repeated for each of its rows:
/// a text shows this many characters of an argument and says how many are missing.
inline constexpr std::size_t kMaxArgumentCharacters = 512;

/// "[NUMBER] text" on one line; see SUStrUtil::LoadMsgStringOnly.
String Render(int number, const std::vector<String>& arguments);

/// The text with every line break, tab and null character shown as a blank.
String OneLine(const String& text);

/// An argument as a message shows it: on one line and not longer than kMaxArgumentCharacters.
String Truncated(const String& argument);

}  // namespace MessageCatalogue
