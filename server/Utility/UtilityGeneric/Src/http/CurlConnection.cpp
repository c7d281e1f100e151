#include <curl/curl.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <new>
#include <optional>
#include <string_view>
#include <vector>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/Cancellation.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/LinkedLibraries.h"
#include "Utility/Generic/Secret.h"
#include "errors/MessageCatalogue.h"
#include "http/HTTPAuthentication.h"
#include "http/HTTPClientCertificate.h"
#include "http/HTTPConnection.h"
#include "http/HTTPConnectionNotes.h"
#include "http/HTTPCredentials.h"
#include "http/HTTPProxy.h"
#include "http/HTTPReceiver.h"
#include "http/HTTPUrl.h"
#include "http/KerberosServiceTicket.h"
#include "system/CloseOnExec.h"
#include "system/SignalBlock.h"
#include "text/ASCIIText.h"
#include "xml/XmlParser.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr long kMaxLogInRounds = 6;
constexpr std::chrono::seconds kTicketKnown{10};
constexpr std::int64_t kSecondsPerDay = 86400;

struct Scheme {
  unsigned long curlBit;
  unsigned int bit;
};
constexpr Scheme kSchemes[] = {{CURLAUTH_BASIC, kAuthBasic},
                               {CURLAUTH_DIGEST, kAuthDigest},
                               {CURLAUTH_NTLM, kAuthNTLM},
                               {CURLAUTH_NEGOTIATE, kAuthNegotiate}};

struct Feature {
  int curlBit;
  const wchar_t* name;
};
constexpr Feature kFeatures[] = {{CURL_VERSION_BROTLI, L"brotli"},
                                 {CURL_VERSION_GSSAPI, L"GSS-API"},
                                 {CURL_VERSION_HTTP2, L"HTTP2"},
                                 {CURL_VERSION_HTTPS_PROXY, L"HTTPS-proxy"},
                                 {CURL_VERSION_IDN, L"IDN"},
                                 {CURL_VERSION_IPV6, L"IPv6"},
                                 {CURL_VERSION_KERBEROS5, L"Kerberos"},
                                 {CURL_VERSION_LIBZ, L"libz"},
                                 {CURL_VERSION_NTLM, L"NTLM"},
                                 {CURL_VERSION_SPNEGO, L"SPNEGO"},
                                 {CURL_VERSION_SSL, L"TLS"},
                                 {CURL_VERSION_ZSTD, L"zstd"}};

// Other parts of libcurl serve protocols that are not used here.
constexpr std::string_view kPartsInUse[] = {"libcurl", "zlib",    "brotli",
                                            "zstd",    "libidn2", "nghttp2"};

long ToCurlSchemes(unsigned int schemes) {
  unsigned long set = CURLAUTH_NONE;
  for (const Scheme& scheme : kSchemes)
    if ((schemes & scheme.bit) != 0) set |= scheme.curlBit;
  return static_cast<long>(set);
}

unsigned int FromCurlSchemes(long schemes) {
  unsigned int set = 0;
  for (const Scheme& scheme : kSchemes)
    if ((static_cast<unsigned long>(schemes) & scheme.curlBit) != 0) set |= scheme.bit;
  return set;
}

/// Keeps libcurl initialised. Not all builds of libcurl lock their own counter.
class CurlLibrary {
 public:
  CurlLibrary() {
    const std::lock_guard lock(Mutex());
    if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) throw std::bad_alloc();
  }
  ~CurlLibrary() {
    const std::lock_guard lock(Mutex());
    curl_global_cleanup();
  }
  CurlLibrary(const CurlLibrary&) = delete;
  CurlLibrary& operator=(const CurlLibrary&) = delete;

 private:
  static std::mutex& Mutex() {
    static std::mutex mutex;
    return mutex;
  }
};

/// A resolver thread of libcurl may outlive its transfer, and its code must stay loaded when the
/// host unloads these libraries. Therefore libcurl is never unloaded.
void KeepCurlLoaded() noexcept {
  Dl_info library{};
  if (dladdr(reinterpret_cast<const void*>(&curl_easy_init), &library) == 0) return;
  if (void* const handle = dlopen(library.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE))
    dlclose(handle);
}

struct FreeHeaders {
  void operator()(curl_slist* headers) const noexcept { curl_slist_free_all(headers); }
};
using HeaderList = std::unique_ptr<curl_slist, FreeHeaders>;

struct FailureCode {
  CURLcode code;
  HTTPFailure failure;
};
constexpr FailureCode kFailureCodes[] = {
    {CURLE_OK, HTTPFailure::kNone},
    {CURLE_URL_MALFORMAT, HTTPFailure::kBadURL},
    {CURLE_COULDNT_RESOLVE_HOST, HTTPFailure::kUnknownHost},
    {CURLE_COULDNT_RESOLVE_PROXY, HTTPFailure::kUnknownProxy},
    {CURLE_COULDNT_CONNECT, HTTPFailure::kConnectFailed},
    {CURLE_OPERATION_TIMEDOUT, HTTPFailure::kConnectTimeout},
    {CURLE_PEER_FAILED_VERIFICATION, HTTPFailure::kCertificateRejected},
    {CURLE_SSL_CACERT_BADFILE, HTTPFailure::kCAFileUnreadable},
    {CURLE_SSL_CLIENTCERT, HTTPFailure::kClientCertificateRequired},
    {CURLE_SSL_CONNECT_ERROR, HTTPFailure::kTLSFailed},
    {CURLE_GOT_NOTHING, HTTPFailure::kClosedWithoutResponse},
    {CURLE_PARTIAL_FILE, HTTPFailure::kTruncated},
    {CURLE_RECV_ERROR, HTTPFailure::kReceiveFailed},
    {CURLE_SEND_ERROR, HTTPFailure::kSendFailed},
    {CURLE_BAD_CONTENT_ENCODING, HTTPFailure::kDecompressionFailed},
    {CURLE_WEIRD_SERVER_REPLY, HTTPFailure::kNotHTTP},
    {CURLE_UNSUPPORTED_PROTOCOL, HTTPFailure::kNotHTTP},
    {CURLE_PROXY, HTTPFailure::kProxyRefused},
};

HTTPFailure FailureOf(CURLcode code) {
  for (const FailureCode& known : kFailureCodes)
    if (known.code == code) return known.failure;
  return HTTPFailure::kOther;
}

std::uint64_t Unsigned(curl_off_t number) {
  return number > 0 ? static_cast<std::uint64_t>(number) : 0;
}

struct FreeURL {
  void operator()(CURLU* url) const noexcept { curl_url_cleanup(url); }
};
struct FreeText {
  void operator()(char* text) const noexcept { curl_free(text); }
};

/// How messages about a connection name the proxy.
struct ProxyPeer {
  String shown;  ///< URL without credentials; empty: no proxy
  std::string host;
  std::string port;  ///< with a colon
  bool isSOCKS = false;

  bool IsGiven() const { return !shown.empty(); }
};

/// Host (an IPv6 address without brackets) and port of a URL, as libcurl reads it; empty if it
/// cannot be read.
struct HostAndPort {
  explicit HostAndPort(const NarrowString& url) {
    const std::unique_ptr<CURLU, FreeURL> parsed(curl_url());
    if (!parsed) throw std::bad_alloc();
    if (curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), CURLU_NON_SUPPORT_SCHEME) !=
        CURLUE_OK)
      return;
    const auto part = [&parsed](CURLUPart which) {
      char* text = nullptr;
      curl_url_get(parsed.get(), which, &text, 0);
      const std::unique_ptr<char, FreeText> owner(text);
      return std::string(text ? text : "");
    };
    host = part(CURLUPART_HOST);
    if (host.starts_with('[')) host = host.substr(1, host.size() - 2);
    port = part(CURLUPART_PORT);
  }

  std::string host;
  std::string port;
};

ProxyPeer PeerOf(const String& proxy) {
  ProxyPeer peer;
  if (proxy.empty()) return peer;
  peer.shown = HTTPProxy::ForDisplay(proxy);
  const NarrowString url = BaseStringUtil::ToUTF8(peer.shown);
  peer.isSOCKS = ASCIIText::StartsWithIgnoringCase(url.view(), "socks");
  const auto [host, port] = HostAndPort(url);
  peer.host = host;
  const bool isHTTPS = ASCIIText::StartsWithIgnoringCase(url.view(), "https:");
  peer.port = ':' + (!port.empty() ? port : isHTTPS ? "443" : "1080");  // libcurl's defaults
  return peer;
}

/// The certificate file itself; libcurl does not copy it.
curl_blob Blob(const NarrowString& bytes) {
  return {const_cast<char*>(bytes.c_str()), bytes.size(), CURL_BLOB_NOCOPY};
}

long Milliseconds(std::uint32_t seconds) {
  const std::uint64_t milliseconds = std::uint64_t{seconds} * 1000;
  return milliseconds == 0 || milliseconds > INT_MAX ? long{INT_MAX}
                                                     : static_cast<long>(milliseconds);
}

class CurlConnection;

class CurlGroup final : public HTTPConnectionGroup {
 public:
  explicit CurlGroup(std::size_t connections);
  ~CurlGroup() override;
  CurlGroup(const CurlGroup&) = delete;
  CurlGroup& operator=(const CurlGroup&) = delete;

  void Wait(int milliseconds) override;
  void Wake() noexcept override { curl_multi_wakeup(m_multi); }

  /// Call once for each new connection.
  void Introduce(const CurlConnection& connection);
  /// Starts its request, which may end at once.
  void Begin(CurlConnection& connection);
  /// Removes it. Closes its network connection if a request is in progress.
  void Remove(CurlConnection& connection) noexcept;

 private:
  void Perform();
  void MarkResolverSockets();

  const CurlLibrary m_library;
  CURLM* m_multi;
  bool m_mayUseTLS = false;
  std::size_t m_introduced = 0;
  std::vector<CurlConnection*> m_busy;
};

class CurlConnection final : public HTTPConnection {
 public:
  CurlConnection(const NarrowString& url, const NarrowString& user, const NarrowString& password,
                 const HTTPClientOptions& options, CurlGroup& group, HTTPReceiver& receiver);
  CurlConnection(const CurlConnection& other, CurlGroup& group, HTTPReceiver& receiver);
  ~CurlConnection() override { Release(); }
  CurlConnection(const CurlConnection&) = delete;
  CurlConnection& operator=(const CurlConnection&) = delete;

  void SetHeaderLines(const NarrowString& lines) override;
  std::unique_ptr<HTTPConnection> Duplicate(HTTPConnectionGroup& group,
                                            HTTPReceiver& receiver) const override;
  void Begin(const HTTPRequest& request) override;
  bool IsBusy() const noexcept override { return m_isBusy; }
  void Cancel() noexcept override;
  HTTPFailure Failure() const override { return FailureOf(m_code); }
  HTTPRequestInfo Info() const override;
  String FailureReason() const override;

  // For CurlGroup:
  CURL* Handle() const noexcept { return m_easy; }
  bool MayUseTLS() const noexcept { return m_isHTTPS || m_proxy.IsGiven(); }
  /// Ends the request if it was cancelled or has timed out.
  void Check();
  void End(CURLcode code) noexcept;
  void EndWith(CURLcode result) noexcept;

 private:
  static std::size_t OnHeader(char* bytes, std::size_t size, std::size_t count,
                              void* self) noexcept;
  static std::size_t OnBody(char* bytes, std::size_t size, std::size_t count, void* self) noexcept;
  static int OnProgress(void* self, curl_off_t, curl_off_t received, curl_off_t,
                        curl_off_t sent) noexcept;
  static int OnConnected(void* self, char* peer, char* local, int peerPort, int localPort) noexcept;
  static int OnMessage(CURL*, curl_infotype kind, char* bytes, std::size_t count,
                       void* self) noexcept;
  static int OnResolve(void*, void*, void* self) noexcept;
  static curl_socket_t OnOpenSocket(void* self, curlsocktype, curl_sockaddr* address) noexcept;

  template <class Value>
  void Set(CURLoption option, Value value) {
    const CURLcode code = curl_easy_setopt(m_easy, option, value);
    if (code == CURLE_OUT_OF_MEMORY) throw std::bad_alloc();
    if (code != CURLE_OK)
      SUGThrow(ErrorMessage(L"The HTTP library rejects a setting: " +
                            BaseStringUtil::FromUTF8(curl_easy_strerror(code))),
               L"CurlConnection.cpp", __LINE__);
  }
  template <class Value>
  Value Get(CURLINFO info, Value value = {}) const {
    curl_easy_getinfo(m_easy, info, &value);
    return value;
  }
  void Configure(const NarrowString& url, const NarrowString& user, const NarrowString& password,
                 const HTTPClientOptions& options);
  void ConfigureTLS(const HTTPClientOptions& options);
  void ConfigureProxy(const HTTPClientOptions& options);
  void Release() noexcept;
  void ReplaceEasyHandle();
  void BeginStep(HTTPStep step) noexcept;
  void BeginConnecting() noexcept;
  bool GetTicket(const std::string& host, HTTPStep step, unsigned int& scheme,
                 Clock::time_point& knownUntil);
  void ReferToThis();
  bool IsIdle(std::uint32_t limitSeconds) const;
  bool UsesProxy() const;
  HTTPStep Reached(bool usesProxy) const;
  HTTPConnectionDetails Details(bool usesProxy) const;
  void GetCertificate(HTTPConnectionDetails& details) const;
  bool IsConnected() const { return Get<curl_off_t>(CURLINFO_PRETRANSFER_TIME_T) != 0; }
  std::uint64_t WireBytes() const { return Unsigned(Get<curl_off_t>(CURLINFO_SIZE_DOWNLOAD_T)); }

  const CurlLibrary m_library;
  const std::uint32_t m_timeoutSeconds;
  const std::uint32_t m_connectTimeoutSeconds;
  const bool m_isHTTPS;
  const bool m_hasToken;
  const bool m_wantsDetails;
  const std::string m_host;  // of the service
  const ProxyPeer m_proxy;
  const std::shared_ptr<HTTPClientCertificate> m_certificate;  // libcurl does not copy it
  CurlGroup& m_group;
  HTTPReceiver& m_receiver;
  CURL* m_easy = nullptr;
  HeaderList m_headers;
  HTTPConnectionNotes m_notes;
  bool m_isBusy = false;
  CURLcode m_code = CURLE_OK;
  char m_reason[CURL_ERROR_SIZE] = {};
  bool m_wasSent = false;             // the request was handed to libcurl
  bool m_mustProveLogIn = false;      // the request has a log-in that was never accepted
  HTTPStep m_step = HTTPStep::kNone;  // of the request
  bool m_onlyToThisMachine = false;   // the request
  curl_off_t m_transferred = 0;       // body bytes in both directions
  Clock::time_point m_lastActivity;
  Clock::time_point m_ticketUntil;       // until then, the Kerberos ticket is in the cache
  Clock::time_point m_proxyTicketUntil;  // the same for the proxy
};

CurlConnection::CurlConnection(const NarrowString& url, const NarrowString& user,
                               const NarrowString& password, const HTTPClientOptions& options,
                               CurlGroup& group, HTTPReceiver& receiver)
    : m_timeoutSeconds(*options.timeoutSeconds),
      m_connectTimeoutSeconds(*options.connectTimeoutSeconds),
      m_isHTTPS(HTTPUrl::IsHTTPS(BaseStringUtil::FromUTF8(url))),
      m_hasToken(!options.bearerToken.empty()),
      m_wantsDetails(options.wantsConnectionDetails),
      m_host(HostAndPort(url).host),
      m_proxy(PeerOf(*options.proxy)),
      m_certificate(std::make_shared<HTTPClientCertificate>(options)),
      m_group(group),
      m_receiver(receiver) {
  try {
    m_easy = curl_easy_init();
    if (!m_easy) throw std::bad_alloc();
    Configure(url, user, password, options);
    SetHeaderLines(NarrowString());
    m_group.Introduce(*this);
  } catch (...) {
    Release();
    throw;
  }
}

CurlConnection::CurlConnection(const CurlConnection& other, CurlGroup& group,
                               HTTPReceiver& receiver)
    : m_timeoutSeconds(other.m_timeoutSeconds),
      m_connectTimeoutSeconds(other.m_connectTimeoutSeconds),
      m_isHTTPS(other.m_isHTTPS),
      m_hasToken(other.m_hasToken),
      m_wantsDetails(other.m_wantsDetails),
      m_host(other.m_host),
      m_proxy(other.m_proxy),
      m_certificate(other.m_certificate),
      m_group(group),
      m_receiver(receiver) {
  try {
    m_easy = curl_easy_duphandle(other.m_easy);
    if (!m_easy) throw std::bad_alloc();
    ReferToThis();
    SetHeaderLines(NarrowString());
    m_group.Introduce(*this);
  } catch (...) {
    Release();
    throw;
  }
}

std::unique_ptr<HTTPConnection> CurlConnection::Duplicate(HTTPConnectionGroup& group,
                                                          HTTPReceiver& receiver) const {
  // Create makes all groups.
  return std::make_unique<CurlConnection>(*this, static_cast<CurlGroup&>(group), receiver);
}

void CurlConnection::Release() noexcept {
  if (m_easy) curl_easy_cleanup(m_easy);
}

/// Sets the pointers that a duplicated handle has from the other connection.
void CurlConnection::ReferToThis() {
  Set(CURLOPT_ERRORBUFFER, m_reason);
  Set(CURLOPT_HEADERDATA, this);
  Set(CURLOPT_WRITEDATA, this);
  Set(CURLOPT_XFERINFODATA, this);
  Set(CURLOPT_DEBUGDATA, this);
  Set(CURLOPT_PREREQDATA, this);
  Set(CURLOPT_RESOLVER_START_DATA, this);
  Set(CURLOPT_OPENSOCKETDATA, this);
  Set(CURLOPT_PRIVATE, this);
}

void CurlConnection::Configure(const NarrowString& url, const NarrowString& user,
                               const NarrowString& password, const HTTPClientOptions& options) {
  Set(CURLOPT_NOSIGNAL, 1L);
  ReferToThis();
  Set(CURLOPT_PROTOCOLS_STR, "http,https");
  Set(CURLOPT_URL, url.c_str());
  Set(CURLOPT_DISALLOW_USERNAME_IN_URL, 1L);
  Set(CURLOPT_FOLLOWLOCATION, 0L);
  // libcurl counts log-in rounds as redirects. Without a limit, a server could ask without end.
  Set(CURLOPT_MAXREDIRS, kMaxLogInRounds);
  Set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  Set(CURLOPT_ACCEPT_ENCODING, "");  // everything that this libcurl supports
  Set(CURLOPT_POST, 1L);
  Set(CURLOPT_BUFFERSIZE, static_cast<long>(kHTTPReceiveBufferBytes));
  Set(CURLOPT_TCP_KEEPALIVE, 1L);
  Set(CURLOPT_TCP_NODELAY, 1L);
  Set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  // A name server that does not answer must not delay a cancelled transfer.
  Set(CURLOPT_QUICK_EXIT, 1L);
  Set(CURLOPT_CONNECTTIMEOUT_MS, Milliseconds(m_connectTimeoutSeconds));
  Set(CURLOPT_HEADERFUNCTION, &OnHeader);
  Set(CURLOPT_WRITEFUNCTION, &OnBody);
  // Some loops of libcurl call only this function, such as the one that reads a proxy's refusal.
  Set(CURLOPT_XFERINFOFUNCTION, &OnProgress);
  Set(CURLOPT_NOPROGRESS, 0L);
  Set(CURLOPT_RESOLVER_START_FUNCTION, &OnResolve);
  Set(CURLOPT_OPENSOCKETFUNCTION, &OnOpenSocket);
  Set(CURLOPT_PREREQFUNCTION, &OnConnected);
  Set(CURLOPT_DEBUGFUNCTION, &OnMessage);
  if (m_hasToken) {
    // Not a header: libcurl sends this one only to the service, never in a CONNECT request.
    const Secret<NarrowString> token(BaseStringUtil::ToUTF8(options.bearerToken));
    Set(CURLOPT_XOAUTH2_BEARER, token.c_str());
  }
  // An empty user name makes libcurl use the identity of the process.
  if (!user.empty() || (options.authSchemes & kAuthNegotiate) != 0)
    Set(CURLOPT_USERNAME, user.c_str());
  if (!user.empty()) Set(CURLOPT_PASSWORD, password.c_str());
  ConfigureTLS(options);
  ConfigureProxy(options);
}

/// Sets the TLS version explicitly, so that a file named by OPENSSL_CONF cannot lower it.
void CurlConnection::ConfigureTLS(const HTTPClientOptions& options) {
  Set(CURLOPT_SSLVERSION, long{CURL_SSLVERSION_TLSv1_2});
  Set(CURLOPT_PROXY_SSLVERSION, long{CURL_SSLVERSION_TLSv1_2});
  // A resumed session keeps the certificate of its first connection. After a rejected certificate,
  // a valid new one would be rejected too.
  Set(CURLOPT_SSL_SESSIONID_CACHE, 0L);
  if (m_wantsDetails) Set(CURLOPT_CERTINFO, 1L);
  if (m_certificate->IsGiven()) {  // for the service, not for a proxy
    curl_blob certificate = Blob(m_certificate->Certificate());
    curl_blob key = Blob(m_certificate->Key());
    Set(CURLOPT_SSLCERTTYPE, m_certificate->IsPKCS12() ? "P12" : "PEM");
    Set(CURLOPT_SSLCERT_BLOB, &certificate);
    if (!m_certificate->IsPKCS12()) Set(CURLOPT_SSLKEY_BLOB, &key);
    // Without a password, OpenSSL would ask for it on the terminal.
    Set(CURLOPT_KEYPASSWD, m_certificate->Password().c_str());
    m_certificate->ErasePassword();
  }
  NarrowString caFile = BaseStringUtil::ToUTF8(options.caFile);
  if (caFile.empty()) {
    if (const char* const environment = std::getenv("SSL_CERT_FILE")) caFile = environment;
  }
  if (caFile.empty()) return;
  Set(CURLOPT_CAINFO, caFile.c_str());
  Set(CURLOPT_PROXY_CAINFO, caFile.c_str());
}

void CurlConnection::ConfigureProxy(const HTTPClientOptions& options) {
  const Secret<NarrowString> proxy(BaseStringUtil::ToUTF8(*options.proxy));
  Set(CURLOPT_PROXY, proxy.c_str());
  const unsigned int schemes = HTTPAuthentication::ProxySchemes(options);
  // A user inside the URL takes precedence over this one.
  if ((schemes & kAuthNegotiate) != 0) Set(CURLOPT_PROXYUSERNAME, "");
  unsigned long socks = CURLAUTH_NONE;
  // A SOCKS proxy gets user and password unencrypted, as with Basic.
  const bool isReadable =
      !options.allowBasicOverPlainHttp && HTTPProxy::IsUnencrypted(*options.proxy);
  if ((schemes & kAuthBasic) != 0 && !isReadable) socks |= CURLAUTH_BASIC;
  if ((schemes & kAuthNegotiate) != 0) socks |= CURLAUTH_GSSAPI;
  Set(CURLOPT_SOCKS5_AUTH, static_cast<long>(socks));
}

void CurlConnection::SetHeaderLines(const NarrowString& lines) {
  HeaderList list;
  const auto append = [&list](const char* line) {
    curl_slist* const longer = curl_slist_append(list.get(), line);
    if (!longer) throw std::bad_alloc();
    static_cast<void>(list.release());
    list.reset(longer);
  };
  append("Expect:");  // send the body at once
  std::string_view rest = lines.view();
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    std::string line(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
    std::erase(line, '\r');
    if (!line.empty()) append(line.c_str());
  }
  Set(CURLOPT_HTTPHEADER, list.get());
  m_headers = std::move(list);
}

std::size_t CurlConnection::OnHeader(char* bytes, std::size_t, std::size_t count,
                                     void* self) noexcept {
  auto& connection = *static_cast<CurlConnection*>(self);
  connection.m_lastActivity = Clock::now();
  if (connection.m_step == HTTPStep::kTLS) connection.BeginStep(HTTPStep::kResponse);
  // libcurl counts the requests of a log-in as redirects.
  const long request = connection.Get<long>(CURLINFO_REDIRECT_COUNT);
  return connection.m_receiver.OnHeader({bytes, count}, request) ? count : CURL_WRITEFUNC_ERROR;
}

std::size_t CurlConnection::OnBody(char* bytes, std::size_t, std::size_t count,
                                   void* self) noexcept {
  auto& connection = *static_cast<CurlConnection*>(self);
  const std::uint64_t announced =
      Unsigned(connection.Get<curl_off_t>(CURLINFO_CONTENT_LENGTH_DOWNLOAD_T));
  const bool isAccepted =
      connection.m_receiver.OnBody({bytes, count}, announced, connection.WireBytes());
  return isAccepted ? count : CURL_WRITEFUNC_ERROR;
}

int CurlConnection::OnProgress(void* self, curl_off_t, curl_off_t received, curl_off_t,
                               curl_off_t sent) noexcept {
  auto& connection = *static_cast<CurlConnection*>(self);
  // Bytes that belong neither to headers nor to a body, such as chunk extensions, do not count.
  if (received + sent != connection.m_transferred) connection.m_lastActivity = Clock::now();
  connection.m_transferred = received + sent;
  // libcurl does not apply its own time-out while it reads the refusal of a proxy.
  if (!connection.IsConnected() && connection.IsIdle(connection.m_connectTimeoutSeconds))
    connection.m_receiver.Fail(HTTPFailure::kConnectTimeout);
  return connection.m_receiver.OnProgress(Unsigned(received)) ? 0 : 1;
}

/// Called before a request is sent over a new or kept-alive connection.
int CurlConnection::OnConnected(void* self, char* peer, char*, int, int) noexcept {
  auto& connection = *static_cast<CurlConnection*>(self);
  connection.m_lastActivity = Clock::now();
  if (!connection.m_onlyToThisMachine || HTTPUrl::IsLoopbackAddress(peer)) {
    // The server may still reject the client certificate.
    const bool isTLSOver = !connection.m_isHTTPS || !connection.m_notes.WasCertificateRequested();
    if (isTLSOver)
      connection.BeginStep(connection.m_mustProveLogIn ? HTTPStep::kLogIn : HTTPStep::kResponse);
    return CURL_PREREQFUNC_OK;
  }
  connection.m_receiver.Fail(HTTPFailure::kTokenUnprotected);
  return CURL_PREREQFUNC_ABORT;
}

int CurlConnection::OnMessage(CURL*, curl_infotype kind, char* bytes, std::size_t count,
                              void* self) noexcept {
  if (kind != CURLINFO_TEXT) return 0;
  auto& connection = *static_cast<CurlConnection*>(self);
  try {
    const HTTPConnectionEvent event = connection.m_notes.OnMessage({bytes, count});
    if (event == HTTPConnectionEvent::kConnecting) connection.BeginConnecting();
    // The proxy may use TLS, too.
    if (event == HTTPConnectionEvent::kHandshake &&
        connection.Reached(connection.UsesProxy()) == HTTPStep::kTLS)
      connection.BeginStep(HTTPStep::kTLS);
  } catch (...) {
    connection.m_receiver.Fail(HTTPFailure::kOutOfMemory);
  }
  return 0;
}

int CurlConnection::OnResolve(void*, void*, void* self) noexcept {
  static_cast<CurlConnection*>(self)->BeginStep(HTTPStep::kNameResolution);
  return 0;
}

curl_socket_t CurlConnection::OnOpenSocket(void* self, curlsocktype,
                                           curl_sockaddr* address) noexcept {
  // Otherwise libcurl's message follows, after which the address is known.
  auto& connection = *static_cast<CurlConnection*>(self);
  if (!connection.m_wantsDetails && !connection.MayUseTLS()) connection.BeginConnecting();
  return ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

bool CurlConnection::IsIdle(std::uint32_t limitSeconds) const {
  return limitSeconds > 0 && Clock::now() - m_lastActivity >= std::chrono::seconds(limitSeconds);
}

void CurlConnection::Check() {
  if (IsThreadToStop()) {
    m_receiver.Fail(HTTPFailure::kCancelled);
    return End(CURLE_ABORTED_BY_CALLBACK);
  }
  // While connecting, libcurl's own time-out applies.
  if (!IsConnected()) m_lastActivity = Clock::now();
  if (!IsIdle(m_timeoutSeconds)) return;
  m_receiver.Fail(Get<long>(CURLINFO_RESPONSE_CODE) == 0 ? HTTPFailure::kResponseTimeout
                                                         : HTTPFailure::kIdleTimeout);
  End(CURLE_OPERATION_TIMEDOUT);
}

void CurlConnection::EndWith(CURLcode result) noexcept {
  // If the connection ends inside the headers, libcurl reports a response without a body.
  const bool isTruncated = result == CURLE_OK && !m_receiver.HasAllHeaders();
  End(isTruncated ? CURLE_PARTIAL_FILE : result);
}

void CurlConnection::End(CURLcode code) noexcept {
  m_code = code;
  if (m_code != CURLE_OK && Get<curl_off_t>(CURLINFO_NAMELOOKUP_TIME_T) == 0) KeepCurlLoaded();
  m_group.Remove(*this);
  m_isBusy = false;
}

void CurlConnection::Cancel() noexcept {
  if (!m_isBusy) return;
  m_receiver.Fail(HTTPFailure::kCancelled);
  End(CURLE_ABORTED_BY_CALLBACK);
}

/// After a rejected Digest log-in, libcurl assumes that it has already read the next offer, and
/// ignores its nonce. A duplicated handle has the settings, but not this state.
void CurlConnection::ReplaceEasyHandle() {
  CURL* const fresh = curl_easy_duphandle(m_easy);
  if (!fresh) throw std::bad_alloc();
  curl_easy_cleanup(m_easy);
  m_easy = fresh;
}

/// Tells the observer. Does nothing for the step in progress.
void CurlConnection::BeginStep(HTTPStep step) noexcept {
  if (step == m_step) return;
  m_step = step;
  if (!m_receiver.WantsSteps()) return;
  try {
    m_receiver.OnStep(step, m_wantsDetails ? Details(UsesProxy()) : HTTPConnectionDetails());
  } catch (...) {
    m_receiver.Fail(HTTPFailure::kOutOfMemory);
  }
}

void CurlConnection::BeginConnecting() noexcept {
  BeginStep(UsesProxy() ? HTTPStep::kProxy : HTTPStep::kConnection);
}

/// Gets the Kerberos ticket that Negotiate needs. Without one, `scheme` becomes 0: libcurl would
/// ask for it again, on this thread. False: the exchange is cancelled. A ticket that is known to be
/// in the cache is not asked for again for some seconds: that takes a thread, and about the time of
/// a request on a fast network.
bool CurlConnection::GetTicket(const std::string& host, HTTPStep step, unsigned int& scheme,
                               Clock::time_point& knownUntil) {
  if (scheme != kAuthNegotiate) return true;
  if (m_mustProveLogIn) BeginStep(step);
  if (Clock::now() < knownUntil) return true;
  const KerberosServiceTicket ticket = KerberosServiceTicket::Get(host, m_connectTimeoutSeconds);
  if (ticket.isStopped) return m_receiver.Fail(HTTPFailure::kCancelled);
  if (ticket.problem.empty()) {
    knownUntil =
        Clock::now() + std::min(kTicketKnown, std::chrono::seconds(ticket.validSeconds) / 2);
    return true;
  }
  m_notes.OnMessage("gss_init_sec_context() failed: " + ticket.problem);
  scheme = 0;
  return true;
}

void CurlConnection::Begin(const HTTPRequest& request) {
  if (request.forgetLogInState) ReplaceEasyHandle();
  m_reason[0] = '\0';
  m_notes.BeginRequest();
  unsigned int serviceScheme = request.serviceScheme;
  unsigned int proxyScheme = request.proxyScheme;
  m_mustProveLogIn = request.needsNewConnection;
  m_step = HTTPStep::kNone;
  m_wasSent = GetTicket(m_proxy.host, HTTPStep::kProxy, proxyScheme, m_proxyTicketUntil) &&
              GetTicket(m_host, HTTPStep::kLogIn, serviceScheme, m_ticketUntil);
  if (!m_wasSent) {  // cancelled
    m_code = CURLE_ABORTED_BY_CALLBACK;
    return;
  }
  m_onlyToThisMachine = request.onlyToThisMachine;
  // Without TLS, proxy and Kerberos, nothing is learned from libcurl's messages.
  const bool mayUseKerberos = ((serviceScheme | proxyScheme) & kAuthNegotiate) != 0;
  Set(CURLOPT_VERBOSE, long{m_wantsDetails || mayUseKerberos || MayUseTLS()});
  Set(CURLOPT_FRESH_CONNECT, long{request.needsNewConnection});
  Set(CURLOPT_POSTFIELDS, request.body.c_str());
  Set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
  Set(CURLOPT_COOKIE, request.cookies.empty() ? nullptr : request.cookies.c_str());
  if (request.credentials) {
    Set(CURLOPT_USERNAME, request.credentials->User(request.serviceScheme).c_str());
    Set(CURLOPT_PASSWORD, request.credentials->Password(request.serviceScheme).c_str());
  }
  Set(CURLOPT_HTTPAUTH,
      m_hasToken ? static_cast<long>(CURLAUTH_BEARER) : ToCurlSchemes(serviceScheme));
  Set(CURLOPT_PROXYAUTH, ToCurlSchemes(proxyScheme));
  m_lastActivity = Clock::now();
  m_isBusy = true;
  m_group.Begin(*this);
}

HTTPRequestInfo CurlConnection::Info() const {
  HTTPRequestInfo info;
  if (!m_wasSent) {
    info.reached = HTTPStep::kLogIn;
    return info;
  }
  info.status = Get<long>(CURLINFO_RESPONSE_CODE);
  info.connectStatus = Get<long>(CURLINFO_HTTP_CONNECTCODE);
  info.usedNewConnection = Get<long>(CURLINFO_NUM_CONNECTS) > 0;
  info.offeredByService = FromCurlSchemes(Get<long>(CURLINFO_HTTPAUTH_AVAIL));
  info.offeredByProxy = FromCurlSchemes(Get<long>(CURLINFO_PROXYAUTH_AVAIL));
  if (const char* const peer = Get<const char*>(CURLINFO_PRIMARY_IP)) info.peer = peer;
  if (const char* const type = Get<const char*>(CURLINFO_CONTENT_TYPE)) info.contentType = type;
  if (const char* const target = Get<const char*>(CURLINFO_REDIRECT_URL))
    info.redirectTarget = HTTPUrl::ForDisplay(BaseStringUtil::FromUTF8(target));
  info.proxy = m_proxy.shown;
  info.usesProxy = UsesProxy();
  info.reached = Reached(info.usesProxy);
  const bool hasTunnel =
      IsConnected() ? m_isHTTPS || m_proxy.isSOCKS : info.reached == HTTPStep::kTLS;
  if (info.usesProxy && !hasTunnel) info.proxyAtOtherEnd = m_proxy.shown;
  info.wasCertificateRequested = m_notes.WasCertificateRequested();
  if (m_wantsDetails) info.connection = Details(info.usesProxy);
  info.logInProblem = m_notes.LogInProblem();
  info.systemError = static_cast<int>(Get<long>(CURLINFO_OS_ERRNO));
  info.wireBytes = WireBytes();
  if (info.usedNewConnection) info.connectSeconds = Get<double>(CURLINFO_CONNECT_TIME);
  info.firstByteSeconds = Get<double>(CURLINFO_STARTTRANSFER_TIME);
  info.totalSeconds = Get<double>(CURLINFO_TOTAL_TIME);
  return info;
}

/// The variable no_proxy can exclude the service from the proxy.
bool CurlConnection::UsesProxy() const {
  return m_proxy.IsGiven() && m_notes.Address().ends_with(m_proxy.port) &&
         (m_notes.Host().empty() || m_notes.Host() == m_proxy.host);
}

HTTPStep CurlConnection::Reached(bool usesProxy) const {
  if (IsConnected()) return HTTPStep::kResponse;
  if (Get<curl_off_t>(CURLINFO_NAMELOOKUP_TIME_T) == 0) return HTTPStep::kNameResolution;
  // libcurl sets the time of the connection only after the TLS handshake.
  const bool isConnected = !m_notes.Host().empty();
  const bool hasTunnel =
      !usesProxy || m_proxy.isSOCKS || Get<long>(CURLINFO_HTTP_CONNECTCODE) / 100 == 2;
  return isConnected && m_isHTTPS && hasTunnel ? HTTPStep::kTLS : HTTPStep::kConnection;
}

HTTPConnectionDetails CurlConnection::Details(bool usesProxy) const {
  HTTPConnectionDetails details;
  details.isReused = IsConnected() && Get<long>(CURLINFO_NUM_CONNECTS) == 0;
  details.address = BaseStringUtil::FromUTF8(NarrowString(m_notes.Address().c_str()));
  if (usesProxy) details.proxy = m_proxy.shown;
  if (details.isReused) return details;
  const double resolved = Get<double>(CURLINFO_NAMELOOKUP_TIME);
  const double connected = Get<double>(CURLINFO_CONNECT_TIME);
  const double secured = Get<double>(CURLINFO_APPCONNECT_TIME);
  details.resolveSeconds = resolved;
  details.connectSeconds = std::max(0.0, connected - resolved);
  if (!m_isHTTPS || (!IsConnected() && m_step <= HTTPStep::kTLS)) return details;
  details.tlsSeconds = std::max(0.0, secured - connected);
  details.tlsProtocol = BaseStringUtil::FromUTF8(NarrowString(m_notes.TLSProtocol().c_str()));
  GetCertificate(details);
  return details;
}

void CurlConnection::GetCertificate(HTTPConnectionDetails& details) const {
  const auto* const chain = Get<curl_certinfo*>(CURLINFO_CERTINFO);
  if (!chain || chain->num_of_certs == 0) return;
  for (const curl_slist* item = chain->certinfo[0]; item; item = item->next) {
    const std::string_view line = item->data;
    const std::size_t colon = std::min(line.find(':'), line.size());
    const std::string_view name = line.substr(0, colon);
    const std::string value(line.substr(std::min(colon + 1, line.size())));
    const auto shown = [&value] {
      return MessageCatalogue::Truncated(BaseStringUtil::FromUTF8(NarrowString(value.c_str())));
    };
    if (name == "Subject") details.certificateSubject = shown();
    if (name == "Issuer") details.certificateIssuer = shown();
    const auto seconds = name == "Expire date" ? SecondsUntilHTTPDate(value) : std::nullopt;
    if (seconds) details.certificateDays = static_cast<int>(*seconds / kSecondsPerDay);
  }
}

String CurlConnection::FailureReason() const {
  const bool needsText = m_reason[0] == '\0' && FailureOf(m_code) == HTTPFailure::kOther;
  const std::string_view reason = needsText ? curl_easy_strerror(m_code) : m_reason;
  return BaseStringUtil::FromUTF8(ASCIIText::Trimmed(reason));
}

CurlGroup::CurlGroup(std::size_t connections) : m_multi(curl_multi_init()) {
  if (!m_multi) throw std::bad_alloc();
  curl_multi_setopt(m_multi, CURLMOPT_MAXCONNECTS, static_cast<long>(connections));
  try {
    CloseOnExec::MarkPairBySignal([this] { Wake(); });
  } catch (...) {
    curl_multi_cleanup(m_multi);
    throw;
  }
}

CurlGroup::~CurlGroup() {
  std::optional<SignalBlock> noPipeSignal;  // closing a TLS connection sends data
  if (m_mayUseTLS) noPipeSignal.emplace(SIGPIPE);
  curl_multi_cleanup(m_multi);
}

/// A multi handle gets CURLOPT_NOSIGNAL from the easy handles that were added to it. If none was
/// added, its cleanup changes the SIGPIPE action of the process for a moment.
void CurlGroup::Introduce(const CurlConnection& connection) {
  m_mayUseTLS |= connection.MayUseTLS();
  m_busy.reserve(++m_introduced);
  if (curl_multi_add_handle(m_multi, connection.Handle()) != CURLM_OK ||
      curl_multi_remove_handle(m_multi, connection.Handle()) != CURLM_OK)
    throw std::bad_alloc();
}

void CurlGroup::Begin(CurlConnection& connection) {
  m_busy.push_back(&connection);
  if (curl_multi_add_handle(m_multi, connection.Handle()) != CURLM_OK)
    return connection.End(CURLE_OUT_OF_MEMORY);
  Perform();
  if (connection.IsBusy()) MarkResolverSockets();
}

void CurlGroup::Remove(CurlConnection& connection) noexcept {
  std::optional<SignalBlock> noPipeSignal;
  if (m_mayUseTLS) noPipeSignal.emplace(SIGPIPE);
  curl_multi_remove_handle(m_multi, connection.Handle());
  std::erase(m_busy, &connection);
}

void CurlGroup::Wait(int milliseconds) {
  const bool isWorking = curl_multi_poll(m_multi, nullptr, 0, milliseconds, nullptr) == CURLM_OK;
  // First read what has arrived: since the last call, the thread may have done other work for
  // longer than the time-out.
  if (isWorking) Perform();
  for (std::size_t i = m_busy.size(); i > 0; --i) {  // backwards: a request that ends is removed
    if (isWorking)
      m_busy[i - 1]->Check();
    else
      m_busy[i - 1]->End(CURLE_OUT_OF_MEMORY);
  }
}

void CurlGroup::Perform() {
  std::optional<SignalBlock> noPipeSignal;
  if (m_mayUseTLS) noPipeSignal.emplace(SIGPIPE);
  int running = 0;
  if (curl_multi_perform(m_multi, &running) != CURLM_OK)
    while (!m_busy.empty()) m_busy.back()->End(CURLE_OUT_OF_MEMORY);
  int left = 0;
  while (const CURLMsg* const message = curl_multi_info_read(m_multi, &left)) {
    if (message->msg != CURLMSG_DONE) continue;
    CurlConnection* connection = nullptr;
    curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &connection);
    connection->EndWith(message->data.result);
  }
}

/// While libcurl resolves a host name, its resolver thread signals the result through a pair of
/// sockets. It is the only descriptor that libcurl waits for and that OnOpenSocket did not create.
/// libcurl omits descriptors that do not fit into an fd_set.
void CurlGroup::MarkResolverSockets() {
  fd_set readable;
  fd_set other;
  FD_ZERO(&readable);
  FD_ZERO(&other);
  int highest = -1;
  if (curl_multi_fdset(m_multi, &readable, &other, &other, &highest) != CURLM_OK) return;
  for (int descriptor = 0; descriptor <= highest; ++descriptor)
    if (FD_ISSET(descriptor, &readable) && (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) == 0)
      CloseOnExec::MarkPair(descriptor);
}

}  // namespace

std::unique_ptr<HTTPConnection> HTTPConnection::Create(
    const NarrowString& url, const NarrowString& user, const NarrowString& password,
    const HTTPClientOptions& options, HTTPConnectionGroup& group, HTTPReceiver& receiver) {
  return std::make_unique<CurlConnection>(url, user, password, options,
                                          static_cast<CurlGroup&>(group), receiver);
}

std::unique_ptr<HTTPConnectionGroup> HTTPConnectionGroup::Create(std::size_t connections) {
  return std::make_unique<CurlGroup>(connections);
}

std::optional<std::int64_t> SecondsUntilHTTPDate(const std::string& date) {
  const std::time_t time = curl_getdate(date.c_str(), nullptr);
  if (time < 0) return std::nullopt;
  return std::int64_t{time} - std::int64_t{std::time(nullptr)};
}

LinkedLibraries GetLinkedLibraries() {
  const curl_version_info_data& curl = *curl_version_info(CURLVERSION_NOW);
  const std::string_view tls = curl.ssl_version ? curl.ssl_version : "";
  LinkedLibraries linked;
  const NarrowString all(curl_version());
  for (std::string_view rest(all.data(), all.size()); !rest.empty();) {
    const std::string_view part = rest.substr(0, rest.find(' '));
    const std::string_view name = part.substr(0, part.find('/'));
    if (part == tls || std::ranges::count(kPartsInUse, name) > 0)
      linked.versions.push_back(BaseStringUtil::FromUTF8(part));
    rest.remove_prefix(std::min(part.size() + 1, rest.size()));
  }
  linked.versions.push_back(XmlLibraryVersion());
  linked.versions.emplace_back(L"MIT-Kerberos/" KERBEROS_VERSION);
  for (const Feature& feature : kFeatures)
    if ((curl.features & feature.curlBit) != 0) linked.features.emplace_back(feature.name);
  return linked;
}
