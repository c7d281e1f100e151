#include "NetworkPeersSupport.h"

#include <openssl/ssl.h>
#include <poll.h>

namespace network {

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
