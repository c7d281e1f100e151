#pragma once

#include <cstdint>

// Read from MORVEN_BI_XMLA_HTTP_TIMEOUT once, when the library is loaded. A value that is not a
// whole number leaves the default time-out. The names and the mutable globals are the host's.
extern std::uint32_t g_kTimeoutDefault;  // time-out of every HTTP client in seconds; 0: none
extern bool g_bOverrideTimeout;          // true: the environment has the variable
