#pragma once

#include <sys/socket.h>

#include <string>

namespace support {

/// A socket with SO_REUSEADDR that is bound to a port of 127.0.0.1. Failures are std::system_error.
class LoopbackSocket {
 public:
  /// `type` is as in socket(). Port 0 is a free one; a socket for datagrams must name its port,
  /// since it would share a port with others that have SO_REUSEADDR.
  explicit LoopbackSocket(int type = SOCK_STREAM, int port = 0);
  ~LoopbackSocket();
  LoopbackSocket(const LoopbackSocket&) = delete;
  LoopbackSocket& operator=(const LoopbackSocket&) = delete;

  int Descriptor() const { return m_descriptor; }
  int Port() const { return m_port; }
  /// "127.0.0.1:PORT"
  std::string Authority() const { return "127.0.0.1:" + std::to_string(m_port); }
  void Listen(int queue);
  /// A socket that does not block begins to connect.
  void ConnectTo(int port);

 private:
  const int m_descriptor;
  int m_port = 0;
};

}  // namespace support
