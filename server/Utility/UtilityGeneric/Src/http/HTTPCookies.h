#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

/// The cookies of one service. They are sent only to its own host, even if they name another
/// domain, and are kept only if their path matches the service. A cookie stays until the server
/// deletes it or this object is destroyed. Cookies that exceed a limit are ignored; 0 means no
/// limit. Thread-safe: the connections of a client share its cookies.
class HTTPCookies {
 public:
  HTTPCookies(std::string_view servicePath, std::size_t maxCount, std::size_t maxBytes)
      : m_servicePath(servicePath), m_maxCount(maxCount), m_maxBytes(maxBytes) {}

  /// The settings of the other object, without its cookies.
  struct SameSettings {
    const HTTPCookies& other;
  };
  explicit HTTPCookies(SameSettings as)
      : HTTPCookies(as.other.m_servicePath, as.other.m_maxCount, as.other.m_maxBytes) {}

  /// Takes the cookies of the other object, which has the same limits.
  void CopyFrom(const HTTPCookies& other);
  /// Stores the cookie of a Set-Cookie header. `isPast` returns true for a date in the past.
  void Store(std::string_view header, bool (*isPast)(const std::string& date));
  /// Value of the Cookie header: "NAME=VALUE; NAME=VALUE"; empty without cookies.
  std::string ForRequest() const;

 private:
  struct Cookie {
    std::string name;
    std::string value;
  };
  const std::string m_servicePath;
  const std::size_t m_maxCount;
  const std::size_t m_maxBytes;
  mutable std::mutex m_mutex;
  std::vector<Cookie> m_cookies;  // guarded by m_mutex
};
