#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

#include "ScriptedServer.h"

std::string ReceivedRequest::Header(std::string_view lowerCaseName) const {
  std::size_t line = head.find("\r\n");
  while (line != std::string::npos && line + 2 < head.size()) {
    const std::size_t begin = line + 2;
    line = head.find("\r\n", begin);
    const std::string_view text = std::string_view(head).substr(begin, line - begin);
    const std::size_t colon = text.find(':');
    if (colon != lowerCaseName.size()) continue;
    const bool same = std::equal(lowerCaseName.begin(), lowerCaseName.end(), text.begin(),
                                 [](char a, char b) { return a == (b | 0x20) || a == b; });
    if (same)
      return std::string(
          text.substr(std::min(text.find_first_not_of(' ', colon + 1), text.size())));
  }
  return {};
}

ServedConnection::~ServedConnection() {
  SSL_free(m_tls);
  ::close(m_socket);
}

bool ServedConnection::Send(std::string_view bytes) {
  while (!bytes.empty()) {
    const auto sent =
        m_tls
            ? SSL_write(m_tls, bytes.data(),
                        static_cast<int>(std::min<std::size_t>(bytes.size(), 1 << 14)))
            : static_cast<int>(::send(m_socket, bytes.data(),
                                      std::min<std::size_t>(bytes.size(), 1 << 20), MSG_NOSIGNAL));
    if (sent <= 0) {
      m_closed = true;
      return false;
    }
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

std::size_t ServedConnection::Receive(char* place, std::size_t room) {
  const auto received = m_tls ? SSL_read(m_tls, place, static_cast<int>(room))
                              : static_cast<int>(::recv(m_socket, place, room, 0));
  return received > 0 ? static_cast<std::size_t>(received) : 0;
}

void ServedConnection::Close() {
  m_closed = true;
  if (m_tls) SSL_shutdown(m_tls);
  ::shutdown(m_socket, SHUT_RDWR);
}

void ServedConnection::Reset() {
  m_closed = true;
  const linger now{1, 0};
  ::setsockopt(m_socket, SOL_SOCKET, SO_LINGER, &now, sizeof now);
  // Connecting to "no address" drops the connection at once, so that the reset is sent now.
  const sockaddr none{AF_UNSPEC, {}};
  ::connect(m_socket, &none, sizeof none);
}

void ServedConnection::AwaitPeerGone() {
  char buffer[4096];
  while (Receive(buffer, sizeof buffer) > 0) {
  }
  m_closed = true;
}

bool ServedConnection::IsResumed() const { return m_tls && SSL_session_reused(m_tls) == 1; }

void ServedConnection::ShutDown() { ::shutdown(m_socket, SHUT_RDWR); }

void Tunnel(ServedConnection& client, const std::string& authority) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const std::string port = authority.substr(authority.find(':') + 1);
  address.sin_port = htons(static_cast<std::uint16_t>(std::strtoul(port.c_str(), nullptr, 10)));
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ServedConnection service(socket, nullptr);
  if (::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return;
  client.Send("HTTP/1.1 200 Connection established\r\n\r\n");
  const auto pass = [](ServedConnection& from, ServedConnection& to) {
    char buffer[65536];
    for (std::size_t got; (got = from.Receive(buffer, sizeof buffer)) > 0;)
      if (!to.Send({buffer, got})) break;
    from.Close();
    to.Close();
  };
  std::thread back(pass, std::ref(service), std::ref(client));
  pass(client, service);
  back.join();
}

ScriptedServer::ScriptedServer(Handler handler, SSL_CTX* tls, std::string greeting, int port)
    : m_handler(std::move(handler)), m_tls(tls), m_greeting(std::move(greeting)) {
  m_listening = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  const int yes = 1;  // the port's former connections may linger
  if (port != 0) ::setsockopt(m_listening, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  socklen_t length = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (::bind(m_listening, generic, length) != 0 || ::listen(m_listening, 64) != 0 ||
      ::getsockname(m_listening, generic, &length) != 0)
    throw std::runtime_error("no loopback port");
  m_port = ntohs(address.sin_port);
  m_accepting = std::thread([this] { Accept(); });
}

ScriptedServer::ScriptedServer(std::string answer)
    : ScriptedServer(
          [answer = std::move(answer)](ServedConnection& connection, const ReceivedRequest&) {
            connection.Send(answer);
          }) {}

ScriptedServer::ScriptedServer(std::string greeting, Greets)
    : ScriptedServer([](ServedConnection&, const ReceivedRequest&) {}, nullptr,
                     std::move(greeting)) {}

ScriptedServer::~ScriptedServer() {
  m_ends = true;
  ::shutdown(m_listening, SHUT_RDWR);
  m_accepting.join();
  for (ServedConnection& connection : m_connections) connection.ShutDown();
  for (std::thread& thread : m_threads) thread.join();
  ::close(m_listening);
}

void ScriptedServer::Accept() {
  for (;;) {
    const int socket = ::accept4(m_listening, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0) return;
    SSL* tls = nullptr;
    if (m_tls) {
      tls = SSL_new(m_tls);
      SSL_set_fd(tls, socket);
    }
    const std::lock_guard lock(m_mutex);
    ServedConnection& connection = m_connections.emplace_back(socket, tls);
    const std::size_t number = m_connections.size() - 1;
    m_threads.emplace_back([this, &connection, number, tls] {
      sigset_t pipe;  // OpenSSL writes to connections whose peer has gone
      sigemptyset(&pipe);
      sigaddset(&pipe, SIGPIPE);
      pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
      if (!tls || SSL_accept(tls) == 1) Serve(connection, number);
      connection.ShutDown();
    });
  }
}

void ScriptedServer::Serve(ServedConnection& connection, std::size_t number) {
  connection.Send(m_greeting);
  bool isFirst = true;
  std::string received;
  char buffer[65536];
  while (!connection.IsClosed()) {
    std::size_t head;
    while ((head = received.find("\r\n\r\n")) == std::string::npos) {
      const std::size_t count = connection.Receive(buffer, sizeof buffer);
      if (count == 0) return;
      received.append(buffer, count);
    }
    ReceivedRequest request;
    request.connection = number;
    request.head = received.substr(0, head + 4);
    const std::size_t length = std::strtoul(request.Header("content-length").c_str(), nullptr, 10);
    while (received.size() < head + 4 + length) {
      const std::size_t count = connection.Receive(buffer, sizeof buffer);
      if (count == 0) return;
      received.append(buffer, count);
    }
    request.body = received.substr(head + 4, length);
    received.erase(0, head + 4 + length);
    {
      const std::lock_guard lock(m_mutex);
      m_requests.push_back(request);
      if (isFirst && connection.IsResumed()) ++m_resumed;
      isFirst = false;
    }
    m_handler(connection, request);
  }
}

std::vector<ReceivedRequest> ScriptedServer::Requests() {
  const std::lock_guard lock(m_mutex);
  return m_requests;
}

std::size_t ScriptedServer::Connections() {
  const std::lock_guard lock(m_mutex);
  return m_connections.size();
}

std::size_t ScriptedServer::ResumedConnections() {
  const std::lock_guard lock(m_mutex);
  return m_resumed;
}

std::string Answer(std::string_view body, std::string_view statusLine, std::string_view headers) {
  std::string answer = "HTTP/1.1 ";
  answer += statusLine;
  answer += "\r\n";
  answer += headers;
  answer += "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n";
  answer += body;
  return answer;
}
