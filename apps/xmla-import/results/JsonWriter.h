#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <string_view>

#include "results/ResultText.h"

/// Writes one JSON document piece by piece, each member and each element on a line of its own, two
/// blanks of indentation for each level. The caller nests and orders as JSON wants it.
class JsonWriter {
 public:
  explicit JsonWriter(ResultText& text) : m_text(text) {}

  void BeginObject() { Begin('{'); }
  void EndObject() { End('}'); }
  void BeginList() { Begin('['); }
  void EndList() { End(']'); }
  /// The name of the next value of an object: plain ASCII without quotation marks.
  void Key(std::string_view name);

  void Value(String::View text);
  void Value(const String& text) { Value(text.view()); }
  /// UTF-8; ill-formed sequences become U+FFFD.
  void Value(std::string_view bytes);
  void Value(bool value);
  template <std::integral Number>
  requires(!std::same_as<Number, bool>) void Value(Number value) {
    WriteNumber(static_cast<long long>(value));
  }

 private:
  static constexpr std::size_t kDepth = 16;

  void Begin(char bracket);
  void End(char bracket);
  /// What stands before a member, or an element of a list.
  void Separate();
  void WriteNumber(long long value);
  void WriteInText(wchar_t character);

  ResultText& m_text;
  std::size_t m_depth = 0;
  bool m_isAfterKey = false;
  std::array<bool, kDepth> m_hasItems{};  ///< of each level
};
