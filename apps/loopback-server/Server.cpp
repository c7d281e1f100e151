#include "loopback-server/Server.h"

#include <netinet/in.h>
#include <pthread.h>
#include <signal.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <stdexcept>
#include <utility>

namespace loopback {
namespace {

constexpr std::size_t kMaxHeadBytes = 1 << 20;

constexpr std::pair<int, std::string_view> kReasons[] = {
    {200, "OK"},
    {302, "Found"},
    {400, "Bad Request"},
    {401, "Unauthorized"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {407, "Proxy Authentication Required"},
    {411, "Length Required"},
    {413, "Payload Too Large"},
    {429, "Too Many Requests"},
    {431, "Request Header Fields Too Large"},
    {500, "Internal Server Error"},
    {502, "Bad Gateway"},
    {503, "Service Unavailable"},
    {504, "Gateway Timeout"},
};

/// Refuses a request that cannot be read.
bool Refuse(Connection& connection, int status) {
  connection.Send(Answer("", status, "Connection: close\r\n"));
  connection.Close();
  return false;
}

/// False for what no request begins with, such as a TLS handshake: its sender may wait for a reply
/// before it sends more.
bool MayBeRequest(std::string_view received) {
  if (received.empty()) return true;
  constexpr unsigned char kFirst = 0x20;
  constexpr unsigned char kLast = 0x7E;
  const auto first = static_cast<unsigned char>(received.front());
  return first == '\r' || first == '\n' || (kFirst <= first && first <= kLast);
}

}  // namespace

std::string_view ReasonOf(int status) {
  for (const auto& [known, reason] : kReasons)
    if (known == status) return reason;
  return "Unknown";
}

std::string Answer(std::string_view body, std::string_view statusLine, std::string_view headers) {
  std::string answer = "HTTP/1.1 ";
  answer.append(statusLine).append("\r\n").append(headers);
  answer += "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n";
  return answer.append(body);
}

std::string Answer(std::string_view body, int status, std::string_view headers) {
  std::string statusLine = std::to_string(status) + ' ';
  return Answer(body, statusLine.append(ReasonOf(status)), headers);
}

Server::Server(Handler handler, Options options)
    : m_handler(std::move(handler)), m_options(std::move(options)) {
  m_listening = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(m_options.port));
  const int yes = 1;  // earlier connections of the port may linger
  ::setsockopt(m_listening, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  socklen_t length = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (::bind(m_listening, generic, length) != 0 || ::listen(m_listening, SOMAXCONN) != 0 ||
      ::getsockname(m_listening, generic, &length) != 0) {
    ::close(m_listening);
    throw std::runtime_error("Cannot listen on 127.0.0.1, port " + std::to_string(m_options.port) +
                             ": it is in use or not permitted. Use another port, or 0.");
  }
  m_port = ntohs(address.sin_port);
  m_accepting = std::thread([this] { Accept(); });
}

Server::~Server() {
  m_stop.Raise();
  ::shutdown(m_listening, SHUT_RDWR);
  m_accepting.join();
  ::close(m_listening);
  {
    const std::lock_guard lock(m_mutex);
    for (const auto& served : m_served)
      if (served->connection) served->connection->ShutDown();
  }
  for (const auto& served : m_served) served->thread.join();
}

std::vector<Request> Server::Requests() const {
  const std::lock_guard lock(m_mutex);
  return {m_requests.begin(), m_requests.end()};
}

std::vector<Request> Server::TakeRequests() {
  const std::lock_guard lock(m_mutex);
  std::vector<Request> taken(std::make_move_iterator(m_requests.begin()),
                             std::make_move_iterator(m_requests.end()));
  m_requests.clear();
  return taken;
}

std::size_t Server::Connections() const {
  const std::lock_guard lock(m_mutex);
  return m_accepted;
}

void Server::StartThread() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);
  if (m_options.onThread) m_options.onThread();
}

void Server::Accept() {
  StartThread();
  for (;;) {
    const int socket = ::accept4(m_listening, nullptr, nullptr, SOCK_CLOEXEC);
    if (m_stop.IsRaised()) {
      if (socket >= 0) ::close(socket);
      return;
    }
    if (socket >= 0)
      AddConnection(socket);
    else if (!m_stop.Sleep(std::chrono::milliseconds(10)))  // no descriptor is left, for example
      return;
  }
}

void Server::AddConnection(int socket) {
  if (m_options.idle.count() > 0) {
    const timeval time{m_options.idle.count(), 0};
    ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
  }
  // Thousands of connections come and go.
  std::erase_if(m_served, [](const auto& served) {
    if (!served->isDone) return false;
    served->thread.join();
    return true;
  });
  Served& served = *m_served.emplace_back(std::make_unique<Served>());
  served.connection = std::make_unique<Connection>(socket);
  std::size_t number = 0;
  {
    const std::lock_guard lock(m_mutex);
    number = m_accepted++;
  }
  served.thread = std::thread([this, &served, number] {
    StartThread();
    Run(served, number);
  });
}

void Server::Run(Served& served, std::size_t number) {
  Connection& connection = *served.connection;
  bool isOpen = true;
  if (m_options.openStream) {
    std::unique_ptr<Stream> stream = m_options.openStream(connection.Socket());
    isOpen = stream != nullptr;
    if (isOpen) connection.Use(std::move(stream));
  }
  if (isOpen && connection.Send(m_options.greeting)) Serve(connection, number);
  const std::lock_guard lock(m_mutex);
  served.connection.reset();
  served.isDone = true;
}

void Server::Serve(Connection& connection, std::size_t number) {
  std::string received;
  while (!connection.IsClosed() && !m_stop.IsRaised()) {
    Request request;
    request.connection = number;
    if (!Read(connection, received, request)) return;
    if (m_options.requestsKept > 0) {
      const std::lock_guard lock(m_mutex);
      m_requests.push_back(request);
      if (m_requests.size() > m_options.requestsKept) m_requests.pop_front();
    }
    received.shrink_to_fit();  // an idle connection keeps no memory of a large request
    m_handler(connection, request);
    // Makes what the handler wrote visible to the threads of other connections.
    const std::lock_guard lock(m_mutex);
  }
}

/// Reads the next request. False at the end of the connection. `received` keeps what follows it.
bool Server::Read(Connection& connection, std::string& received, Request& request) {
  char buffer[65536];
  const auto receive = [&] {
    const std::size_t count = connection.Receive(buffer, sizeof buffer);
    received.append(buffer, count);
    return count > 0;
  };
  constexpr std::string_view kEnd = "\r\n\r\n";
  std::size_t end = 0;
  while ((end = received.find(kEnd)) == std::string::npos) {
    if (received.size() > kMaxHeadBytes) return Refuse(connection, 431);
    if (!MayBeRequest(received)) return Refuse(connection, 400);
    if (!receive()) return false;
  }
  end += kEnd.size();
  request.head = received.substr(0, end);
  if (request.Target().empty()) return Refuse(connection, 400);
  if (!request.Header("Transfer-Encoding").empty()) return Refuse(connection, 411);
  std::size_t length = 0;
  const std::string digits = request.Header("Content-Length");
  const auto [rest, error] = std::from_chars(digits.data(), digits.data() + digits.size(), length);
  if (!digits.empty() && (error != std::errc() || rest != digits.data() + digits.size()))
    return Refuse(connection, 400);
  if (length > m_options.maxBodyBytes) return Refuse(connection, 413);
  if (strcasecmp(request.Header("Expect").c_str(), "100-continue") == 0)
    connection.Send("HTTP/1.1 100 Continue\r\n\r\n");
  while (received.size() < end + length)
    if (!receive()) return false;
  request.body = received.substr(end, length);
  received.erase(0, end + length);
  received.shrink_to_fit();  // do not keep the memory of a long body
  return true;
}

}  // namespace loopback
