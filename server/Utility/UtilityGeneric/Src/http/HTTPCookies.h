#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// The cookies of one service, in memory. Each belongs to the service's own host whatever domain it
/// names, lives as long as the client unless the server deletes it, and is kept only if it is meant
/// for the path of the service. A cookie beyond a limit is ignored; 0 means no limit.
class HTTPCookies {
 public:
  HTTPCookies(std::string_view servicePath, std::size_t maxCount, std::size_t maxBytes)
      : m_servicePath(servicePath), m_maxCount(maxCount), m_maxBytes(maxBytes) {}

  /// Takes the value of a Set-Cookie header. `isPast` tells whether a date has passed.
  void Store(std::string_view header, bool (*isPast)(const std::string& date));
  /// "NAME=VALUE; NAME=VALUE" for a request; empty without cookies.
  std::string ForRequest() const;

 private:
  struct Cookie {
    std::string name;
    std::string value;
  };
  const std::string m_servicePath;
  const std::size_t m_maxCount;
  const std::size_t m_maxBytes;
  std::vector<Cookie> m_cookies;
};
