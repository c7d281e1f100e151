#pragma once

#include <memory>
#include <string_view>

#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/String.h"
#include "http/HTTPCredentials.h"
#include "http/HTTPLogIn.h"

/// The result of one request of an exchange.
struct HTTPAuthRound {
  bool isConnected = false;           ///< the request was sent, at least in part
  bool isComplete = false;            ///< the response is complete
  long status = 0;                    ///< of the service or of the proxy
  long connectStatus = 0;             ///< of the proxy's response to CONNECT
  unsigned int offeredByService = 0;  ///< set of HTTPAuthScheme
  unsigned int offeredByProxy = 0;
  std::string_view peer;  ///< IP address of the other end
};

/// The schemes with which a client logs in to its service and its proxy: values of HTTPAuthScheme;
/// 0: none.
struct HTTPLogInSchemes {
  unsigned int service = 0;
  unsigned int proxy = 0;
};

/// The authentication of one client to its service and its proxy.
class HTTPAuthentication {
 public:
  /// `options.proxy` must be set.
  HTTPAuthentication(const String& url, const HTTPCredentials& credentials,
                     const HTTPClientOptions& options);

  unsigned int ServiceScheme() const noexcept { return m_service.Scheme(); }
  unsigned int ProxyScheme() const noexcept { return m_proxy.Scheme(); }
  HTTPLogInSchemes Schemes() const noexcept { return {ServiceScheme(), ProxyScheme()}; }
  /// For another connection of the client: the first exchange begins with schemes that the peers
  /// have accepted.
  void BeginWith(const HTTPLogInSchemes& schemes) noexcept {
    m_service.BeginWith(schemes.service);
    m_proxy.BeginWith(schemes.proxy);
  }
  void BeginExchange() noexcept;
  /// Call after each request. True: send it again with ServiceScheme() and ProxyScheme().
  bool OnRound(const HTTPAuthRound& round);

  // About the last exchange:
  /// Why no offered scheme was used, and what to do; may be empty.
  const String& Advice() const noexcept { return m_advice; }
  /// True if this client, or one with the same HTTPLogInMemory, got a response of the service.
  bool HasServiceAnswered() const noexcept { return m_memory->hasAnswered; }
  /// Sets of the schemes that were tried and rejected.
  unsigned int RejectedByService() const noexcept { return m_service.Rejected(); }
  unsigned int RejectedByProxy() const noexcept { return m_proxy.Rejected(); }
  /// True if the next request contains a log-in that has never been accepted.
  bool MustProveLogIn() const noexcept {
    return (HasServiceLogIn() && !m_memory->serviceHasAccepted) ||
           (HasProxyLogIn() && !m_memory->proxyHasAccepted);
  }
  /// True if the last request contained a log-in that has never been accepted.
  bool IsLogInUnproven() const noexcept { return m_isLogInUnproven; }
  bool WasBasicUnencrypted() const noexcept { return m_wasBasicUnencrypted; }
  /// True if the last request was rejected after a Digest log-in.
  bool WasDigestRejected() const noexcept { return m_wasDigestRejected; }

  /// True if the client uses a token instead of user and password.
  bool HasToken() const noexcept { return m_hasToken; }
  /// True if the token must not be sent at all: others on the network could read it.
  bool IsTokenForbidden() const noexcept { return MustTokenStayHere() && !m_isServiceLocal; }
  /// True if the token must not be sent to another machine, such as a proxy.
  bool MustTokenStayHere() const noexcept {
    return m_hasToken && !m_isServiceHTTPS && !m_allowsUnencryptedBasic;
  }

  /// Set of schemes that may be used with the proxy.
  static unsigned int ProxySchemes(const HTTPClientOptions& options);

 private:
  bool IsServiceUnencrypted(std::string_view peer) const;
  bool HasServiceLogIn() const noexcept { return m_hasToken || m_service.Scheme() != 0; }
  bool HasProxyLogIn() const noexcept { return m_proxy.Scheme() != 0; }
  void ProveLogIn(const HTTPAuthRound& round) noexcept;
  /// Removes the scheme from a set of offered ones. If no other one is usable, sets the advice.
  void Exclude(unsigned int scheme, const HTTPLogIn& logIn, const wchar_t* advice,
               unsigned int& offered);

  const bool m_hasToken;
  const bool m_allowsUnencryptedBasic;
  const unsigned int m_unusable;  // schemes that cannot send the user or the password
  const unsigned int m_unusableForProxy;
  const bool m_isServiceHTTPS;
  const bool m_isServiceLocal;
  const bool m_isProxyUnencrypted;
  const std::shared_ptr<HTTPLogInMemory> m_memory;
  HTTPLogIn m_service;
  HTTPLogIn m_proxy;
  String m_advice;
  bool m_isLogInUnproven = false;
  bool m_wasBasicUnencrypted = false;
  bool m_wasDigestRejected = false;
};
