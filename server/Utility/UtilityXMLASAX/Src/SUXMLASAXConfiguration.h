#pragma once

#include <cstdint>

// Read from MORVEN_BI_XMLA_HTTP_TIMEOUT once, when the library is loaded.
extern std::uint32_t g_kTimeoutDefault;  // seconds; handed to every HTTP client of the library
extern bool g_bOverrideTimeout;          // the environment gave it
