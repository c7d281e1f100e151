#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/String.h"

/// Wide host text as UTF-8.
std::string Utf8(const String& text);
/// Bytes that ought to be UTF-8 as wide host text; ill-formed sequences become U+FFFD.
String Wide(std::string_view bytes);
/// The lines of a text, without empty ones.
std::vector<std::string> Lines(const String& text);
/// The same text with each control character replaced by a blank.
std::string OneLine(std::string_view text);
/// For containers of texts that are found by content.
struct TextHash {
  std::size_t operator()(const String& text) const noexcept {
    return std::hash<String::View>()(text.view());
  }
};
/// The same text with what stands between "://" and the last "@" of a word taken out: credentials
/// in a URL that was given in the wrong place.
std::string WithoutCredentials(std::string_view text);
/// The rendered messages of an error.
std::vector<std::string> Lines(const ErrorMessage& error);
/// The text itself, or its beginning and how much is missing: names come from elsewhere and may be
/// of any length.
String Shortened(const String& text);
/// The items in quotation marks, separated by commas.
std::string Listed(const std::vector<std::string>& items);
