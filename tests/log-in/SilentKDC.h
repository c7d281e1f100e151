#pragma once

#include <string>

namespace login {

/// A KDC that accepts requests over UDP and TCP and never answers.
class SilentKDC {
 public:
  SilentKDC();  ///< throws std::runtime_error if it does not start
  ~SilentKDC();
  SilentKDC(const SilentKDC&) = delete;
  SilentKDC& operator=(const SilentKDC&) = delete;

  /// Host and port.
  const std::string& Address() const { return m_address; }
  /// Waits until a request has arrived. False if there is none within the time.
  bool Await(int milliseconds) const;

 private:
  bool Start();

  int m_datagrams = -1;
  int m_listener = -1;
  std::string m_address;
};

}  // namespace login
