#pragma once

#include <string>
#include <string_view>

namespace sample {

/// The text as a gzip stream.
std::string Gzip(std::string_view text);

/// A valid gzip stream of the text with `mebibytes` MiB of spaces inserted at `place`. The stream
/// is about a thousandth of the decompressed size.
std::string GzipBomb(std::string_view text, std::size_t place, unsigned long mebibytes);

}  // namespace sample
