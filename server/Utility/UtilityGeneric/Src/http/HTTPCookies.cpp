#include "http/HTTPCookies.h"

#include <algorithm>
#include <utility>

#include "text/ASCIIText.h"

namespace {

/// Returns the text before the separator, trimmed, and removes it and the separator from `rest`.
std::string_view Next(std::string_view& rest, char separator) {
  const std::size_t end = std::min(rest.find(separator), rest.size());
  const std::string_view part = rest.substr(0, end);
  rest.remove_prefix(std::min(end + 1, rest.size()));
  return ASCIIText::Trimmed(part);
}

bool IsBelow(std::string_view path, std::string_view folder) {
  return path.starts_with(folder) &&
         (path.size() == folder.size() || folder.ends_with('/') || path[folder.size()] == '/');
}

}  // namespace

void HTTPCookies::Store(std::string_view header, bool (*isPast)(const std::string& date)) {
  if (std::any_of(header.begin(), header.end(), ASCIIText::IsControl)) return;
  std::string_view value = Next(header, ';');
  if (value.find('=') == std::string_view::npos) return;
  const std::string_view name = Next(value, '=');
  if (name.empty()) return;

  bool isExpired = false;
  bool hasMaxAge = false;  // Max-Age overrides Expires
  while (!header.empty()) {
    std::string_view setting = Next(header, ';');
    const std::string_view attribute = Next(setting, '=');
    if (ASCIIText::EqualsIgnoringCase(attribute, "path")) {
      if (setting.starts_with('/') && !IsBelow(m_servicePath, setting)) return;
    } else if (ASCIIText::EqualsIgnoringCase(attribute, "max-age")) {
      hasMaxAge = true;
      isExpired =
          setting.starts_with('-') || setting.find_first_not_of('0') == std::string_view::npos;
    } else if (ASCIIText::EqualsIgnoringCase(attribute, "expires") && !hasMaxAge) {
      isExpired = isPast(std::string(setting));
    }
  }

  const std::lock_guard lock(m_mutex);
  const auto same = std::find_if(m_cookies.begin(), m_cookies.end(),
                                 [name](const Cookie& cookie) { return cookie.name == name; });
  if (isExpired) {
    if (same != m_cookies.end()) m_cookies.erase(same);
    return;
  }
  std::size_t count = 1;
  std::size_t bytes = name.size() + value.size();
  for (auto cookie = m_cookies.begin(); cookie != m_cookies.end(); ++cookie) {
    if (cookie == same) continue;
    ++count;
    bytes += cookie->name.size() + cookie->value.size();
  }
  if ((m_maxCount != 0 && count > m_maxCount) || (m_maxBytes != 0 && bytes > m_maxBytes)) return;
  if (same == m_cookies.end())
    m_cookies.push_back({std::string(name), std::string(value)});
  else
    same->value = value;
}

void HTTPCookies::CopyFrom(const HTTPCookies& other) {
  std::vector<Cookie> cookies;
  {
    const std::lock_guard lock(other.m_mutex);
    cookies = other.m_cookies;
  }
  const std::lock_guard lock(m_mutex);
  m_cookies = std::move(cookies);
}

std::string HTTPCookies::ForRequest() const {
  std::string line;
  const std::lock_guard lock(m_mutex);
  for (const Cookie& cookie : m_cookies) {
    if (!line.empty()) line += "; ";
    line += cookie.name + '=' + cookie.value;
  }
  return line;
}
