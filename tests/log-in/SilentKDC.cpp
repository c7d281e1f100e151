#include "SilentKDC.h"

#include <poll.h>

namespace login {

SilentKDC::SilentKDC() {
  m_datagrams.emplace(SOCK_DGRAM, m_port.Port());
  m_listener.emplace(SOCK_STREAM, m_port.Port());
  m_listener->Listen(100);  // the system accepts so many connections
}

bool SilentKDC::Await(int milliseconds) const {
  pollfd wait[] = {{m_datagrams->Descriptor(), POLLIN, 0}, {m_listener->Descriptor(), POLLIN, 0}};
  return poll(wait, 2, milliseconds) > 0;
}

void SilentKDC::Close() {
  m_datagrams.reset();
  m_listener.reset();
}

}  // namespace login
