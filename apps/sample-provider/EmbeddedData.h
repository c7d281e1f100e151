#pragma once

#include <string_view>

#include "SampleProvider.h"

namespace sample {

/// The data file of this kind, embedded at build time.
std::string_view EmbeddedData(Kind kind);

}  // namespace sample
