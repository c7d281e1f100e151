#pragma once

#include <string>
#include <string_view>

/// True for control characters and for characters that change the text direction.
bool NeedsEscapeOnTerminal(wchar_t c);

/// Escapes control and bidirectional characters in untrusted UTF-8 as \u and four hexadecimal
/// digits. A name can then neither move the cursor nor look like another name. Other characters are
/// unchanged.
std::string EscapedForTerminal(std::string_view text);
