#include "http/HTTPAuthentication.h"

#include "Utility/Generic/Secret.h"
#include "http/HTTPProxy.h"
#include "http/HTTPUrl.h"

namespace {

/// A colon would end the user name of Basic, and its rest would become part of the password.
bool HasColon(std::string_view user) { return user.find(':') != std::string_view::npos; }

bool HasProxyUserColon(const String& proxy) {
  Secret<String> user;
  Secret<String> password;
  HTTPProxy::GetCredentials(proxy, user, password);
  return user.view().find(L':') != std::wstring_view::npos;
}

/// Without a user, only the identity of the process can be used.
unsigned int UsableSchemes(unsigned int schemes, bool hasUser) {
  return hasUser ? schemes : schemes & kAuthNegotiate;
}

}  // namespace

HTTPAuthentication::HTTPAuthentication(const String& url, std::string_view user,
                                       const HTTPClientOptions& options)
    : m_allowsUnencryptedBasic(options.allowBasicOverPlainHttp),
      m_hasUserColon(HasColon(user)),
      m_hasProxyUserColon(HasProxyUserColon(*options.proxy)),
      m_isServiceHTTPS(HTTPUrl::IsHTTPS(url)),
      m_isServiceLocal(HTTPUrl::IsLoopback(url)),
      m_isProxyUnencrypted(HTTPProxy::IsUnencrypted(*options.proxy)),
      m_memory(options.logInMemory ? options.logInMemory : std::make_shared<HTTPLogInMemory>()),
      m_service(UsableSchemes(options.authSchemes, !user.empty()), m_memory->service),
      m_proxy(ProxySchemes(options), m_memory->proxy) {}

/// If the proxy's URL contains a user, the identity of the process is used only if no password
/// scheme is allowed.
unsigned int HTTPAuthentication::ProxySchemes(const HTTPClientOptions& options) {
  Secret<String> user;
  Secret<String> password;
  HTTPProxy::GetCredentials(*options.proxy, user, password);
  const bool hasUser = !user.empty();
  const unsigned int passwordSchemes = options.authSchemes & kAuthPasswordSchemes;
  return UsableSchemes(hasUser && passwordSchemes != 0 ? passwordSchemes : options.authSchemes,
                       hasUser);
}

void HTTPAuthentication::BeginExchange() noexcept {
  m_service.BeginExchange();
  m_proxy.BeginExchange();
  m_advice.clear();
  m_wasBasicUnencrypted = false;
}

/// True if others on the network can read requests to the service. Checks the address of the peer
/// too, because the peer may be a proxy on another machine.
bool HTTPAuthentication::IsServiceUnencrypted(std::string_view peer) const {
  const bool isPeerLocal = peer.starts_with("127.") || peer == "::1";
  return !m_isServiceHTTPS && !(m_isServiceLocal && isPeerLocal);
}

bool HTTPAuthentication::OnRound(const HTTPAuthRound& round) {
  const bool isServiceUnencrypted = IsServiceUnencrypted(round.peer);
  if ((m_service.Scheme() == kAuthBasic && isServiceUnencrypted) ||
      (m_proxy.Scheme() == kAuthBasic && m_isProxyUnencrypted))
    m_wasBasicUnencrypted = true;
  m_wasDigestRejected = false;
  if (round.status != 0) m_memory->hasAnswered = true;

  const bool isProxy = (round.isComplete && round.status == 407) ||
                       (round.status == 0 && round.connectStatus == 407);
  if (!round.isComplete && !isProxy) return false;
  if (!isProxy) m_proxy.OnAccepted();
  if (!isProxy && round.status != 401) {
    m_service.OnAccepted();
    return false;
  }
  HTTPLogIn& logIn = isProxy ? m_proxy : m_service;
  unsigned int offered = isProxy ? round.offeredByProxy : round.offeredByService;
  m_wasDigestRejected = logIn.Scheme() == kAuthDigest;
  if (logIn.OffersOnlyWeaker(offered)) {
    m_advice =
        L"the password is not sent with a weaker scheme than before: configure the server to offer "
        L"the former scheme again";
  }
  if (!m_allowsUnencryptedBasic && (isProxy ? m_isProxyUnencrypted : isServiceUnencrypted)) {
    if (offered == kAuthBasic) {
      m_advice =
          L"a password is not sent by Basic over plain http to another machine: use https, or set "
          L"allowBasicOverPlainHttp";
    }
    offered &= ~static_cast<unsigned int>(kAuthBasic);
  }
  if (isProxy ? m_hasProxyUserColon : m_hasUserColon) {
    if (offered == kAuthBasic) {
      m_advice =
          L"Basic cannot send a user name with a colon: use another user name, or ask the server's "
          L"administrator for another way to log in";
    }
    offered &= ~static_cast<unsigned int>(kAuthBasic);
  }
  return logIn.OnRejected(offered);
}
