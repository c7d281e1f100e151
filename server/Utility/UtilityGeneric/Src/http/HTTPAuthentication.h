#pragma once

#include <memory>
#include <string_view>

#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/String.h"
#include "http/HTTPLogIn.h"

/// What came of one request of an exchange.
struct HTTPAuthRound {
  bool isComplete = false;            ///< there is a whole answer
  long status = 0;                    ///< of the service, or of a proxy that answers in its place
  long connectStatus = 0;             ///< of a proxy that was asked for a connection
  unsigned int offeredByService = 0;  ///< sets of HTTPAuthScheme
  unsigned int offeredByProxy = 0;
  std::string_view peer;  ///< address at the other end of the connection
};

/// The log-ins of one client to its service and its proxy.
class HTTPAuthentication {
 public:
  /// `options.proxy` is set.
  HTTPAuthentication(const String& url, bool hasUser, const HTTPClientOptions& options);

  unsigned int ServiceScheme() const noexcept { return m_service.Scheme(); }
  unsigned int ProxyScheme() const noexcept { return m_proxy.Scheme(); }
  void BeginExchange() noexcept;
  /// True when the request is to be sent again, with the schemes of now.
  bool OnRound(const HTTPAuthRound& round);

  // Of the latest exchange:
  /// Why a refusal was final although a log-in was offered, and what to do; may be empty.
  const String& Advice() const noexcept { return m_advice; }
  bool WasBasicUnencrypted() const noexcept { return m_wasBasicUnencrypted; }
  /// Of the latest round.
  bool WasDigestRejected() const noexcept { return m_wasDigestRejected; }

  /// The schemes that may be used with the proxy.
  static unsigned int ProxySchemes(const HTTPClientOptions& options);

 private:
  bool IsServiceUnencrypted(std::string_view peer) const;

  const bool m_allowsUnencryptedBasic;
  const bool m_isServiceHTTPS;
  const bool m_isServiceLocal;
  const bool m_isProxyUnencrypted;
  const std::shared_ptr<HTTPLogInMemory> m_memory;
  HTTPLogIn m_service;
  HTTPLogIn m_proxy;
  String m_advice;
  bool m_wasBasicUnencrypted = false;
  bool m_wasDigestRejected = false;
};
