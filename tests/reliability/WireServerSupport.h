#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

namespace reliability {

/// One accepted connection of a WireServer.
class Wire {
 public:
  explicit Wire(int socket) : m_socket(socket) {}
  ~Wire();
  Wire(const Wire&) = delete;
  Wire& operator=(const Wire&) = delete;

  /// False when the peer is gone.
  bool Send(std::string_view bytes) const;
  /// A whole answer of status 200.
  bool SendAnswer(std::string_view body, std::string_view headers = {}) const;
  /// Waits until the peer has closed the connection or the server ends.
  void AwaitPeerGone() const;
  int Socket() const { return m_socket; }

 private:
  int m_socket;
};

/// A small HTTP server on a free loopback port, of sockets and threads alone: its allocations
/// neither fail nor count (FailingAllocation), and it answers thousands of requests in a second.
class WireServer {
 public:
  /// Called with each request, on its connection's thread; false: the connection is closed.
  using Handler =
      std::function<bool(const Wire&, const std::string& path, const std::string& body)>;

  explicit WireServer(Handler handler);
  /// The sample provider of the three kinds, at /analysis-services, /sap-bw and /tamarind; answers
  /// are made once and then repeated.
  WireServer();
  ~WireServer();
  WireServer(const WireServer&) = delete;
  WireServer& operator=(const WireServer&) = delete;

  std::string Url(const std::string& path) const;
  int Port() const { return m_port; }

 private:
  struct Connection {
    std::optional<Wire> wire;  // none once it has ended
    std::thread thread;
  };

  void Accept();
  void Serve(const Wire& wire);
  void JoinEnded();
  const std::string& SampleAnswer(const std::string& path, const std::string& body);

  Handler m_handler;
  int m_listening = -1;
  int m_port = 0;
  std::atomic<bool> m_ends{false};
  std::mutex m_mutex;
  std::map<std::string, std::string> m_answers;
  std::list<Connection> m_connections;
  std::list<Connection> m_ended;
  std::thread m_accepting;
};

}  // namespace reliability
