#include "xml/XmlProlog.h"

#include "text/ASCIIText.h"

namespace {

using ASCIIText::IsSpace;

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

constexpr std::size_t kBytesPerCheck = std::size_t{64} << 10;  // between two checks for a stop

/// Position of the first character at or after `position` that is neither white space nor part of a
/// byte-order mark.
std::size_t SkipSpaceAndMarks(std::string_view text, std::size_t position,
                              const std::function<bool()>& isToStop) {
  for (std::size_t checked = position;;) {
    if (position - checked >= kBytesPerCheck) {
      if (isToStop()) return position;
      checked = position;
    }
    if (position < text.size() && IsSpace(text[position]))
      ++position;
    else if (text.substr(position, kByteOrderMark.size()) == kByteOrderMark)
      position += kByteOrderMark.size();
    else
      return position;
  }
}

/// Position after the last character that is neither white space nor null.
std::size_t FindEnd(std::string_view text, const std::function<bool()>& isToStop) {
  std::size_t end = text.size();
  for (std::size_t checked = end; end > 0 && (IsSpace(text[end - 1]) || text[end - 1] == '\0');
       --end) {
    if (checked - end < kBytesPerCheck) continue;
    if (isToStop()) return end;
    checked = end;
  }
  return end;
}

/// Position after the XML declaration at `position`, or `position` if there is none.
std::size_t SkipDeclaration(std::string_view text, std::size_t position) {
  constexpr std::string_view kStart = "<?xml";
  // A longer declaration is not accepted, because the search for its end cannot be stopped.
  constexpr std::size_t kMaxDeclarationBytes = std::size_t{64} << 10;
  if (text.compare(position, kStart.size(), kStart) != 0) return position;
  const std::size_t target = position + kStart.size();
  if (target >= text.size() || !IsSpace(text[target])) return position;
  const std::size_t close = text.substr(0, position + kMaxDeclarationBytes).find("?>", target);
  return close == std::string_view::npos ? position : close + 2;
}

}  // namespace

XmlProlog FindXmlDocument(std::string_view text, const std::function<bool()>& isToStop) {
  const std::size_t end = FindEnd(text, isToStop);
  text = text.substr(0, end);
  const std::size_t begin = SkipSpaceAndMarks(text, 0, isToStop);
  XmlProlog prolog{begin, end, begin, begin};
  const std::size_t first = SkipDeclaration(text, begin);
  if (first != begin) {
    prolog.ignoredBegin = first;
    prolog.ignoredEnd = SkipDeclaration(text, SkipSpaceAndMarks(text, first, isToStop));
    prolog.ignoredEnd = SkipSpaceAndMarks(text, prolog.ignoredEnd, isToStop);
  }
  return prolog;
}
