#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <map>
#include <mutex>
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
  void Close();

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
  /// What the sample provider answers to a request with the path; made once and then repeated.
  const std::string& SampleAnswer(const std::string& path, const std::string& body);

 private:
  /// An accepted connection and its thread, which is done once it has nothing more to say.
  struct Served {
    explicit Served(int socket) : wire(socket) {}
    Wire wire;
    std::thread thread;
    std::atomic<bool> isDone{false};
  };

  void Accept();
  void Serve(const Wire& wire);

  Handler m_handler;
  int m_listening = -1;
  int m_port = 0;
  std::atomic<bool> m_ends{false};
  std::mutex m_mutex;
  std::map<std::string, std::string> m_answers;
  std::list<Served> m_served;
  std::thread m_accepting;
};

}  // namespace reliability
