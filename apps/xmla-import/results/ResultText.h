#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "Utility/Generic/String.h"
#include "base/TextSink.h"

/// Buffers the text of a result and passes it to a sink in blocks. Allocates no memory, so a result
/// of any size can be written even if memory is exhausted.
class ResultText {
 public:
  /// With `isForTerminal`, control characters are escaped as \u and four hexadecimal digits.
  ResultText(TextSink& sink, bool isForTerminal) : m_sink(sink), m_isForTerminal(isForTerminal) {}

  bool IsForTerminal() const { return m_isForTerminal; }
  void Append(std::string_view bytes);
  void Append(char byte) {
    if (m_length == m_block.size()) Flush();
    m_block[m_length++] = byte;
  }
  void AppendBlanks(std::size_t count);
  /// Appends a character in UTF-8. Invalid ones become U+FFFD.
  void AppendCharacter(wchar_t character);
  /// Appends \u and the code of a character in four hexadecimal digits.
  void AppendNumber(wchar_t character, const char* digits);
  /// Matches the buffered text to the sink.
  void Flush();

  /// True if more than 4 MiB were written after an interruption. The rest is then omitted, so that
  /// the tool ends soon.
  bool MustStop() const { return m_sinceInterruption > kMaxAfterInterruption; }

 private:
  static constexpr std::size_t kMaxAfterInterruption = std::size_t{4} << 20;

  TextSink& m_sink;
  const bool m_isForTerminal;
  std::size_t m_length = 0;
  std::size_t m_sinceInterruption = 0;
  std::array<char, std::size_t{64} << 10> m_block;
};
