#include "results/ResultText.h"

#include <cstdint>

#include "base/Interrupt.h"
#include "base/TerminalText.h"

void ResultText::Append(std::string_view ours) {
  for (const char byte : ours) Append(byte);
}

void ResultText::AppendMarkup(std::string_view ours) {
  for (const char byte : ours) Put(byte);
}

void ResultText::AppendBytes(std::string_view bytes) {
  if (m_isForTerminal) return Append(bytes);
  for (const char byte : bytes) Put(byte);
}

void ResultText::AppendBlanks(std::size_t count) {
  for (; count > 0; --count) Put(' ');
}

void ResultText::AppendName(const String& name) {
  for (const wchar_t character : name) AppendCharacter(character);
}

void ResultText::AppendCharacter(wchar_t character) {
  if (m_isForTerminal && NeedsEscapeOnTerminal(character))
    return AppendNumber(character, "0123456789ABCDEF");
  auto code = static_cast<std::uint32_t>(character);
  if (code < 0x80) return Put(static_cast<char>(code));
  if (code > 0x10FFFF || (0xD800 <= code && code <= 0xDFFF)) code = 0xFFFD;
  const auto byte = [this](std::uint32_t value) { Put(static_cast<char>(value)); };
  const auto follow = [&](int shift) { byte(0x80 | (code >> shift & 0x3F)); };
  if (code < 0x800) {
    byte(0xC0 | code >> 6);
  } else if (code < 0x10000) {
    byte(0xE0 | code >> 12);
    follow(6);
  } else {
    byte(0xF0 | code >> 18);
    follow(12);
    follow(6);
  }
  follow(0);
}

void ResultText::AppendNumber(wchar_t character, const char* digits) {
  Append("\\u");
  for (int shift = 12; shift >= 0; shift -= 4)
    Append(digits[static_cast<std::uint32_t>(character) >> shift & 0xF]);
}

void ResultText::Flush() {
  const std::size_t length = m_length;
  m_length = 0;
  if (length == 0) return;
  m_sink.Write(std::string_view(m_block.data(), length));
  if (Interrupt::Happened()) m_sinceInterruption += length;
}
