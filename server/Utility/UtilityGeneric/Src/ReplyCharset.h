#pragma once

#include <string_view>

#include "Utility/Generic/String.h"

/// Makes a reply's body UTF-8. Its charset is told by its byte-order mark, else by how its first
/// bytes lie (UTF-16 and UTF-32), else by the Content-Type, else by its XML declaration, else it is
/// UTF-8. A UTF-8 body is left as it is; others lose their byte-order mark, and bytes that mean
/// nothing become U+FFFD. False for a charset that the system does not know: `unknownCharset` gets
/// its name.
bool MakeReplyUTF8(NarrowString& body, std::string_view contentType, String& unknownCharset);
