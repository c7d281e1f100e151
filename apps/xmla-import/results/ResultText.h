#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "Utility/Generic/String.h"
#include "base/TextSink.h"

/// The text of a result on its way to a sink, in blocks. Takes no memory but its own, so that a
/// result that was read can be written, whatever its size.
class ResultText {
 public:
  /// For a terminal, characters that act on it are written as \u and their number in four digits.
  ResultText(TextSink& sink, bool isForTerminal) : m_sink(sink), m_isForTerminal(isForTerminal) {}

  bool IsForTerminal() const { return m_isForTerminal; }
  void Append(std::string_view bytes);
  void Append(char byte) {
    if (m_length == m_block.size()) Flush();
    m_block[m_length++] = byte;
  }
  void AppendBlanks(std::size_t count);
  /// One character as UTF-8; one that Unicode does not have as U+FFFD.
  void AppendCharacter(wchar_t character);
  /// \u and the number of a character in hexadecimal digits.
  void AppendNumber(wchar_t character, const char* digits);
  /// Hands what is there to the sink.
  void Flush();

  /// True when so much was written since an interruption that the rest is to be left out. What can
  /// be written at once is written whole.
  bool IsToStop() const { return m_sinceInterruption > kMostAfterInterruption; }

 private:
  static constexpr std::size_t kMostAfterInterruption = std::size_t{4} << 20;

  TextSink& m_sink;
  const bool m_isForTerminal;
  std::size_t m_length = 0;
  std::size_t m_sinceInterruption = 0;
  std::array<char, std::size_t{64} << 10> m_block;
};
