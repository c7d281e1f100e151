#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "Utility/Generic/String.h"
#include "base/Style.h"
#include "base/TextSink.h"

/// Buffers the text of a result and passes it to a sink in blocks. Allocates no memory, so a result
/// of any size can be written even if memory is exhausted.
///
/// No function can send a control character of a server to a terminal: EndLine and EndRecord are
/// the only line ends, Append writes printable ASCII, and AppendName and AppendCharacter escape.
/// AppendMarkup is for text that was escaped before.
class ResultText {
 public:
  /// A text with colours is for a terminal, even if a program passes it on.
  ResultText(TextSink& sink, bool isForTerminal, bool hasColors = false)
      : m_sink(sink), m_isForTerminal(isForTerminal || hasColors), m_hasColors(hasColors) {}

  bool IsForTerminal() const { return m_isForTerminal; }
  /// If the text has colours: what follows has this style, until EndStyle.
  void BeginStyle(Style style) { PutSequence(BeginOf(style)); }
  void EndStyle() { PutSequence(kEndOfStyle); }
  /// Appends the format's own text: printable ASCII. Other bytes become question marks.
  void Append(std::string_view ours);
  void Append(char ours) { Put(IsPrintable(ours) ? ours : '?'); }
  /// Appends the format's own text with line feeds, in UTF-8. Names in it must be escaped.
  void AppendMarkup(std::string_view ours);
  /// Appends bytes unchanged, for a format that is not text. On a terminal, other bytes than
  /// printable ASCII become question marks.
  void AppendBytes(std::string_view bytes);
  void AppendBlanks(std::size_t count);
  void EndLine() { Put('\n'); }
  /// Ends a line with CR and LF. On a terminal with LF only.
  void EndRecord() {
    if (!m_isForTerminal) Put('\r');
    Put('\n');
  }
  /// Appends text of a server in UTF-8, see AppendCharacter.
  void AppendName(const String& name);
  /// Appends a character of a server in UTF-8. Invalid ones become U+FFFD. For a terminal, control
  /// characters and characters that change the text direction become \u and their code.
  void AppendCharacter(wchar_t character);
  /// Appends \u and the code of a character in four hexadecimal digits.
  void AppendNumber(wchar_t character, const char* digits);
  /// Passes the buffered text to the sink.
  void Flush();

  /// True if more than 4 MiB were written after an interruption. The rest is then omitted, so that
  /// the tool ends soon.
  bool MustStop() const { return m_sinceInterruption > kMaxAfterInterruption; }

 private:
  static constexpr std::size_t kMaxAfterInterruption = std::size_t{4} << 20;

  void PutSequence(std::string_view sequence) {
    if (!m_hasColors) return;
    for (const char byte : sequence) Put(byte);
  }
  static bool IsPrintable(char byte) { return ' ' <= byte && byte <= '~'; }
  void Put(char byte) {
    if (m_length == m_block.size()) Flush();
    m_block[m_length++] = byte;
  }

  TextSink& m_sink;
  const bool m_isForTerminal;
  const bool m_hasColors;
  std::size_t m_length = 0;
  std::size_t m_sinceInterruption = 0;
  std::array<char, std::size_t{64} << 10> m_block;
};
