#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <string_view>

namespace loopback {

/// Moves the bytes of one connection. The socket belongs to the connection.
class Stream {
 public:
  virtual ~Stream() = default;
  /// The number of bytes sent, at least 1; 0 or less if the peer has gone.
  virtual long Send(std::string_view bytes) = 0;
  /// The number of bytes received, at least 1; 0 or less at the end of the connection.
  virtual long Receive(char* place, std::size_t room) = 0;
  /// Called before the connection is closed.
  virtual void Close() {}
};

/// One accepted connection. A handler uses it on the connection's thread. ShutDown may be called
/// from any thread.
class Connection {
 public:
  /// Takes the socket.
  explicit Connection(int socket);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// Replaces the stream of plain bytes.
  void Use(std::unique_ptr<Stream> stream) { m_stream = std::move(stream); }

  /// Sends all bytes. False if the peer has gone.
  bool Send(std::string_view bytes);
  /// Waits for bytes; 0 at the end of the connection.
  std::size_t Receive(char* place, std::size_t room);
  /// Returns when the peer has gone or the server ends. Ignores what the peer sends.
  void AwaitPeerGone();
  /// Closes the connection. The peer sees its end.
  void Close();
  /// The same, but the peer sees a reset.
  void Reset();
  bool IsClosed() const { return m_isClosed; }
  /// Wakes every operation that waits on the connection, and ends it.
  void ShutDown();
  int Socket() const { return m_socket; }

 private:
  const int m_socket;
  std::unique_ptr<Stream> m_stream;
  std::atomic<bool> m_isClosed{false};
};

/// Connects to a port of this machine. Throws std::runtime_error.
int ConnectToLoopback(int port);

/// Passes bytes on in both directions until one side ends. `beforeReply` is called before bytes of
/// the service are passed on.
void PassOn(
    Connection& client, Connection& service, const std::function<void()>& beforeReply = [] {});

/// Answers a CONNECT request for "127.0.0.1:PORT" and passes bytes on.
void Tunnel(Connection& client, std::string_view authority);

}  // namespace loopback
