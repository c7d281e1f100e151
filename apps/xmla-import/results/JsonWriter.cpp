#include "results/JsonWriter.h"

#include <fmt/format.h>

#include <charconv>

#include "base/Text.h"

namespace {

/// The letter of a two-character JSON escape; 0 if the character has none.
char EscapeLetter(wchar_t character) {
  switch (character) {
    case L'"':
      return '"';
    case L'\\':
      return '\\';
    case L'\b':
      return 'b';
    case L'\f':
      return 'f';
    case L'\n':
      return 'n';
    case L'\r':
      return 'r';
    case L'\t':
      return 't';
    default:
      return 0;
  }
}

}  // namespace

void JsonWriter::BeginLine() {
  if (m_layout == Layout::kOneLine) return;
  m_text.EndLine();
  m_text.AppendBlanks(2 * m_depth);
}

void JsonWriter::Separate() {
  if (m_depth == 0 || m_isAfterKey) {
    m_isAfterKey = false;
    return;
  }
  if (m_hasItems[m_depth]) m_text.Append(',');
  m_hasItems[m_depth] = true;
  BeginLine();
}

void JsonWriter::Begin(char bracket) {
  Separate();
  m_text.Append(bracket);
  m_hasItems[++m_depth] = false;
}

void JsonWriter::End(char bracket) {
  if (m_hasItems[m_depth--]) BeginLine();
  m_text.Append(bracket);
}

void JsonWriter::Key(std::string_view name) {
  Separate();
  m_text.Append('"');
  m_text.Append(name);
  m_text.Append(m_layout == Layout::kOneLine ? "\":" : "\": ");
  m_isAfterKey = true;
}

void JsonWriter::WriteInText(wchar_t character) {
  if (const char letter = EscapeLetter(character)) {
    m_text.Append('\\');
    m_text.Append(letter);
  } else if (static_cast<unsigned int>(character) < 0x20) {
    m_text.AppendNumber(character, "0123456789abcdef");
  } else {
    m_text.AppendCharacter(character);
  }
}

void JsonWriter::Value(String::View text) {
  Separate();
  m_text.Append('"');
  for (const wchar_t character : text) WriteInText(character);
  m_text.Append('"');
}

void JsonWriter::Value(std::string_view bytes) { Value(Wide(bytes).view()); }

void JsonWriter::Value(double value) {
  Separate();
  m_text.Append(fmt::format("{:.6f}", value));
}

void JsonWriter::Null() {
  Separate();
  m_text.Append("null");
}

void JsonWriter::Value(bool value) {
  Separate();
  m_text.Append(value ? "true" : "false");
}

void JsonWriter::WriteNumber(long long value) {
  Separate();
  char digits[24];
  const char* const end = std::to_chars(std::begin(digits), std::end(digits), value).ptr;
  m_text.Append(std::string_view(digits, static_cast<std::size_t>(end - digits)));
}
