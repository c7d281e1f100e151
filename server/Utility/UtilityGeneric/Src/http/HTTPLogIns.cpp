#include "http/HTTPLogIns.h"

#include "Utility/Generic/Secret.h"
#include "http/HTTPProxy.h"
#include "http/HTTPUrl.h"

namespace {

/// Without a user, only the process's own identity can be used.
unsigned int UsableSchemes(unsigned int schemes, bool hasUser) {
  return hasUser ? schemes : schemes & kAuthNegotiate;
}

}  // namespace

HTTPLogIns::HTTPLogIns(const String& url, bool hasUser, const HTTPClientOptions& options)
    : m_allowsBasicInClear(options.allowBasicOverPlainHttp),
      m_isServiceHTTPS(HTTPUrl::IsHTTPS(url)),
      m_isServiceHere(HTTPUrl::IsThisMachine(url)),
      m_isProxyInClear(HTTPProxy::IsInClear(*options.proxy)),
      m_memory(options.logInMemory ? options.logInMemory : std::make_shared<HTTPLogInMemory>()),
      m_service(UsableSchemes(options.authSchemes, hasUser), m_memory->service),
      m_proxy(ProxySchemes(options), m_memory->proxy) {}

/// With a user inside the proxy's URL, the process's identity is used only when nothing else may
/// be.
unsigned int HTTPLogIns::ProxySchemes(const HTTPClientOptions& options) {
  Secret<String> user;
  Secret<String> password;
  HTTPProxy::GetCredentials(*options.proxy, user, password);
  const bool hasUser = !user.empty();
  const unsigned int byPassword = options.authSchemes & kAuthPasswordSchemes;
  return UsableSchemes(hasUser && byPassword != 0 ? byPassword : options.authSchemes, hasUser);
}

void HTTPLogIns::BeginExchange() noexcept {
  m_service.BeginExchange();
  m_proxy.BeginExchange();
  m_advice.clear();
  m_wasBasicInClear = false;
}

/// True when others on the way can read what is sent to the service. A proxy may be elsewhere
/// whatever the service's name is.
bool HTTPLogIns::IsServiceInClear(std::string_view peer) const {
  const bool isPeerHere = peer.starts_with("127.") || peer == "::1";
  return !m_isServiceHTTPS && !(m_isServiceHere && isPeerHere);
}

bool HTTPLogIns::TakeRound(const HTTPRound& round) {
  const bool isServiceInClear = IsServiceInClear(round.peer);
  if ((m_service.Scheme() == kAuthBasic && isServiceInClear) ||
      (m_proxy.Scheme() == kAuthBasic && m_isProxyInClear))
    m_wasBasicInClear = true;
  m_wasDigestRefused = false;

  const bool isProxy =
      (round.isWhole && round.status == 407) || (round.status == 0 && round.connectStatus == 407);
  if (!round.isWhole && !isProxy) return false;
  if (!isProxy) m_proxy.OnAcceptance();
  if (!isProxy && round.status != 401) {
    m_service.OnAcceptance();
    return false;
  }
  HTTPLogIn& logIn = isProxy ? m_proxy : m_service;
  unsigned int offered = isProxy ? round.offeredByProxy : round.offeredByService;
  m_wasDigestRefused = logIn.Scheme() == kAuthDigest;
  if (logIn.IsOnlyWeaker(offered)) {
    m_advice =
        L"the password is not sent in a weaker way than before: have the server offer the former "
        L"one again";
  }
  if (!m_allowsBasicInClear && (isProxy ? m_isProxyInClear : isServiceInClear)) {
    if (offered == kAuthBasic) {
      m_advice =
          L"a password is not sent by Basic over plain http to another machine: use https, or set "
          L"allowBasicOverPlainHttp";
    }
    offered &= ~static_cast<unsigned int>(kAuthBasic);
  }
  return logIn.OnRefusal(offered);
}
