#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "loopback-server/Connection.h"
#include "loopback-server/Request.h"
#include "loopback-server/StopSignal.h"

namespace loopback {

/// Answers a request, with any bytes, on the thread of the connection. The connection serves the
/// next request unless the handler closed it.
using Handler = std::function<void(Connection&, const Request&)>;

struct Options {
  int port = 0;                  ///< 0: a free one
  std::string greeting = {};     ///< sent on every connection before anything is received
  std::chrono::seconds idle{0};  ///< closes a connection that is silent for so long; 0: never
  std::size_t requestsKept = SIZE_MAX;  ///< the newest ones, for Requests and TakeRequests
  std::size_t maxBodyBytes = 64 << 20;  ///< a longer body is answered with status 413
  /// Makes the stream of an accepted connection, on its thread, for example for TLS. Null closes
  /// the connection.
  std::function<std::unique_ptr<Stream>(int socket)> openStream = {};
  /// Called at the start of each of the server's threads.
  std::function<void()> onThread = {};
};

/// An HTTP/1.1 server on 127.0.0.1 with a thread for each connection. It parses requests; the
/// handler decides every byte of the reply. All signals are blocked on its threads. The destructor
/// wakes and ends all handlers, and returns when their threads have ended.
class Server {
 public:
  /// Throws std::runtime_error if the port is not free.
  explicit Server(Handler handler, Options options = {});
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  int Port() const { return m_port; }
  /// "127.0.0.1:PORT"
  std::string Authority() const { return "127.0.0.1:" + std::to_string(m_port); }
  /// Raised when the server ends, for handlers that wait.
  const StopSignal& Stop() const { return m_stop; }

  std::vector<Request> Requests() const;
  /// The same, and forgets them.
  std::vector<Request> TakeRequests();
  /// How many connections were accepted.
  std::size_t Connections() const;

 private:
  struct Served {
    std::unique_ptr<Connection> connection;  ///< reset under m_mutex
    std::thread thread;
    std::atomic<bool> isDone{false};
  };

  void StartThread();
  void Accept();
  void AddConnection(int socket);
  void Run(Served& served, std::size_t number);
  void Serve(Connection& connection, std::size_t number);
  bool Read(Connection& connection, std::string& received, Request& request);

  const Handler m_handler;
  const Options m_options;
  int m_listening = -1;
  int m_port = 0;
  StopSignal m_stop;
  std::thread m_accepting;
  mutable std::mutex m_mutex;
  // Guarded by m_mutex.
  std::deque<Request> m_requests;
  std::list<std::unique_ptr<Served>> m_served;
  std::size_t m_accepted = 0;
};

/// The reason phrase of a status, "Unknown" for an unusual one.
std::string_view ReasonOf(int status);
/// A complete reply with Content-Length.
std::string Answer(std::string_view body, std::string_view statusLine = "200 OK",
                   std::string_view headers = "Content-Type: text/xml\r\n");
std::string Answer(std::string_view body, int status, std::string_view headers);

}  // namespace loopback
