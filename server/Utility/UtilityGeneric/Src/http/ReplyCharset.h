#pragma once

#include <cstdint>
#include <string_view>

#include "Utility/Generic/String.h"

enum class CharsetResult {
  kReady,
  kUnknownCharset,
  kTooLong,  ///< exceeds the limit as well-formed UTF-8
};

/// Converts the body of a reply to UTF-8. The first of these determines its charset: the byte-order
/// mark, the pattern of its first bytes (UTF-16 and UTF-32), the Content-Type, the XML declaration.
/// The default is UTF-8. A UTF-8 body is not changed, even if it contains ill-formed bytes. In
/// other charsets, a byte-order mark is removed, and invalid bytes become U+FFFD.
///
/// Accepts UTF-8, UTF-16, UTF-32, and the charsets that web browsers support, except those with
/// escape sequences. For other charsets, sets `unknownCharset` to the name.
///
/// The limit applies to the text with U+FFFD for ill-formed bytes, and no more memory than that is
/// used. The body changes only if the result is kReady. If the calling thread must stop, the result
/// has no meaning.
CharsetResult ConvertReplyToUTF8(NarrowString& body, std::string_view contentType,
                                 std::uint64_t maxBytes, String& unknownCharset);
