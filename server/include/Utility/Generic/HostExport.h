#pragma once

/// \file
/// The check for C++20, and the mark of exported symbols.

// Headers that need C++20 include this one before they need it, so this is the first message.
#if __cplusplus < 202002L
#  error "These headers need C++20: use -std=c++20, or in CMake set(CMAKE_CXX_STANDARD 20)"
#endif

/// Exports a function, class or variable from its shared library. The libraries are compiled so
/// that all other symbols are hidden.
#define XMLAHOST_API __attribute__((visibility("default")))
