#pragma once

#include <cstdint>

// Read from MORVEN_BI_XMLA_HTTP_TIMEOUT once, when the library is loaded. A value that is not a
// whole number counts as not set: an import without any time limit must be asked for (0).
extern std::uint32_t g_kTimeoutDefault;  // seconds; handed to every HTTP client of the library
extern bool g_bOverrideTimeout;          // the environment gave a readable one
