#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <string_view>

#include "results/ResultText.h"

/// Writes JSON documents incrementally. The caller ensures valid nesting and order.
class JsonWriter {
 public:
  enum class Layout {
    kIndented,  ///< one member or element per line, indented by two spaces per level
    kOneLine,   ///< no line feeds, no blanks
  };

  explicit JsonWriter(ResultText& text, Layout layout = Layout::kIndented)
      : m_text(text), m_layout(layout) {}

  void BeginObject() { Begin('{'); }
  void EndObject() { End('}'); }
  void BeginList() { Begin('['); }
  void EndList() { End(']'); }
  /// The key of the next value: ASCII without characters that need escapes.
  void Key(std::string_view name);

  void Value(String::View text);
  void Value(const String& text) { Value(text.view()); }
  /// UTF-8; ill-formed sequences become U+FFFD.
  void Value(std::string_view bytes);
  void Value(bool value);
  /// With six digits behind the point.
  void Value(double value);
  void Null();
  template <std::integral Number>
  requires(!std::same_as<Number, bool>) void Value(Number value) {
    WriteNumber(static_cast<long long>(value));
  }

 private:
  static constexpr std::size_t kDepth = 16;

  void Begin(char bracket);
  void End(char bracket);
  /// Writes the comma, line feed and indentation before a member or element.
  void Separate();
  void WriteNumber(long long value);
  void WriteInText(wchar_t character);

  void BeginLine();

  ResultText& m_text;
  const Layout m_layout;
  std::size_t m_depth = 0;
  bool m_isAfterKey = false;
  std::array<bool, kDepth> m_hasItems{};  ///< per level
};
