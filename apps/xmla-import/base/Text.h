#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/String.h"

/// Converts wide text to UTF-8.
std::string Utf8(const String& text);
/// Converts UTF-8 to wide text. Ill-formed sequences become U+FFFD.
String Wide(std::string_view bytes);
/// Splits a text into lines and drops empty ones.
std::vector<std::string> Lines(const String& text);
/// Replaces each control character by a space.
std::string OneLine(std::string_view text);
/// Removes credentials from URLs in the text: in each word, everything between "://" and the last
/// "@".
std::string WithoutCredentials(std::string_view text);
/// The rendered messages of an error.
std::vector<std::string> Lines(const ErrorMessage& error);
/// Truncates a long text and appends the number of missing characters. A server can send names of
/// any length.
String Shortened(const String& text);
/// Such as "1 cube" or "2 cubes".
std::string Counted(std::size_t count, std::string_view one, std::string_view many);
/// The items in double quotes, separated by commas.
std::string Listed(const std::vector<std::string>& items);
