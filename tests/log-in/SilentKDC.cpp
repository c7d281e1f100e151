#include "SilentKDC.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace login {

/// False if the port is free for datagrams only.
bool SilentKDC::Start() {
  m_datagrams = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  m_listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const any = reinterpret_cast<sockaddr*>(&address);
  // The system accepts connections up to the length of the queue.
  if (bind(m_datagrams, any, size) == 0 && getsockname(m_datagrams, any, &size) == 0 &&
      bind(m_listener, any, size) == 0 && listen(m_listener, 100) == 0) {
    m_address = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    return true;
  }
  close(m_datagrams);
  close(m_listener);
  return false;
}

SilentKDC::SilentKDC() {
  for (int attempt = 0; attempt < 20; ++attempt)
    if (Start()) return;
  throw std::runtime_error("the silent KDC does not start");
}

SilentKDC::~SilentKDC() {
  close(m_datagrams);
  close(m_listener);
}

bool SilentKDC::Await(int milliseconds) const {
  pollfd wait[] = {{m_datagrams, POLLIN, 0}, {m_listener, POLLIN, 0}};
  return poll(wait, 2, milliseconds) > 0;
}

}  // namespace login
