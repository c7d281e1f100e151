#pragma once

#include <netinet/in.h>
#include <openssl/types.h>

#include <atomic>

/// Peers that accept no connection or never answer.
namespace network {

/// A listening socket with a full queue: connections to it neither succeed nor fail.
class FullListener {
 public:
  FullListener();
  ~FullListener();
  FullListener(const FullListener&) = delete;
  FullListener& operator=(const FullListener&) = delete;
  int Port() const { return ntohs(m_address.sin_port); }
  /// Number of connections to the port that are pending.
  int Pending() const;

 private:
  sockaddr_in m_address{};
  int m_listening = -1;
  int m_fillers[4] = {};
};

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
