#pragma once

#include <optional>
#include <string>

#include "support/ReservedPort.h"

namespace login {

/// A KDC that accepts requests over UDP and TCP and never answers.
class SilentKDC {
 public:
  SilentKDC();

  /// Host and port.
  std::string Address() const { return m_port.Authority(); }
  /// Waits until a request has arrived. False if there is none within the time.
  bool Await(int milliseconds) const;
  /// Closes the port.
  void Close();

 private:
  const support::ReservedPort m_port;
  std::optional<support::LoopbackSocket> m_datagrams;
  std::optional<support::LoopbackSocket> m_listener;
};

}  // namespace login
