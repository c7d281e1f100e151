#include "NetworkPeersSupport.h"

#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <string>

namespace network {

FullListener::FullListener() {
  m_address.sin_family = AF_INET;
  m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof m_address;
  m_listening = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  bind(m_listening, reinterpret_cast<sockaddr*>(&m_address), length);
  listen(m_listening, 0);
  getsockname(m_listening, reinterpret_cast<sockaddr*>(&m_address), &length);
  for (int& filler : m_fillers) {
    filler = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    connect(filler, reinterpret_cast<sockaddr*>(&m_address), sizeof m_address);
  }
}

FullListener::~FullListener() {
  for (const int filler : m_fillers) close(filler);
  close(m_listening);
}

int FullListener::Pending() const {
  char port[8];
  std::snprintf(port, sizeof port, ":%04X", Port());
  std::ifstream table("/proc/net/tcp");
  int count = 0;
  for (std::string line; std::getline(table, line);)
    if (line.size() > 36 && line.substr(28, 5) == port && line.substr(34, 2) == "02") ++count;
  return count;
}

SilentHandshake::SilentHandshake(SSL_CTX* context) {
  SSL_CTX_set_client_hello_cb(context, &OnHello, this);
}

void SilentHandshake::AwaitClient() const { m_hasClient.wait(false); }

int SilentHandshake::OnHello(SSL* tls, int*, void* self) {
  auto& handshake = *static_cast<SilentHandshake*>(self);
  if (handshake.m_isWilling) return SSL_CLIENT_HELLO_SUCCESS;
  handshake.m_hasClient = true;
  handshake.m_hasClient.notify_all();
  pollfd gone{SSL_get_fd(tls), POLLRDHUP, 0};
  poll(&gone, 1, -1);
  return SSL_CLIENT_HELLO_ERROR;
}

}  // namespace network
