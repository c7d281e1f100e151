#include "base/TerminalText.h"

#include <algorithm>

#include "base/Text.h"

namespace {

struct Range {
  wchar_t first;
  wchar_t last;
};

// Control characters and invisible formatting characters.
constexpr Range kEscaped[] = {
    {0x0000, 0x001F},  // C0 controls, including escape
    {0x007F, 0x009F},  // delete and the C1 controls
    {0x061C, 0x061C},  // Arabic letter mark
    {0x200E, 0x200F},  // left-to-right and right-to-left mark
    {0x2028, 0x2029},  // line and paragraph separator
    {0x202A, 0x202E},  // directional embeddings and overrides
    {0x2066, 0x2069},  // directional isolates
    {0xFEFF, 0xFEFF},  // byte-order mark
};

}  // namespace

bool NeedsEscapeOnTerminal(wchar_t c) {
  return std::any_of(std::begin(kEscaped), std::end(kEscaped),
                     [c](Range range) { return range.first <= c && c <= range.last; });
}

std::string EscapedForTerminal(std::string_view text) {
  constexpr wchar_t kDigits[] = L"0123456789ABCDEF";
  String result;
  for (const wchar_t c : Wide(text)) {
    if (!NeedsEscapeOnTerminal(c)) {
      result += c;
      continue;
    }
    result += L"\\u";
    for (int shift = 12; shift >= 0; shift -= 4) result += kDigits[(c >> shift) & 0xF];
  }
  return Utf8(result);
}
