#include "support/ReservedPort.h"

#include <system_error>

namespace support {

ReservedPort::ReservedPort() {
  for (int attempt = 1; !m_datagrams; ++attempt) {
    m_stream.emplace();
    try {
      m_datagrams.emplace(SOCK_DGRAM, Port());
    } catch (const std::system_error&) {  // the port is free for TCP only
      if (attempt == 20) throw;
    }
  }
  // A connected socket receives only from its peer, so the system refuses what others send.
  m_datagrams->ConnectTo(Port());
}

}  // namespace support
