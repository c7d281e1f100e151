#pragma once

// Headers that need C++20 include this one before they need it, so this is the first message.
#if __cplusplus < 202002L
#  error "These headers need C++20: use -std=c++20, or in CMake set(CMAKE_CXX_STANDARD 20)"
#endif

// Exports a symbol of a shared library. All other symbols are hidden.
#define XMLAHOST_API __attribute__((visibility("default")))
