#pragma once

#include <memory>
#include <string>

/// The least work that any client must do: post a request of the same length and headers with
/// libcurl on a reused handle, receive the reply, and parse it once with libxml2's SAX2 interface
/// and empty handlers.
class Baseline {
 public:
  explicit Baseline(const std::string& url);
  ~Baseline();
  /// Posts the request and returns the reply.
  std::string Receive(const std::string& request);
  /// Throws std::runtime_error if the reply is not well-formed.
  static void Parse(const std::string& reply);

 private:
  struct Handles;
  std::unique_ptr<Handles> m_handles;
};
