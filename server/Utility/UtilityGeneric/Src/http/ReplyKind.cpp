#include "http/ReplyKind.h"

#include <algorithm>
#include <iterator>

namespace ReplyKind {
namespace {

constexpr std::size_t kLongestQuote = 120;
constexpr std::size_t kLooksAt = std::size_t{64} << 10;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

char Lower(char character) {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                              : character;
}

bool IsSame(std::string_view text, std::string_view lowerCase) {
  return std::equal(text.begin(), text.end(), lowerCase.begin(), lowerCase.end(),
                    [](char a, char b) { return Lower(a) == b; });
}

bool StartsWith(std::string_view text, std::string_view lowerCase) {
  return text.size() >= lowerCase.size() && IsSame(text.substr(0, lowerCase.size()), lowerCase);
}

std::size_t FindIgnoringCase(std::string_view text, std::string_view lowerCase) {
  const auto found = std::search(text.begin(), text.end(), lowerCase.begin(), lowerCase.end(),
                                 [](char a, char b) { return Lower(a) == b; });
  return found == text.end() ? std::string_view::npos
                             : static_cast<std::size_t>(found - text.begin());
}

bool IsBlank(char character) {
  return character == ' ' || (character >= '\t' && character <= '\r') || character == '\0';
}

std::string_view WithoutBlanks(std::string_view body) {
  for (;;) {
    if (body.starts_with(kByteOrderMark))
      body.remove_prefix(kByteOrderMark.size());
    else if (!body.empty() && IsBlank(body.front()))
      body.remove_prefix(1);
    else
      return body;
  }
}

struct Aside {
  std::string_view open;
  std::string_view close;
};
constexpr Aside kAsides[] = {{"<?", "?>"}, {"<!--", "-->"}, {"<![CDATA[", "]]>"}};

/// The body from behind the declaration, comment or CDATA section that it begins with; false when
/// it begins with none of them.
bool SkipAside(std::string_view& body) {
  for (const Aside& aside : kAsides) {
    if (!body.starts_with(aside.open)) continue;
    const std::size_t close = body.find(aside.close, aside.open.size());
    body = close == std::string_view::npos ? std::string_view()
                                           : body.substr(close + aside.close.size());
    return true;
  }
  return false;
}

std::string_view FromFirstTag(std::string_view body) {
  do body = WithoutBlanks(body);
  while (SkipAside(body));
  return body;
}

std::string OneLine(std::string_view text) {
  std::string line;
  for (const char character : WithoutBlanks(text)) {
    if (!IsBlank(character))
      line += character;
    else if (!line.empty() && line.back() != ' ')
      line += ' ';
    if (line.size() > kLongestQuote) break;
  }
  if (line.size() > kLongestQuote) {
    line.resize(kLongestQuote - 3);
    // Not in the middle of a character.
    while (!line.empty() && (static_cast<unsigned char>(line.back()) & 0xC0) == 0x80)
      line.pop_back();
    if (!line.empty() && (static_cast<unsigned char>(line.back()) & 0x80) != 0) line.pop_back();
    line += "...";
  }
  while (!line.empty() && line.back() == ' ') line.pop_back();
  return line;
}

}  // namespace

bool IsEmpty(std::string_view body) noexcept {
  return body.size() <= kLooksAt && WithoutBlanks(body).empty();
}

bool IsPlainText(std::string_view body) noexcept {
  body = body.substr(0, kLooksAt);
  return body.find('<') == std::string_view::npos && !WithoutBlanks(body).empty();
}

bool IsWebPage(std::string_view body) noexcept {
  constexpr std::string_view kNames[] = {"html",   "head", "body", "title", "meta",
                                         "script", "form", "h1",   "p",     "center",
                                         "div",    "br",   "table"};
  const std::string_view tag = FromFirstTag(body.substr(0, kLooksAt));
  if (StartsWith(tag, "<!doctype")) {
    const std::string_view name = WithoutBlanks(tag.substr(std::string_view("<!doctype").size()));
    return StartsWith(name, "html");
  }
  if (tag.empty() || tag.front() != '<') return false;
  const std::string_view name = tag.substr(1, tag.find_first_of(" \t\r\n/>", 1) - 1);
  return std::any_of(std::begin(kNames), std::end(kNames),
                     [name](std::string_view known) { return IsSame(name, known); });
}

std::string PageTitle(std::string_view body) {
  body = body.substr(0, kLooksAt);
  const std::size_t tag = FindIgnoringCase(body, "<title");
  if (tag == std::string_view::npos) return {};
  const std::size_t open = body.find('>', tag);
  if (open == std::string_view::npos) return {};
  const std::string_view rest = body.substr(open + 1);
  return OneLine(rest.substr(0, FindIgnoringCase(rest, "</title")));
}

std::string Beginning(std::string_view body) { return OneLine(body.substr(0, kLooksAt)); }

}  // namespace ReplyKind
