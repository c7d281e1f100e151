#pragma once

#include <openssl/types.h>

#include <atomic>

namespace network {

/// Blocks a TLS server's handshake until told to continue.
class SilentHandshake {
 public:
  /// The server's context must outlive this object.
  explicit SilentHandshake(SSL_CTX* context);
  SilentHandshake(const SilentHandshake&) = delete;
  SilentHandshake& operator=(const SilentHandshake&) = delete;
  /// Waits until a client is blocked.
  void AwaitClient() const;
  void Continue() { m_isWilling = true; }

 private:
  static int OnHello(SSL* tls, int* alert, void* self);
  std::atomic<bool> m_isWilling{false};
  std::atomic<bool> m_hasClient{false};
};

}  // namespace network
