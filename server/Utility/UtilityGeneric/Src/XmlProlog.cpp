#include "XmlProlog.h"

namespace {

bool IsBlank(wchar_t character) {
  return character == L' ' || character == L'\t' || character == L'\r' || character == L'\n';
}

std::size_t SkipBlanksAndMarks(std::wstring_view text, std::size_t position) {
  while (position < text.size() && (IsBlank(text[position]) || text[position] == 0xFEFF))
    ++position;
  return position;
}

/// The position behind the XML declaration that stands at `position`, or `position` itself.
std::size_t SkipDeclaration(std::wstring_view text, std::size_t position) {
  constexpr std::wstring_view kStart = L"<?xml";
  if (text.compare(position, kStart.size(), kStart) != 0) return position;
  const std::size_t target = position + kStart.size();
  if (target >= text.size() || !IsBlank(text[target])) return position;
  const std::size_t close = text.find(L"?>", target);
  return close == std::wstring_view::npos ? position : close + 2;
}

}  // namespace

XmlProlog FindXmlDocument(std::wstring_view text) noexcept {
  std::size_t end = text.size();
  while (end > 0 && (IsBlank(text[end - 1]) || text[end - 1] == L'\0')) --end;
  text = text.substr(0, end);
  const std::size_t begin = SkipBlanksAndMarks(text, 0);
  XmlProlog prolog{begin, end, begin, begin};
  const std::size_t first = SkipDeclaration(text, begin);
  if (first != begin) {
    prolog.blankBegin = first;
    prolog.blankEnd = SkipDeclaration(text, SkipBlanksAndMarks(text, first));
    prolog.blankEnd = SkipBlanksAndMarks(text, prolog.blankEnd);
  }
  return prolog;
}
