#include "support/WireServer.h"

#include <openssl/ssl.h>
#include <poll.h>

#include <algorithm>
#include <mutex>
#include <utility>

namespace {

/// A tunnel sends and receives on two threads, which OpenSSL does not allow. Therefore the stream
/// waits for bytes without the lock.
class TlsStream : public loopback::Stream {
 public:
  TlsStream(SSL_CTX* context, int socket, std::atomic<std::size_t>& resumed)
      : m_ssl(SSL_new(context)), m_resumed(resumed) {
    SSL_set_fd(m_ssl.get(), socket);
    SSL_clear_mode(m_ssl.get(), SSL_MODE_AUTO_RETRY);  // it would wait inside SSL_read
  }

  bool Accept() { return SSL_accept(m_ssl.get()) == 1; }
  long Send(std::string_view bytes) override {
    const std::lock_guard lock(m_mutex);
    const std::size_t record = std::min<std::size_t>(bytes.size(), 1 << 14);
    return SSL_write(m_ssl.get(), bytes.data(), static_cast<int>(record));
  }
  long Receive(char* place, std::size_t room) override {
    int received = 0;
    bool isPartial = true;
    while (isPartial) {
      AwaitBytes();
      const std::lock_guard lock(m_mutex);
      received = SSL_read(m_ssl.get(), place, static_cast<int>(room));
      isPartial = received <= 0 && SSL_get_error(m_ssl.get(), received) == SSL_ERROR_WANT_READ;
    }
    if (received > 0 && !std::exchange(m_hasReceived, true) && SSL_session_reused(m_ssl.get()) == 1)
      ++m_resumed;
    return received;
  }
  void Close() override {
    const std::lock_guard lock(m_mutex);
    SSL_shutdown(m_ssl.get());
  }

 private:
  struct Free {
    void operator()(SSL* ssl) const { SSL_free(ssl); }
  };
  void AwaitBytes() {
    {
      const std::lock_guard lock(m_mutex);
      if (SSL_has_pending(m_ssl.get()) == 1) return;
    }
    pollfd socket{SSL_get_fd(m_ssl.get()), POLLIN, 0};
    poll(&socket, 1, -1);
  }

  std::mutex m_mutex;
  const std::unique_ptr<SSL, Free> m_ssl;
  std::atomic<std::size_t>& m_resumed;
  bool m_hasReceived = false;
};

loopback::Options Listening(SSL_CTX* tls, int port, std::atomic<std::size_t>& resumed) {
  loopback::Options options;
  options.port = port;
  if (tls)
    options.openStream = [tls, &resumed](int socket) -> std::unique_ptr<loopback::Stream> {
      auto stream = std::make_unique<TlsStream>(tls, socket, resumed);
      return stream->Accept() ? std::move(stream) : nullptr;
    };
  return options;
}

}  // namespace

WireServer::WireServer(Handler handler, SSL_CTX* tls, int port)
    : m_server(std::move(handler), Listening(tls, port, m_resumed)) {}

WireServer::WireServer(std::string answer)
    : WireServer(
          [answer = std::move(answer)](loopback::Connection& connection, const loopback::Request&) {
            connection.Send(answer);
          }) {}

WireServer::WireServer(std::string greeting, Greets)
    : m_server([](loopback::Connection&, const loopback::Request&) {},
               {.greeting = std::move(greeting)}) {}

void AnswerOrTunnel(loopback::Connection& connection, const loopback::Request& request) {
  const std::string target = request.head.substr(0, request.head.find("\r\n"));
  if (target.starts_with("CONNECT "))
    loopback::Tunnel(connection, target.substr(8, target.find(' ', 8) - 8));
  else
    connection.Send(Answer("<r/>"));
}
