// Compares the text conversions with simple, slow reference implementations.

#include <algorithm>
#include <cstring>
#include <map>

#include "Input.h"
#include "Utility/Generic/BaseStringUtil.h"
#include "inprocess/PlainText.h"
#include "text/CaseFolding.h"
#include "text/UnicodeConversion.h"

namespace {

using fuzz::Require;
using inprocess::PlainDecode;
using inprocess::PlainEncode;

String Decoded(std::string_view bytes) {
  return BaseStringUtil::StdStringToString(NarrowString(bytes), BaseStringUtil::kCodePageUTF8);
}

void CompareConversions(std::string_view bytes, const std::wstring& raw) {
  const std::wstring plain = PlainDecode(bytes);
  const String text = Decoded(bytes);
  Require(text.view() == plain, "UTF-8 to wide", bytes);
  Require(UnicodeConversion::WideLength(bytes) == plain.size(), "length in wide characters", bytes);
  const std::string back = PlainEncode(plain);
  Require(UnicodeConversion::IsWellFormed(bytes) == (back == bytes), "well-formedness", bytes);
  NarrowString repaired(bytes);
  Require(
      UnicodeConversion::MakeWellFormed(repaired, [] { return false; }) && repaired.view() == back,
      "repair", bytes);
  for (const std::wstring_view wide : {std::wstring_view(plain), std::wstring_view(raw)}) {
    const NarrowString narrow =
        BaseStringUtil::StringToStdString(String(wide), BaseStringUtil::kCodePageUTF8);
    Require(narrow.view() == PlainEncode(wide), "wide to UTF-8", bytes);
  }
}

void CompareEscapes(const std::wstring& text) {
  static const std::map<wchar_t, std::wstring> references = {{L'&', L"&amp;"},   {L'<', L"&lt;"},
                                                             {L'>', L"&gt;"},    {L'"', L"&quot;"},
                                                             {L'\'', L"&apos;"}, {L'\r', L"&#13;"}};
  std::wstring plain;
  for (const wchar_t character : text) {
    const auto found = references.find(character);
    if (found != references.end())
      plain += found->second;
    else
      plain += inprocess::IsPlainXmlCharacter(character) ? character : L'\xFFFD';
  }
  Require(BaseStringUtil::EscapeXMLChars(String(text)).view() == plain, "escaping");
}

/// The value of the longest run of digits, clamped while it is read.
long double PlainNumber(const std::wstring& text) {
  std::size_t i = 0;
  while (i < text.size() && std::wstring_view(L" \t\r\n").find(text[i]) != std::wstring::npos) ++i;
  const bool negative = i < text.size() && text[i] == L'-';
  if (i < text.size() && (text[i] == L'-' || text[i] == L'+')) ++i;
  long double number = 0;
  for (; i < text.size() && text[i] >= L'0' && text[i] <= L'9'; ++i)
    number = std::min(number * 10 + static_cast<long double>(text[i] - L'0'), 1e15L);
  return negative ? -number : number;
}

template <class Integer>
Integer Nearest(long double number) {
  using Limits = std::numeric_limits<Integer>;
  return static_cast<Integer>(std::clamp(number, static_cast<long double>(Limits::min()),
                                         static_cast<long double>(Limits::max())));
}

void CompareNumbers(const std::wstring& wide) {
  const std::wstring text = wide.substr(0, wide.find(L'\0'));
  const long double plain = PlainNumber(text);
  const String given(wide);
  Require(BaseStringUtil::Int16From(given) == Nearest<std::int16_t>(plain), "16-bit number");
  Require(BaseStringUtil::IntFrom(given) == Nearest<std::int32_t>(plain), "32-bit number");
  Require(BaseStringUtil::UIntFrom(given) == Nearest<std::uint32_t>(plain), "unsigned number");
  if (plain >= 0 && plain < 1e15L) {
    const auto number = static_cast<std::uint64_t>(plain);
    Require(BaseStringUtil::StringFrom(number).view() == std::to_wstring(number), "digits");
  }
}

std::wstring Folded(std::wstring text) {
  for (wchar_t& character : text) character = CaseFolding::Fold(character);
  return text;
}

int Sign(int number) { return (number > 0) - (number < 0); }

void CompareCaseless(const std::wstring& a, const std::wstring& b) {
  const std::wstring foldedA = Folded(a);
  const std::wstring foldedB = Folded(b);
  Require(Folded(foldedA) == foldedA, "folding twice");
  const auto less = [](wchar_t x, wchar_t y) {
    return static_cast<std::uint32_t>(x) < static_cast<std::uint32_t>(y);
  };
  const bool isLess = std::lexicographical_compare(foldedA.begin(), foldedA.end(), foldedB.begin(),
                                                   foldedB.end(), less);
  const int plain = foldedA == foldedB ? 0 : isLess ? -1 : 1;
  Require(Sign(BaseStringUtil::CaseInsensitiveCompare(a, b)) == plain, "order ignoring case");
  Require(BaseStringUtil::IsCaseInsensitiveMatch(a, b) == (plain == 0), "match ignoring case");
  Require(BaseStringUtil::IsCaseInsensitiveMatch(a, foldedA), "match with itself folded");
  for (const std::size_t from : {std::size_t{0}, a.size() / 2, a.size(), a.size() + 1}) {
    Require(BaseStringUtil::CaseInsensitiveFindPattern(a, b, from) == foldedA.find(foldedB, from),
            "search ignoring case");
    Require(BaseStringUtil::ForwardPatternMatch(a, b, from) == a.find(b, from), "search");
  }
}

void CompareReplacing(const std::wstring& text, const std::wstring& pattern,
                      const std::wstring& replacement) {
  std::wstring plain;
  std::size_t from = 0;
  while (!pattern.empty()) {
    const std::size_t found = text.find(pattern, from);
    if (found == std::wstring::npos) break;
    plain += text.substr(from, found - from) + replacement;
    from = found + pattern.size();
  }
  plain += text.substr(from);
  String replaced(text);
  const String before = replaced;
  BaseStringUtil::ReplacePatternInString(replaced, pattern, replacement);
  Require(replaced.view() == plain, "replacing");
  Require(before.view() == text, "the copy changed with the original");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  // The same bytes as wide characters, most of them invalid.
  std::wstring raw(size / sizeof(wchar_t), L'\0');
  std::memcpy(raw.data(), data, raw.size() * sizeof(wchar_t));
  CompareConversions(bytes, raw);
  const std::vector<std::string_view> parts = fuzz::Parts(bytes, fuzz::kNextReply);
  const std::wstring first = PlainDecode(parts[0]);
  const std::wstring second = parts.size() > 1 ? PlainDecode(parts[1]) : L"row";
  const std::wstring third = parts.size() > 2 ? PlainDecode(parts[2]) : L"&lt;";
  for (const std::wstring& text : {first, raw}) {
    CompareEscapes(text);
    CompareNumbers(text);
    CompareCaseless(text, second);
    CompareCaseless(second, text);
    CompareReplacing(text, second, third);
  }
  return 0;
}
