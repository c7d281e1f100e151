#pragma once

#include <memory>
#include <string>

/// What no client can do without: a request of that length and with those headers posted with
/// libcurl on a reused handle, the reply received, and one libxml2 SAX2 pass over it with handlers
/// that do nothing.
class Floor {
 public:
  explicit Floor(const std::string& url);
  ~Floor();
  /// The reply to the request.
  std::string Receive(const std::string& request);
  /// Throws std::runtime_error when it is not well-formed.
  static void Parse(const std::string& reply);

 private:
  struct Handles;
  std::unique_ptr<Handles> m_handles;
};
