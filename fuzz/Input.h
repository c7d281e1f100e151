#pragma once

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

/// Shared code of the fuzz targets: splitting of inputs, and reporting of failures.
namespace fuzz {

/// An input: some bytes that select a case, followed by text.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size)
      : m_rest(reinterpret_cast<const char*>(data), size) {}

  /// Removes and returns the next byte; 0 at the end.
  unsigned int Byte() {
    if (m_rest.empty()) return 0;
    const auto byte = static_cast<unsigned char>(m_rest.front());
    m_rest.remove_prefix(1);
    return byte;
  }
  std::string_view Rest() const { return m_rest; }

 private:
  std::string_view m_rest;
};

/// Splits the text at each separator.
inline std::vector<std::string_view> Parts(std::string_view text, std::string_view separator) {
  std::vector<std::string_view> parts;
  for (;;) {
    const std::size_t found = text.find(separator);
    parts.push_back(text.substr(0, found));
    if (found == std::string_view::npos) return parts;
    text.remove_prefix(found + separator.size());
  }
}

/// Separates the replies of one import. Not a valid character in XML.
inline constexpr std::string_view kNextReply = "\x1E\x1E";
/// Separates the words of a call.
inline constexpr std::string_view kNextWord{"\0", 1};

/// Prints `what` and aborts if `holds` is false.
inline void Require(bool holds, std::string_view what, std::string_view details = {}) {
  if (holds) return;
  std::cerr << "finding: " << what << '\n' << details << std::endl;
  std::abort();
}

}  // namespace fuzz
