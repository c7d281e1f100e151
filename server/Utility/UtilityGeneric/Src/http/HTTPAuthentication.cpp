#include "http/HTTPAuthentication.h"

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/Secret.h"
#include "http/HTTPProxy.h"
#include "http/HTTPUrl.h"

namespace {

/// libcurl takes the proxy's user from the proxy's URL, in UTF-8 for all schemes.
unsigned int UnusableForProxy(const String& proxy) {
  Secret<String> user;
  Secret<String> password;
  HTTPProxy::GetCredentials(proxy, user, password);
  const Secret<NarrowString> narrowUser(BaseStringUtil::ToUTF8(user));
  const Secret<NarrowString> narrowPassword(BaseStringUtil::ToUTF8(password));
  const HTTPCredentials credentials(narrowUser, narrowPassword);
  return credentials.Unusable() | (credentials.IsASCII() ? 0U : unsigned{kAuthNTLM});
}

/// Without a user, only the identity of the process can be used.
unsigned int UsableSchemes(unsigned int schemes, bool hasUser) {
  return hasUser ? schemes : schemes & kAuthNegotiate;
}

}  // namespace

HTTPAuthentication::HTTPAuthentication(const String& url, const HTTPCredentials& credentials,
                                       const HTTPClientOptions& options)
    : m_hasToken(!options.bearerToken.empty()),
      m_allowsUnencryptedBasic(options.allowBasicOverPlainHttp),
      m_unusable(credentials.Unusable()),
      m_unusableForProxy(UnusableForProxy(*options.proxy)),
      m_isServiceHTTPS(HTTPUrl::IsHTTPS(url)),
      m_isServiceLocal(HTTPUrl::IsLoopback(url)),
      m_isProxyUnencrypted(HTTPProxy::IsUnencrypted(*options.proxy)),
      m_memory(options.logInMemory ? options.logInMemory : std::make_shared<HTTPLogInMemory>()),
      m_service(m_hasToken ? 0 : UsableSchemes(options.authSchemes, credentials.HasUser()),
                m_memory->service),
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
  return !m_isServiceHTTPS && !(m_isServiceLocal && HTTPUrl::IsLoopbackAddress(peer));
}

/// Only a status of 2xx proves that a log-in is accepted: others may come from a gateway.
void HTTPAuthentication::ProveLogIn(const HTTPAuthRound& round) noexcept {
  const bool isToService = round.isConnected && HasServiceLogIn();
  const bool isToProxy = HasProxyLogIn();
  if (round.isComplete && round.status / 100 == 2) {
    if (isToService) m_memory->serviceHasAccepted = true;
    if (isToProxy) m_memory->proxyHasAccepted = true;
  }
  m_isLogInUnproven =
      (isToService && !m_memory->serviceHasAccepted) || (isToProxy && !m_memory->proxyHasAccepted);
}

bool HTTPAuthentication::OnRound(const HTTPAuthRound& round) {
  ProveLogIn(round);
  const bool isServiceUnencrypted = IsServiceUnencrypted(round.peer);
  if ((m_service.Scheme() == kAuthBasic && isServiceUnencrypted) ||
      (m_proxy.Scheme() == kAuthBasic && m_isProxyUnencrypted))
    m_wasBasicUnencrypted = true;
  if (m_hasToken && m_allowsUnencryptedBasic && isServiceUnencrypted && !round.peer.empty())
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
  if (m_hasToken && !isProxy) return false;
  HTTPLogIn& logIn = isProxy ? m_proxy : m_service;
  unsigned int offered = isProxy ? round.offeredByProxy : round.offeredByService;
  m_wasDigestRejected = logIn.Scheme() == kAuthDigest;
  if (logIn.OffersOnlyWeaker(offered)) {
    m_advice =
        L"the password is not sent with a weaker scheme than before: configure the server to offer "
        L"the former scheme again";
  }
  if (!m_allowsUnencryptedBasic && (isProxy ? m_isProxyUnencrypted : isServiceUnencrypted))
    Exclude(kAuthBasic, logIn,
            L"a password is not sent by Basic over plain http to another machine: use https, or "
            L"set allowBasicOverPlainHttp",
            offered);
  const unsigned int unusable = isProxy ? m_unusableForProxy : m_unusable;
  if ((unusable & kAuthBasic) != 0)
    Exclude(kAuthBasic, logIn,
            L"Basic cannot send a user name with a colon: use another user name, or ask the "
            L"administrator for another way to log in",
            offered);
  if ((unusable & kAuthNTLM) != 0)
    Exclude(kAuthNTLM, logIn,
            isProxy ? L"NTLM can send only ASCII characters to a proxy: use another user name or "
                      L"password, or ask the administrator for another way to log in"
                    : L"NTLM can send only characters of ISO 8859-1 (Latin-1): use another user "
                      L"name or password, or ask the administrator for another way to log in",
            offered);
  return logIn.OnRejected(offered);
}

void HTTPAuthentication::Exclude(unsigned int scheme, const HTTPLogIn& logIn, const wchar_t* advice,
                                 unsigned int& offered) {
  if (logIn.Usable(offered) == scheme) m_advice = advice;
  offered &= ~scheme;
}
