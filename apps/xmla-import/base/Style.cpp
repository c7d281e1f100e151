#include "base/Style.h"

#include <locale.h>
#include <wchar.h>

#include <cstdlib>

#include "base/TerminalText.h"

std::string_view BeginOf(Style style) {
  switch (style) {
    case Style::kHeading:
      return "\x1b[1m";
    case Style::kSection:
      return "\x1b[36m";
    case Style::kGood:
      return "\x1b[32m";
    case Style::kCaution:
      return "\x1b[33m";
    case Style::kBad:
      return "\x1b[1;31m";
    case Style::kFaint:
      break;
  }
  return "\x1b[2m";
}

bool HasColors(std::string_view when, bool isTerminal) {
  if (when == "always" || when == "never") return when == "always";
  const char* const none = std::getenv("NO_COLOR");
  const char* const terminal = std::getenv("TERM");
  const bool isDumb = !terminal || !*terminal || std::string_view(terminal) == "dumb";
  return isTerminal && !isDumb && !(none && *none);
}

std::size_t DisplayWidth(std::wstring_view text) {
  // wcwidth() needs a Unicode locale. This thread uses one for a moment.
  static const locale_t unicode = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  const locale_t former = unicode ? uselocale(unicode) : nullptr;
  constexpr std::size_t kEscape = 6;
  std::size_t columns = 0;
  for (const wchar_t character : text) {
    const int width = unicode ? wcwidth(character) : 1;
    columns += NeedsEscapeOnTerminal(character) ? kEscape
               : width < 0                      ? 1
                                                : static_cast<std::size_t>(width);
  }
  if (former) uselocale(former);
  return columns;
}
