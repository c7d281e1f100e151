#pragma once

#include <string>
#include <string_view>

namespace sample {

// A valid gzip stream of the text with `mebibytes` MiB of spaces inserted at `place`. The stream is
// about a thousandth of the decompressed size.
std::string GzipBomb(std::string_view text, size_t place, unsigned long mebibytes);

}  // namespace sample
