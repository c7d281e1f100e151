#pragma once

#include <netinet/in.h>
#include <openssl/types.h>

#include <atomic>

/// Peers that are there and do not answer.
namespace network {

/// A listening socket whose queue is full: connections to it neither succeed nor fail.
class FullListener {
 public:
  FullListener();
  ~FullListener();
  FullListener(const FullListener&) = delete;
  FullListener& operator=(const FullListener&) = delete;
  int Port() const { return ntohs(m_address.sin_port); }
  /// Connections to the port that are neither made nor refused.
  int Pending() const;

 private:
  sockaddr_in m_address{};
  int m_listening = -1;
  int m_fillers[4] = {};
};

/// Keeps a TLS server from answering a client's first words until it is willing.
class SilentHandshake {
 public:
  /// The context is that of the server, which ends before this does.
  explicit SilentHandshake(SSL_CTX* context);
  SilentHandshake(const SilentHandshake&) = delete;
  SilentHandshake& operator=(const SilentHandshake&) = delete;
  /// Waits until a client is kept waiting.
  void AwaitClient() const;
  void BeWilling() { m_isWilling = true; }

 private:
  static int OnHello(SSL* tls, int* alert, void* self);
  std::atomic<bool> m_isWilling{false};
  std::atomic<bool> m_isAsked{false};
};

}  // namespace network
