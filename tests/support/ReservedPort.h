#pragma once

#include <optional>
#include <string>

#include "support/LoopbackSocket.h"

namespace support {

/// A port of 127.0.0.1, for TCP and UDP, that is closed and stays so: the system gives it neither
/// to a server that asks for a free port, nor to a client. A server that names it and sets
/// SO_REUSEADDR can use it, also one after another. Keep this object as long as a test relies on
/// the port.
class ReservedPort {
 public:
  /// Throws std::system_error if no port is free.
  ReservedPort();
  int Port() const { return m_stream->Port(); }
  /// "127.0.0.1:PORT"
  std::string Authority() const { return m_stream->Authority(); }

 private:
  std::optional<LoopbackSocket> m_stream;
  std::optional<LoopbackSocket> m_datagrams;
};

}  // namespace support
