#pragma once

#include <cstddef>
#include <vector>

#include "Utility/Generic/String.h"

/// The host's message catalogue.
namespace MessageCatalogue {

/// Longer arguments are truncated, and the text says how many characters are missing. A server can
/// send very long names, and there may be a message for each row.
inline constexpr std::size_t kMaxArgumentCharacters = 512;

/// "[NUMBER] text" on one line; see SUStrUtil::LoadMsgStringOnly.
String Render(int number, const std::vector<String>& arguments);

/// Replaces every line break, tab and null character by a space.
String OneLine(const String& text);

/// An argument as shown in a message: on one line, and truncated to kMaxArgumentCharacters.
String Truncated(const String& argument);

}  // namespace MessageCatalogue
