#pragma once

#include <openssl/types.h>

#include <atomic>
#include <memory>
#include <string>

#include "loopback-server/Server.h"

using loopback::Answer;

/// A server that sends raw bytes, plain or over TLS. Records the requests.
class WireServer {
 public:
  using Handler = loopback::Handler;

  /// Uses a free port by default. The TLS context must outlive the server.
  explicit WireServer(Handler handler, SSL_CTX* tls = nullptr, int port = 0);
  /// Answers every request with these bytes and keeps the connection open.
  explicit WireServer(std::string answer);
  /// Sends the bytes on every connection before receiving anything.
  struct Greets {};
  WireServer(std::string greeting, Greets);

  std::string Port() const { return std::to_string(m_server.Port()); }
  /// "127.0.0.1:PORT"
  std::string Authority() const { return m_server.Authority(); }
  std::vector<loopback::Request> Requests() const { return m_server.Requests(); }
  std::size_t Connections() const { return m_server.Connections(); }
  /// Number of connections that received data after a resumed TLS handshake.
  std::size_t ResumedConnections() const { return m_resumed; }

 private:
  std::atomic<std::size_t> m_resumed{0};
  loopback::Server m_server;
};

/// Handler of a proxy: opens the tunnel of a CONNECT request, and answers all others with `<r/>`.
void AnswerOrTunnel(loopback::Connection& connection, const loopback::Request& request);
