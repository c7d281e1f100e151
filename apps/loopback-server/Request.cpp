#include "loopback-server/Request.h"

#include <strings.h>

namespace loopback {
namespace {

constexpr std::string_view kLineEnd = "\r\n";

/// The word of the request line with this number.
std::string Word(std::string_view head, int number) {
  std::string_view line = head.substr(0, head.find(kLineEnd));
  for (; number > 0; --number) {
    const std::size_t blank = line.find(' ');
    if (blank == std::string_view::npos) return {};
    line.remove_prefix(blank + 1);
  }
  return std::string(line.substr(0, line.find(' ')));
}

std::string_view Trimmed(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(" \t");
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

/// Calls `take(name, value)` for each header.
template <class Take>
void ForEachHeader(std::string_view head, Take take) {
  std::size_t begin = head.find(kLineEnd);
  while (begin != std::string_view::npos) {
    begin += kLineEnd.size();
    const std::size_t end = head.find(kLineEnd, begin);
    if (end == std::string_view::npos || end == begin) return;
    const std::string_view line = head.substr(begin, end - begin);
    const std::size_t colon = line.find(':');
    if (colon != std::string_view::npos)
      take(line.substr(0, colon), Trimmed(line.substr(colon + 1)));
    begin = end;
  }
}

}  // namespace

std::string Request::Method() const { return Word(head, 0); }
std::string Request::Target() const { return Word(head, 1); }

std::vector<std::pair<std::string, std::string>> Request::Headers() const {
  std::vector<std::pair<std::string, std::string>> headers;
  ForEachHeader(head, [&](std::string_view name, std::string_view value) {
    headers.emplace_back(name, value);
  });
  return headers;
}

std::string Request::Header(std::string_view name) const {
  std::string found;
  bool isFirst = true;
  ForEachHeader(head, [&](std::string_view each, std::string_view value) {
    if (each.size() != name.size() || strncasecmp(each.data(), name.data(), name.size()) != 0)
      return;
    if (!isFirst) found += '|';
    isFirst = false;
    found += value;
  });
  return found;
}

}  // namespace loopback
