#include "Utility/Generic/BaseStringUtil.h"

#include "text/ASCIIText.h"
#include "text/CaseFolding.h"
#include "text/UnicodeConversion.h"

using CaseFolding::Fold;

namespace {

int CompareCodes(wchar_t a, wchar_t b) {
  return static_cast<char32_t>(a) < static_cast<char32_t>(b) ? -1 : 1;
}

bool IsMatch(const wchar_t* a, const wchar_t* b, std::size_t length) {
  for (std::size_t i = 0; i < length; ++i)
    if (a[i] != b[i] && Fold(a[i]) != Fold(b[i])) return false;
  return true;
}

}  // namespace

int BaseStringUtil::CaseInsensitiveCompare(String::View a, String::View b) {
  const std::size_t common = a.size() < b.size() ? a.size() : b.size();
  const wchar_t* const left = a.data();
  const wchar_t* const right = b.data();
  for (std::size_t i = 0; i < common; ++i) {
    if (left[i] == right[i]) continue;
    const wchar_t foldedLeft = Fold(left[i]);
    const wchar_t foldedRight = Fold(right[i]);
    if (foldedLeft != foldedRight) return CompareCodes(foldedLeft, foldedRight);
  }
  return a.size() == b.size() ? 0 : a.size() < b.size() ? -1 : 1;
}

bool BaseStringUtil::IsCaseInsensitiveMatch(String::View a, String::View b) {
  // Folding is one-to-one, so texts of different length never match.
  return a.size() == b.size() && (a.data() == b.data() || IsMatch(a.data(), b.data(), a.size()));
}

std::size_t BaseStringUtil::CaseInsensitiveFindPattern(String::View text, String::View pattern,
                                                       std::size_t from) {
  if (from > text.size() || pattern.size() > text.size() - from) return String::npos;
  const wchar_t* const characters = text.data();
  const std::size_t last = text.size() - pattern.size();
  if (pattern.empty()) return from;
  const wchar_t first = Fold(pattern[0]);
  for (std::size_t position = from; position <= last; ++position)
    if (Fold(characters[position]) == first &&
        IsMatch(characters + position + 1, pattern.data() + 1, pattern.size() - 1))
      return position;
  return String::npos;
}

std::size_t BaseStringUtil::ForwardPatternMatch(String::View text, String::View pattern,
                                                std::size_t from) {
  return text.find(pattern, from);
}

void BaseStringUtil::ReplacePatternInString(String& text, String::View pattern,
                                            String::View replacement) {
  if (pattern.empty()) return;
  std::size_t count = 0;
  for (std::size_t found = text.find(pattern); found != String::npos;
       found = text.find(pattern, found + pattern.size()))
    ++count;
  if (count == 0) return;
  String result;
  const std::size_t kept = text.size() - count * pattern.size();
  if (replacement.size() > (String::npos / sizeof(wchar_t) - kept) / count)
    throw std::length_error("text too long");
  result.reserve(kept + count * replacement.size());
  std::size_t from = 0;
  for (std::size_t found = text.find(pattern); found != String::npos;
       found = text.find(pattern, from)) {
    result.append(text.view().substr(from, found - from));
    result.append(replacement);
    from = found + pattern.size();
  }
  result.append(text.view().substr(from));
  text = std::move(result);
}

namespace {

/// The escape of a character in XML, or an empty view if it needs none.
std::wstring_view EscapeFor(wchar_t character) {
  switch (character) {
    case L'&':
      return L"&amp;";
    case L'<':
      return L"&lt;";
    case L'>':
      return L"&gt;";
    case L'"':
      return L"&quot;";
    case L'\'':
      return L"&apos;";
    case L'\r':
      return L"&#13;";
    default:
      break;
  }
  return UnicodeConversion::IsXMLCharacter(character) ? std::wstring_view() : L"\xFFFD";
}

}  // namespace

String BaseStringUtil::EscapeXMLChars(const String& text) {
  std::size_t length = 0;
  bool changed = false;
  for (const wchar_t character : text) {
    const std::wstring_view escape = EscapeFor(character);
    changed = changed || !escape.empty();
    length += escape.empty() ? 1 : escape.size();
  }
  if (!changed) return text;
  String result;
  result.AppendFilled(length, [&](wchar_t* place) noexcept {
    for (const wchar_t character : text) {
      const std::wstring_view escape = EscapeFor(character);
      if (escape.empty())
        *place++ = character;
      else
        place += escape.copy(place, escape.size());
    }
    return length;
  });
  return result;
}

namespace {

/// The number, clamped to [least, most].
std::int64_t NumberFrom(const String& text, std::int64_t least, std::int64_t most) noexcept {
  const wchar_t* position = text.c_str();  // the terminating null character ends every loop below
  while (ASCIIText::IsSpace(*position)) ++position;
  const bool negative = *position == L'-';
  if (negative || *position == L'+') ++position;
  std::int64_t number = 0;
  for (; *position >= L'0' && *position <= L'9'; ++position) {
    const std::int64_t digit = *position - L'0';
    number = number * 10 + (negative ? -digit : digit);
    if (number < least) return least;
    if (number > most) return most;
  }
  return number;
}

template <class Integer>
Integer IntegerFrom(const String& text) noexcept {
  using Limits = std::numeric_limits<Integer>;
  return static_cast<Integer>(NumberFrom(text, Limits::min(), Limits::max()));
}

}  // namespace

std::int16_t BaseStringUtil::Int16From(const String& text) noexcept {
  return IntegerFrom<std::int16_t>(text);
}
std::int32_t BaseStringUtil::IntFrom(const String& text) noexcept {
  return IntegerFrom<std::int32_t>(text);
}
std::uint32_t BaseStringUtil::UIntFrom(const String& text) noexcept {
  return IntegerFrom<std::uint32_t>(text);
}

String BaseStringUtil::StringFrom(std::uint64_t number) {
  wchar_t digits[20];
  wchar_t* const end = std::end(digits);
  wchar_t* first = end;
  do {
    *--first = static_cast<wchar_t>(L'0' + number % 10);
    number /= 10;
  } while (number != 0);
  return String(first, static_cast<std::size_t>(end - first));
}
