#pragma once

#include <string>
#include <string_view>

/// What a message of libcurl tells about the progress of a connection.
enum class HTTPConnectionEvent { kNone, kConnecting, kHandshake };

/// What libcurl only says in its messages. Keeps the parts named here and nothing else, because
/// other messages contain secrets. A text is empty if it is unknown.
class HTTPConnectionNotes {
 public:
  static constexpr std::size_t kMaxProblemBytes = 512;

  /// Call before each request.
  void BeginRequest() noexcept;
  /// Reads one message.
  HTTPConnectionEvent OnMessage(std::string_view message);

  // About the last request:
  /// The last error text of the Kerberos library, on one line and truncated to kMaxProblemBytes.
  const std::string& LogInProblem() const noexcept { return m_logInProblem; }
  /// TLS version, such as "TLSv1.3"; through a proxy, that of the tunnel.
  const std::string& TLSProtocol() const noexcept { return m_tlsProtocol; }
  /// True if the other end asked for a client certificate in the TLS handshake.
  bool WasCertificateRequested() const noexcept { return m_wasCertificateRequested; }

  // About the latest connection, which the next requests may use again:
  /// IP address and port, as in "127.0.0.1:80" and "[::1]:80"; if it failed, the last one tried.
  const std::string& Address() const noexcept { return m_address; }
  /// The name of the host, of the proxy if there is one; empty if it failed.
  const std::string& Host() const noexcept { return m_host; }

 private:
  void OnConnected(std::string_view rest);

  std::string m_logInProblem;
  std::string m_tlsProtocol;
  bool m_wasCertificateRequested = false;
  std::string m_address;
  std::string m_host;
};
