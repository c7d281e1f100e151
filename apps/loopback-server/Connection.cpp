#include "loopback-server/Connection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>

namespace loopback {
namespace {

class PlainStream : public Stream {
 public:
  explicit PlainStream(int socket) : m_socket(socket) {}
  long Send(std::string_view bytes) override {
    return ::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  }
  long Receive(char* place, std::size_t room) override { return ::recv(m_socket, place, room, 0); }

 private:
  const int m_socket;
};

}  // namespace

Connection::Connection(int socket)
    : m_socket(socket), m_stream(std::make_unique<PlainStream>(socket)) {
  const int on = 1;
  ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

Connection::~Connection() {
  m_stream.reset();
  ::close(m_socket);
}

bool Connection::Send(std::string_view bytes) {
  while (!bytes.empty()) {
    const long sent = m_stream->Send(bytes);
    if (sent <= 0) {
      m_isClosed = true;
      return false;
    }
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

std::size_t Connection::Receive(char* place, std::size_t room) {
  const long received = m_stream->Receive(place, room);
  return received > 0 ? static_cast<std::size_t>(received) : 0;
}

void Connection::AwaitPeerGone() {
  char ignored[4096];
  while (Receive(ignored, sizeof ignored) > 0) continue;
  m_isClosed = true;
}

void Connection::Close() {
  m_isClosed = true;
  m_stream->Close();
  ShutDown();
}

void Connection::Reset() {
  m_isClosed = true;
  const linger now{1, 0};
  ::setsockopt(m_socket, SOL_SOCKET, SO_LINGER, &now, sizeof now);
  // A connect() with AF_UNSPEC sends the reset at once.
  const sockaddr nowhere{AF_UNSPEC, {}};
  (void)::connect(m_socket, &nowhere, sizeof nowhere);
}

void Connection::ShutDown() { ::shutdown(m_socket, SHUT_RDWR); }

int ConnectToLoopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (socket >= 0 && ::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0)
    return socket;
  if (socket >= 0) ::close(socket);
  throw std::runtime_error("cannot connect to 127.0.0.1:" + std::to_string(port));
}

void PassOn(Connection& client, Connection& service, const std::function<void()>& beforeReply) {
  const auto pass = [](Connection& from, Connection& to, const std::function<void()>& before) {
    char buffer[65536];
    for (std::size_t got; (got = from.Receive(buffer, sizeof buffer)) > 0;) {
      before();
      if (!to.Send({buffer, got})) break;
    }
    from.Close();
    to.Close();
  };
  std::thread back(pass, std::ref(service), std::ref(client), std::cref(beforeReply));
  pass(client, service, [] {});
  back.join();
}

void Tunnel(Connection& client, std::string_view authority) {
  const std::string port(authority.substr(authority.find(':') + 1));
  Connection service(ConnectToLoopback(std::atoi(port.c_str())));
  client.Send("HTTP/1.1 200 Connection established\r\n\r\n");
  PassOn(client, service);
}

}  // namespace loopback
