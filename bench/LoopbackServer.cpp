#include "LoopbackServer.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace {

bool SendAll(int socket, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

/// The length of the request that begins with these bytes, or 0 while its head is incomplete.
std::size_t RequestLength(std::string_view bytes, std::size_t& head) {
  constexpr std::string_view kEnd = "\r\n\r\n";
  constexpr std::string_view kLength = "Content-Length: ";
  const std::size_t end = bytes.find(kEnd);
  if (end == std::string_view::npos) return 0;
  head = end + kEnd.size();
  const std::size_t at = bytes.substr(0, head).find(kLength);
  if (at == std::string_view::npos) return head;
  return head + std::strtoul(bytes.data() + at + kLength.size(), nullptr, 10);
}

void Serve(int socket, const LoopbackServer::Handler& handler, std::chrono::milliseconds delay) {
  const int on = 1;
  setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  std::string received;
  std::string answer;
  char buffer[16384];
  for (;;) {
    std::size_t head = 0;
    const std::size_t length = RequestLength(received, head);
    if (length == 0 || received.size() < length) {
      const ssize_t got = recv(socket, buffer, sizeof buffer, 0);
      if (got <= 0) break;
      received.append(buffer, static_cast<std::size_t>(got));
      continue;
    }
    const std::string& body = handler(std::string_view(received).substr(head, length - head));
    if (delay.count() > 0) std::this_thread::sleep_for(delay);
    answer = "HTTP/1.1 200 OK\r\nContent-Type: text/xml; charset=utf-8\r\nContent-Length: " +
             std::to_string(body.size()) + "\r\n\r\n";
    const bool isSmall = body.size() < 65536;
    if (isSmall) answer += body;  // in one packet, like a real server
    if (!SendAll(socket, answer) || (!isSmall && !SendAll(socket, body))) break;
    received.erase(0, length);
  }
  close(socket);
}

}  // namespace

LoopbackServer::LoopbackServer(Handler handler, std::chrono::milliseconds delay) {
  const int listening = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(listening, generic, size) != 0 || listen(listening, 64) != 0 ||
      getsockname(listening, generic, &size) != 0)
    throw std::runtime_error("no port to listen on");
  m_url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/xmla";
  m_child = fork();
  if (m_child < 0) throw std::runtime_error("no process for the server");
  if (m_child > 0) {
    close(listening);
    return;
  }
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  for (;;) {
    const int connection = accept(listening, nullptr, nullptr);
    if (connection < 0) _exit(1);
    std::thread([=, &handler] { Serve(connection, handler, delay); }).detach();
  }
}

LoopbackServer::~LoopbackServer() {
  kill(m_child, SIGKILL);
  waitpid(m_child, nullptr, 0);
}
