#pragma once

#include <string>
#include <string_view>

/// How a terminal shows a part of a text.
enum class Style { kHeading, kSection, kGood, kCaution, kBad, kFaint };

/// The control sequence that begins a style, and the one that ends every style.
std::string_view BeginOf(Style style);
inline constexpr std::string_view kEndOfStyle = "\x1b[0m";

/// True if a text has colours. `when` is the value of --color: always, never, or auto (also empty).
/// With auto, colours need a terminal that is not dumb, and no NO_COLOR in the environment.
bool HasColors(std::string_view when, bool isTerminal);

/// Columns of a text on a terminal, independent of the locale. Characters that are escaped there
/// count as their escape.
std::size_t DisplayWidth(std::wstring_view text);
