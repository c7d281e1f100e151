#pragma once

#include <string>
#include <string_view>

/// True for a character that acts on a terminal instead of being seen.
bool IsActiveOnTerminal(wchar_t c);

/// UTF-8 text from elsewhere made harmless for a terminal: control characters and characters that
/// change the direction of writing are shown as \u followed by four hexadecimal digits, so that a
/// name can neither move the cursor nor disguise another. Everything else stays as it is.
std::string HarmlessOnTerminal(std::string_view text);
