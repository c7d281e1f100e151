#pragma once

#include <string>
#include <string_view>

namespace sample {

/// The text as a gzip stream.
std::string Gzip(std::string_view text);

/// A valid gzip stream that unfolds to the text with so many mebibytes of blanks inserted at the
/// given place. Its size is about a thousandth of what it unfolds to.
std::string GzipBomb(std::string_view text, std::size_t place, unsigned long mebibytes);

}  // namespace sample
