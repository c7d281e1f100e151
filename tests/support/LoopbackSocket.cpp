#include "support/LoopbackSocket.h"

#include <netinet/in.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace support {
namespace {

sockaddr_in Address(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<in_port_t>(port));
  return address;
}

[[noreturn]] void Fail(int error, const char* what, int port) {
  throw std::system_error(error, std::generic_category(),
                          std::string("cannot ") + what + " 127.0.0.1:" + std::to_string(port));
}

}  // namespace

LoopbackSocket::LoopbackSocket(int type, int port)
    : m_descriptor(::socket(AF_INET, type | SOCK_CLOEXEC, 0)) {
  sockaddr_in address = Address(port);
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  socklen_t length = sizeof address;
  const int yes = 1;
  if (m_descriptor < 0 ||
      ::setsockopt(m_descriptor, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes) != 0 ||
      ::bind(m_descriptor, generic, length) != 0 ||
      ::getsockname(m_descriptor, generic, &length) != 0) {
    const int error = errno;
    ::close(m_descriptor);
    Fail(error, "bind a socket to", port);
  }
  m_port = ntohs(address.sin_port);
}

LoopbackSocket::~LoopbackSocket() {
  // A process that another thread is about to start may still have the socket, and would listen.
  ::shutdown(m_descriptor, SHUT_RDWR);
  ::close(m_descriptor);
}

void LoopbackSocket::Listen(int queue) {
  if (::listen(m_descriptor, queue) != 0) Fail(errno, "listen on", m_port);
}

void LoopbackSocket::ConnectTo(int port) {
  const sockaddr_in address = Address(port);
  const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
  if (::connect(m_descriptor, generic, sizeof address) != 0 && errno != EINPROGRESS)
    Fail(errno, "connect to", port);
}

}  // namespace support
