#include "XmlProlog.h"

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

bool IsBlank(char character) {
  return character == ' ' || character == '\t' || character == '\r' || character == '\n';
}

constexpr std::size_t kPiece = std::size_t{64} << 10;  // looked at between two questions

/// The position of the first character at or behind `position` that is neither blank nor part of a
/// byte-order mark.
std::size_t SkipBlanksAndMarks(std::string_view text, std::size_t position,
                               const std::function<bool()>& isToStop) {
  for (std::size_t asked = position;;) {
    if (position - asked >= kPiece) {
      if (isToStop()) return position;
      asked = position;
    }
    if (position < text.size() && IsBlank(text[position]))
      ++position;
    else if (text.substr(position, kByteOrderMark.size()) == kByteOrderMark)
      position += kByteOrderMark.size();
    else
      return position;
  }
}

/// The position behind the last character that is neither blank nor null.
std::size_t FindEnd(std::string_view text, const std::function<bool()>& isToStop) {
  std::size_t end = text.size();
  for (std::size_t asked = end; end > 0 && (IsBlank(text[end - 1]) || text[end - 1] == '\0');
       --end) {
    if (asked - end < kPiece) continue;
    if (isToStop()) return end;
    asked = end;
  }
  return end;
}

/// The position behind the XML declaration that stands at `position`, or `position` itself.
std::size_t SkipDeclaration(std::string_view text, std::size_t position) {
  constexpr std::string_view kStart = "<?xml";
  // A longer one is none: the search for its end would take seconds that nobody can stop.
  constexpr std::size_t kLongest = std::size_t{64} << 10;
  if (text.compare(position, kStart.size(), kStart) != 0) return position;
  const std::size_t target = position + kStart.size();
  if (target >= text.size() || !IsBlank(text[target])) return position;
  const std::size_t close = text.substr(0, position + kLongest).find("?>", target);
  return close == std::string_view::npos ? position : close + 2;
}

}  // namespace

XmlProlog FindXmlDocument(std::string_view text, const std::function<bool()>& isToStop) {
  const std::size_t end = FindEnd(text, isToStop);
  text = text.substr(0, end);
  const std::size_t begin = SkipBlanksAndMarks(text, 0, isToStop);
  XmlProlog prolog{begin, end, begin, begin};
  const std::size_t first = SkipDeclaration(text, begin);
  if (first != begin) {
    prolog.blankBegin = first;
    prolog.blankEnd = SkipDeclaration(text, SkipBlanksAndMarks(text, first, isToStop));
    prolog.blankEnd = SkipBlanksAndMarks(text, prolog.blankEnd, isToStop);
  }
  return prolog;
}
