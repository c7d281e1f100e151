#pragma once

#include <openssl/types.h>

#include <atomic>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

/// A request as the server received it.
struct ReceivedRequest {
  std::string head;  // with its final empty line
  std::string body;
  std::size_t connection = 0;  // 0 for the first, and so on

  /// The value of the header, or an empty text.
  std::string Header(std::string_view lowerCaseName) const;
};

/// One accepted connection, plain or TLS.
class ServedConnection {
 public:
  ServedConnection(int socket, SSL* tls) : m_socket(socket), m_tls(tls) {}
  ~ServedConnection();
  ServedConnection(const ServedConnection&) = delete;
  ServedConnection& operator=(const ServedConnection&) = delete;

  bool Send(std::string_view bytes);
  /// No further request is taken; the peer sees the end.
  void Close();
  /// The peer sees a reset.
  void Reset();
  /// Returns when the peer has gone or the server ends.
  void AwaitPeerGone();
  std::size_t Receive(char* place, std::size_t room);
  bool IsClosed() const { return m_closed; }
  /// The TLS handshake took up what an earlier connection had agreed on.
  bool IsResumed() const;
  void ShutDown();

 private:
  int m_socket;
  SSL* m_tls;
  std::atomic<bool> m_closed{false};
};

/// Answers a CONNECT request for "127.0.0.1:PORT" and passes bytes on both ways until an end comes.
void Tunnel(ServedConnection& client, const std::string& authority);

/// A server on a free loopback port whose answers are bytes: right ones and broken ones.
class ScriptedServer {
 public:
  using Handler = std::function<void(ServedConnection&, const ReceivedRequest&)>;

  /// Without a port it is a free one.
  explicit ScriptedServer(Handler handler, SSL_CTX* tls = nullptr, std::string greeting = {},
                          int port = 0);
  /// Answers every request with the same bytes and keeps the connection.
  explicit ScriptedServer(std::string answer);
  /// Sends the bytes on every connection before it has received anything.
  struct Greets {};
  ScriptedServer(std::string greeting, Greets);
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  std::string Port() const { return std::to_string(m_port); }
  /// "127.0.0.1:PORT"
  std::string Authority() const { return "127.0.0.1:" + Port(); }
  std::vector<ReceivedRequest> Requests();
  std::size_t Connections();
  /// Those that received a request and whose TLS handshake was resumed.
  std::size_t ResumedConnections();

 private:
  void Accept();
  void Serve(ServedConnection& connection, std::size_t number);

  Handler m_handler;
  SSL_CTX* m_tls;
  std::string m_greeting;
  int m_listening = -1;
  int m_port = 0;
  std::atomic<bool> m_ends{false};
  std::mutex m_mutex;
  std::vector<ReceivedRequest> m_requests;
  std::size_t m_resumed = 0;
  std::list<ServedConnection> m_connections;
  std::list<std::thread> m_threads;
  std::thread m_accepting;
};

/// A whole answer with Content-Length.
std::string Answer(std::string_view body, std::string_view statusLine = "200 OK",
                   std::string_view headers = "Content-Type: text/xml\r\n");
