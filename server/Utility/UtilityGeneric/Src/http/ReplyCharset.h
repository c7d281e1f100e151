#pragma once

#include <cstdint>
#include <string_view>

#include "Utility/Generic/String.h"

enum class CharsetResult {
  kReady,
  kUnknownCharset,
  kTooLong,  ///< longer than the limit once it is well-formed UTF-8
};

/// Makes a reply's body UTF-8. Its charset is told by its byte-order mark, else by how its first
/// bytes lie (UTF-16 and UTF-32), else by the Content-Type, else by its XML declaration, else it is
/// UTF-8. A UTF-8 body is left as it is, ill-formed bytes included; others lose their byte-order
/// mark, and bytes that mean nothing become U+FFFD.
///
/// Accepted are UTF-8, UTF-16 and UTF-32, and the charsets that web browsers know, but for those
/// with escape sequences: not all that the system could convert. For any other one
/// `unknownCharset` gets its name.
///
/// The limit holds for the text as its reader will see it, with U+FFFD for ill-formed bytes. No
/// more than that is ever made of a body. The body stays as it was unless the result is kReady;
/// so it does, whatever the result, when the calling thread is asked to stop.
CharsetResult ConvertReplyToUTF8(NarrowString& body, std::string_view contentType,
                                 std::uint64_t maxBytes, String& unknownCharset);
