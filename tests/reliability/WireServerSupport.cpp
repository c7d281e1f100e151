#include "WireServerSupport.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

#include "DiscoverService.h"
#include "support/FailingAllocation.h"

namespace reliability {

Wire::~Wire() { Close(); }

void Wire::Close() {
  if (m_socket >= 0) close(m_socket);
  m_socket = -1;
}

bool Wire::Send(std::string_view bytes) const {
  while (!bytes.empty()) {
    const ssize_t sent = send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

bool Wire::SendAnswer(std::string_view body, std::string_view headers) const {
  std::string answer = "HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\nContent-Length: ";
  answer += std::to_string(body.size()) + "\r\n";
  answer.append(headers).append("\r\n").append(body);
  return Send(answer);
}

void Wire::AwaitPeerGone() const {
  char block[4096];
  while (recv(m_socket, block, sizeof block, 0) > 0) {
  }
}

WireServer::WireServer(Handler handler) : m_handler(std::move(handler)) {
  m_listening = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (bind(m_listening, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      listen(m_listening, SOMAXCONN) != 0 ||
      getsockname(m_listening, reinterpret_cast<sockaddr*>(&address), &length) != 0)
    throw std::runtime_error("no port to listen on");
  m_port = ntohs(address.sin_port);
  m_accepting = std::thread([this] { Accept(); });
}

WireServer::WireServer()
    : WireServer([this](const Wire& wire, const std::string& path, const std::string& body) {
        return wire.Send(SampleAnswer(path, body));
      }) {}

WireServer::~WireServer() {
  m_ends = true;
  shutdown(m_listening, SHUT_RDWR);
  m_accepting.join();
  close(m_listening);
  {
    const std::lock_guard lock(m_mutex);
    for (const Served& served : m_served) shutdown(served.wire.Socket(), SHUT_RDWR);
  }
  for (Served& served : m_served) served.thread.join();
}

std::string WireServer::Url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(m_port) + path;
}

void WireServer::Accept() {
  FailingAllocation::ExemptThisThread();
  for (;;) {
    const int accepted = accept4(m_listening, nullptr, nullptr, SOCK_CLOEXEC);
    if (accepted < 0) return;
    const int yes = 1;
    setsockopt(accepted, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    const std::lock_guard lock(m_mutex);
    if (m_ends) {
      close(accepted);
      return;
    }
    // Thousands of connections come and go.
    m_served.remove_if([](Served& served) {
      const bool isDone = served.isDone;
      if (isDone) served.thread.join();
      return isDone;
    });
    Served& served = m_served.emplace_back(accepted);
    served.thread = std::thread([this, &served] {
      FailingAllocation::ExemptThisThread();
      Serve(served.wire);
      {
        const std::lock_guard closing(m_mutex);
        served.wire.Close();
      }
      served.isDone = true;
    });
  }
}

void WireServer::Serve(const Wire& wire) {
  std::string received;
  char block[65536];
  for (;;) {
    const std::size_t end = received.find("\r\n\r\n");
    std::size_t bodyLength = 0;
    if (end != std::string::npos) {
      const std::size_t at = received.find("Content-Length: ");
      if (at < end) bodyLength = std::strtoul(received.c_str() + at + 16, nullptr, 10);
    }
    if (end == std::string::npos || received.size() < end + 4 + bodyLength) {
      const ssize_t count = recv(wire.Socket(), block, sizeof block, 0);
      if (count <= 0) return;
      received.append(block, static_cast<std::size_t>(count));
      continue;
    }
    const std::size_t path = received.find(' ') + 1;
    if (!m_handler(wire, received.substr(path, received.find(' ', path) - path),
                   received.substr(end + 4, bodyLength)))
      return;
    received.erase(0, end + 4 + bodyLength);
  }
}

const std::string& WireServer::SampleAnswer(const std::string& path, const std::string& body) {
  const std::lock_guard lock(m_mutex);
  std::string& answer = m_answers[path + body];
  if (answer.empty()) {
    const auto kind = sample::KindFromName(path.substr(1));
    if (!kind) throw std::runtime_error("no such kind: " + path);
    const sample::HttpReply reply = sample::Answer(*kind, body);
    answer = "HTTP/1.1 " + std::to_string(reply.status) +
             " X\r\nContent-Type: " + reply.contentType +
             "\r\nContent-Length: " + std::to_string(reply.body.size()) + "\r\n\r\n" + reply.body;
  }
  return answer;
}

}  // namespace reliability
