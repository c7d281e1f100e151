#pragma once

#include <openssl/types.h>

#include <atomic>
#include <memory>
#include <string>

#include "loopback-server/Server.h"

using loopback::Answer;

/// A server whose answers are raw bytes, plain or over TLS. It remembers the requests.
class WireServer {
 public:
  using Handler = loopback::Handler;

  /// Without a port it takes a free one. The TLS context outlives the server.
  explicit WireServer(Handler handler, SSL_CTX* tls = nullptr, int port = 0);
  /// Answers every request with the same bytes and keeps the connection.
  explicit WireServer(std::string answer);
  /// Sends the bytes on every connection before it has received anything.
  struct Greets {};
  WireServer(std::string greeting, Greets);

  std::string Port() const { return std::to_string(m_server.Port()); }
  /// "127.0.0.1:PORT"
  std::string Authority() const { return m_server.Authority(); }
  std::vector<loopback::Request> Requests() const { return m_server.Requests(); }
  std::size_t Connections() const { return m_server.Connections(); }
  /// The connections that received something and whose TLS handshake was resumed.
  std::size_t ResumedConnections() const { return m_resumed; }

 private:
  std::atomic<std::size_t> m_resumed{0};
  loopback::Server m_server;
};
