#include "http/ReplyKind.h"

#include <algorithm>
#include <iterator>

#include "Utility/Generic/BaseStringUtil.h"
#include "text/ASCIIText.h"

namespace ReplyKind {
namespace {

using ASCIIText::EqualsIgnoringCase;
using ASCIIText::FindIgnoringCase;
using ASCIIText::StartsWithIgnoringCase;

constexpr std::size_t kMaxQuoteBytes = 120;
constexpr std::size_t kInspectedBytes = std::size_t{64} << 10;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

bool IsIgnored(char character) {
  return character == ' ' || (character >= '\t' && character <= '\r') || character == '\0';
}

std::string_view SkipIgnored(std::string_view body) {
  for (;;) {
    if (body.starts_with(kByteOrderMark))
      body.remove_prefix(kByteOrderMark.size());
    else if (!body.empty() && IsIgnored(body.front()))
      body.remove_prefix(1);
    else
      return body;
  }
}

struct Delimiters {
  std::string_view open;
  std::string_view close;
};
constexpr Delimiters kDelimiters[] = {{"<?", "?>"}, {"<!--", "-->"}, {"<![CDATA[", "]]>"}};

/// If the body begins with a processing instruction, comment or CDATA section, removes it and
/// returns true.
bool SkipNonElement(std::string_view& body) {
  for (const Delimiters& aside : kDelimiters) {
    if (!body.starts_with(aside.open)) continue;
    const std::size_t close = body.find(aside.close, aside.open.size());
    body = close == std::string_view::npos ? std::string_view()
                                           : body.substr(close + aside.close.size());
    return true;
  }
  return false;
}

std::string_view FindFirstTag(std::string_view body) {
  do body = SkipIgnored(body);
  while (SkipNonElement(body));
  return body;
}

std::string Quote(std::string_view text) {
  std::string line;
  for (const char character : SkipIgnored(text)) {
    if (!IsIgnored(character))
      line += character;
    else if (!line.empty() && line.back() != ' ')
      line += ' ';
    if (line.size() > kMaxQuoteBytes) break;
  }
  if (line.size() > kMaxQuoteBytes) {
    line.resize(BaseStringUtil::UTF8PrefixLength(line, kMaxQuoteBytes - 3));
    line += "...";
  }
  while (!line.empty() && line.back() == ' ') line.pop_back();
  return line;
}

}  // namespace

bool IsEmpty(std::string_view body) noexcept {
  return body.size() <= kInspectedBytes && SkipIgnored(body).empty();
}

bool IsPlainText(std::string_view body) noexcept {
  body = body.substr(0, kInspectedBytes);
  return body.find('<') == std::string_view::npos && !SkipIgnored(body).empty();
}

bool IsWebPage(std::string_view body) noexcept {
  constexpr std::string_view kNames[] = {"html",   "head", "body", "title", "meta",
                                         "script", "form", "h1",   "p",     "center",
                                         "div",    "br",   "table"};
  const std::string_view tag = FindFirstTag(body.substr(0, kInspectedBytes));
  if (StartsWithIgnoringCase(tag, "<!doctype")) {
    const std::string_view name = SkipIgnored(tag.substr(std::string_view("<!doctype").size()));
    return StartsWithIgnoringCase(name, "html");
  }
  if (tag.empty() || tag.front() != '<') return false;
  const std::string_view name = tag.substr(1, tag.find_first_of(" \t\r\n/>", 1) - 1);
  return std::any_of(std::begin(kNames), std::end(kNames),
                     [name](std::string_view known) { return EqualsIgnoringCase(name, known); });
}

bool IsFault(std::string_view body) noexcept {
  body = body.substr(0, kInspectedBytes);
  if (!FindFirstTag(body).starts_with('<') || IsWebPage(body)) return false;
  for (std::size_t open = body.find('<'); open != std::string_view::npos;
       open = body.find('<', open + 1)) {
    std::string_view name =
        body.substr(open + 1, body.find_first_of(" \t\r\n/><", open + 1) - open - 1);
    name.remove_prefix(name.find(':') + 1);  // 0 without a prefix
    if (name == "Fault") return true;
  }
  return false;
}

std::string PageTitle(std::string_view body) {
  body = body.substr(0, kInspectedBytes);
  const std::size_t tag = FindIgnoringCase(body, "<title");
  if (tag == std::string_view::npos) return {};
  const std::size_t open = body.find('>', tag);
  if (open == std::string_view::npos) return {};
  const std::string_view rest = body.substr(open + 1);
  return Quote(rest.substr(0, FindIgnoringCase(rest, "</title")));
}

std::string Beginning(std::string_view body) { return Quote(body.substr(0, kInspectedBytes)); }

}  // namespace ReplyKind
