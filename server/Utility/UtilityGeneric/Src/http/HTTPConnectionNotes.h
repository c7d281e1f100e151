#pragma once

#include <string>
#include <string_view>

/// What libcurl only says in its messages. Keeps the parts named here and nothing else, because
/// other messages contain secrets.
class HTTPConnectionNotes {
 public:
  static constexpr std::size_t kMaxProblemBytes = 512;

  /// Call before each request.
  void BeginRequest() noexcept;
  /// Reads one message.
  void OnMessage(std::string_view message);

  /// The last error text of the Kerberos library in this request, on one line and truncated to
  /// kMaxProblemBytes. Empty: none.
  const std::string& LogInProblem() const noexcept { return m_logInProblem; }
  /// TLS version of the connection, such as "TLSv1.3". Through a proxy, that of the tunnel. Empty:
  /// no TLS, or the kept-alive connection.
  const std::string& TLSProtocol() const noexcept { return m_tlsProtocol; }

 private:
  std::string m_logInProblem;
  std::string m_tlsProtocol;
};
