#include "inprocess/PlainText.h"

#include <array>
#include <cstdint>

namespace inprocess {
namespace {

struct Bounds {
  unsigned char least;
  unsigned char most;
};

/// A row of the table of well-formed byte sequences.
struct Line {
  unsigned int length;
  std::array<Bounds, 4> bytes;
};

constexpr Bounds kTail{0x80, 0xBF};
constexpr Line kLines[] = {
    {1, {{{0x00, 0x7F}, {}, {}, {}}}},
    {2, {{{0xC2, 0xDF}, kTail, {}, {}}}},
    {3, {{{0xE0, 0xE0}, {0xA0, 0xBF}, kTail, {}}}},
    {3, {{{0xE1, 0xEC}, kTail, kTail, {}}}},
    {3, {{{0xED, 0xED}, {0x80, 0x9F}, kTail, {}}}},
    {3, {{{0xEE, 0xEF}, kTail, kTail, {}}}},
    {4, {{{0xF0, 0xF0}, {0x90, 0xBF}, kTail, kTail}}},
    {4, {{{0xF1, 0xF3}, kTail, kTail, kTail}}},
    {4, {{{0xF4, 0xF4}, {0x80, 0x8F}, kTail, kTail}}},
};

/// Number of bytes at the start of the text that match the row.
unsigned int Matching(const Line& line, std::string_view text) {
  unsigned int count = 0;
  while (count < line.length && count < text.size()) {
    const auto byte = static_cast<unsigned char>(text[count]);
    if (byte < line.bytes[count].least || byte > line.bytes[count].most) break;
    ++count;
  }
  return count;
}

constexpr unsigned int kLeadBits[] = {0, 0x7F, 0x1F, 0x0F, 0x07};

}  // namespace

std::wstring PlainDecode(std::string_view bytes) {
  std::wstring text;
  while (!bytes.empty()) {
    unsigned int taken = 1;
    std::uint32_t character = 0xFFFD;
    for (const Line& line : kLines) {
      const unsigned int matching = Matching(line, bytes);
      if (matching == 0) continue;
      taken = matching;
      if (matching < line.length) break;
      character = static_cast<unsigned char>(bytes[0]) & kLeadBits[line.length];
      for (unsigned int i = 1; i < line.length; ++i)
        character = character * 64 + (static_cast<unsigned char>(bytes[i]) & 0x3Fu);
      break;
    }
    text += static_cast<wchar_t>(character);
    bytes.remove_prefix(taken);
  }
  return text;
}

std::string PlainEncode(std::wstring_view text) {
  std::string bytes;
  for (const wchar_t wide : text) {
    auto code = static_cast<std::uint32_t>(wide);
    if (code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) code = 0xFFFD;
    const auto tail = [&](unsigned int shift) {
      bytes += static_cast<char>(0x80 | ((code >> shift) & 0x3F));
    };
    if (code < 0x80) {
      bytes += static_cast<char>(code);
    } else if (code < 0x800) {
      bytes += static_cast<char>(0xC0 | code >> 6);
      tail(0);
    } else if (code < 0x10000) {
      bytes += static_cast<char>(0xE0 | code >> 12);
      tail(6);
      tail(0);
    } else {
      bytes += static_cast<char>(0xF0 | code >> 18);
      tail(12);
      tail(6);
      tail(0);
    }
  }
  return bytes;
}

bool IsPlainXmlCharacter(wchar_t character) {
  const auto code = static_cast<std::uint32_t>(character);
  return code == 0x9 || code == 0xA || code == 0xD || (code >= 0x20 && code <= 0xD7FF) ||
         (code >= 0xE000 && code <= 0xFFFD) || (code >= 0x10000 && code <= 0x10FFFF);
}

}  // namespace inprocess
