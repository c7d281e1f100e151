#include "support/WireServer.h"

#include <openssl/ssl.h>

#include <algorithm>
#include <utility>

namespace {

class TlsStream : public loopback::Stream {
 public:
  TlsStream(SSL_CTX* context, int socket, std::atomic<std::size_t>& resumed)
      : m_ssl(SSL_new(context)), m_resumed(resumed) {
    SSL_set_fd(m_ssl.get(), socket);
  }

  bool Accept() { return SSL_accept(m_ssl.get()) == 1; }
  long Send(std::string_view bytes) override {
    const std::size_t record = std::min<std::size_t>(bytes.size(), 1 << 14);
    return SSL_write(m_ssl.get(), bytes.data(), static_cast<int>(record));
  }
  long Receive(char* place, std::size_t room) override {
    const int received = SSL_read(m_ssl.get(), place, static_cast<int>(room));
    if (received > 0 && !std::exchange(m_hasReceived, true) && SSL_session_reused(m_ssl.get()) == 1)
      ++m_resumed;
    return received;
  }
  void Close() override { SSL_shutdown(m_ssl.get()); }

 private:
  struct Free {
    void operator()(SSL* ssl) const { SSL_free(ssl); }
  };
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
