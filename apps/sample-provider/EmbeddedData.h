#pragma once

#include <string_view>

#include "SampleProvider.h"

namespace sample {

// The kind's data file as it was when the library was built.
std::string_view EmbeddedData(Kind kind);

}  // namespace sample
