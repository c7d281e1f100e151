#pragma once

/// \file
/// The HTTP client, its options, and the observer of its exchanges.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "Utility/Generic/HTTPReadAhead.h"
#include "Utility/Generic/Heap.h"
#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// Authentication schemes, as bits of a set. From strong to weak: Negotiate, Digest, NTLM, Basic.
enum HTTPAuthScheme : unsigned int {
  kAuthBasic = 1,
  kAuthDigest = 2,
  kAuthNTLM = 4,
  /// Uses the Kerberos identity of the process, not user and password.
  kAuthNegotiate = 8,
  kAuthPasswordSchemes = kAuthBasic | kAuthDigest | kAuthNTLM,
};

/// Shared by clients of one service and one user, to protect the password: after one client has
/// used it with a scheme, no client sends it with a weaker one. Thread-safe.
struct HTTPLogInMemory {
  /// The sets of HTTPAuthScheme that may still be used.
  std::atomic<unsigned int> service = ~0U;
  /// The same for the proxy.
  std::atomic<unsigned int> proxy = ~0U;
  /// The service has sent a response: a later failure does not suggest another scheme of the URL.
  std::atomic<bool> hasAnswered = false;
  /// The service, or the proxy, has accepted the password, ticket or token: a status of 2xx.
  std::atomic<bool> serviceHasAccepted = false;
  /// The same for the proxy.
  std::atomic<bool> proxyHasAccepted = false;
};

/// Settings of a client. If a reply exceeds a limit, the error text names the limit. 0 means no
/// limit.
///
/// For an import, they are part of ImportSettings:
/// \code
/// #include "Import/OTXMLAImportAPI.h"
/// #include "Utility/Generic/ImportSettings.h"
///
/// void Connect(OTXMLAImportAPI& import, const String& url, const String& token,
///              ServerInfo::TargetType kind) {
///   ImportSettings settings;
///   settings.http.connectTimeoutSeconds = 10;
///   settings.http.maxRetries = 2;
///   settings.http.bearerToken = token;
///   settings.http.allowBasicOverPlainHttp = false;  // not the token either
///   const ImportSettings::Scope scope(settings);
///   import.SetupConnInfo(url, String(), String(), kind, ServerInfo::kCLIXMLA);
/// }
/// \endcode
struct HTTPClientOptions {
  /// Size of a reply in bytes. Checked as received, and again after its conversion to UTF-8.
  std::uint64_t maxReplyBytes = std::uint64_t{256} << 20;
  /// Bytes of status lines, headers and trailers of one exchange, including log-in rounds. libcurl
  /// also limits each response to 300 KiB. Of the headers that offer an authentication scheme,
  /// only the first 16 of a response are read.
  std::size_t maxHeaderBytes = std::size_t{300} << 10;
  /// Number of cookies that the client keeps. Further cookies are ignored.
  std::size_t maxCookies = 50;
  /// Total size of the names and values of these cookies.
  std::size_t maxCookieBytes = std::size_t{64} << 10;
  /// Compression ratio of a reply that is longer than 1 MiB. Recorded replies of real servers have
  /// a ratio of up to 22. A generated rowset of 128 MB has 55 with gzip and 144 with zstd.
  std::uint64_t maxCompressionRatio = 500;

  /// Set of HTTPAuthScheme that may be used with the service. Without a user, only kAuthNegotiate
  /// has an effect. kAuthNegotiate uses the identity of the process even if a user is given. A
  /// server process should not allow it, because its users would read with the rights of the
  /// process.
  ///
  /// The same set applies to the proxy. If the proxy's URL contains a user, password schemes are
  /// preferred to kAuthNegotiate.
  unsigned int authSchemes = kAuthPasswordSchemes;
  /// False: the password is not sent by Basic over plain http to a service or proxy on another
  /// machine, where others on the network could read it. The same applies to the password of a
  /// SOCKS proxy, and to bearerToken. A SOCKS proxy also requires kAuthBasic in authSchemes.
  bool allowBasicOverPlainHttp = true;
  /// Use the same object for all clients and import objects of one service and one user. Null: the
  /// client creates its own.
  std::shared_ptr<HTTPLogInMemory> logInMemory;

  /// URL of the proxy. Empty: no proxy. nullopt: the proxy of the environment.
  std::optional<String> proxy;
  /// File of trusted certificates (PEM). Empty: the file named by the environment variable
  /// SSL_CERT_FILE, or the system's certificates.
  String caFile;
  /// File of the client certificate (PEM or PKCS#12), for a service that requires one. Only the
  /// service gets it. Empty: none. The constructor of the client reads this file and keyFile, which
  /// must be regular files of at most 1 MiB, and checks that they fit together.
  String certificateFile;
  /// File of its private key (PEM). Empty: the key is in certificateFile.
  String keyFile;
  /// Password of the private key, or of the PKCS#12 file. Empty: none.
  String keyPassword;
  /// A token that the service accepts instead of user and password, sent as "Authorization:
  /// Bearer". Only the service gets it. Empty: none. Excludes user and password.
  String bearerToken;

  /// Time to connect in seconds; 0: no limit. nullopt: the time-out of periods without data.
  std::optional<std::uint32_t> connectTimeoutSeconds;
  /// Limit for periods without data in seconds; 0: no limit. nullopt: the time-out that the
  /// constructor gets, for imports that of MORVEN_BI_XMLA_HTTP_TIMEOUT.
  std::optional<std::uint32_t> timeoutSeconds;
  /// How often a request is repeated if its connection fails or the status is 429, 502, 503 or 504.
  /// Waits 0.5 s, 1 s, 2 s, ... or as long as Retry-After says, at most 60 s. A cancellation ends
  /// the wait within 0.1 s. Each retry counts as a request of the operation (ImportLimits).
  ///
  /// A connection also fails if it ends before the reply is complete, and if a host name cannot be
  /// resolved. Never repeated:
  /// - a reply with a SOAP fault, with any status
  /// - a refused log-in, and a rejected certificate
  /// - a lost request with a password, ticket or token that the server has not accepted before
  ///   (logInMemory), because repeated log-ins can lock an account
  /// - a reply that exceeds a limit
  /// - a request to a server that does not respond in time
  std::uint32_t maxRetries = 0;
  /// Fill in HTTPExchangeInfo::connection, which costs time.
  bool wantsConnectionDetails = false;

  /// Reads ahead: requests that an import operation will need are sent before it asks for them,
  /// over additional connections. Only the time changes. Null: one request at a time. See
  /// HTTPReadAhead.h and read-ahead.md.
  std::shared_ptr<HTTPRequestBudget> requestBudget;

  /// What to do if the service requires a log-in and no user is given. Part of the error text.
  /// Empty: give a user name and a password.
  String missingUserAdvice;
};

/// A step of an exchange, in this order. Each depends on the ones before it.
enum class HTTPStep {
  kNone,  ///< not failed
  kAddress,
  kNameResolution,
  kProxy,
  kConnection,
  kTLS,
  kLogIn,
  kResponse,
  kProtocol,  ///< the reply is not XML. The client does not check whether XML is XMLA
};

/// The setting of the client that a user may have to change after a failure.
enum class HTTPSetting {
  kNone,  ///< none, or unknown
  kURL,
  kProxy,
  kConnectTimeout,
  kTimeout,
  kCAFile,
  kCertificate,
  kKey,
  kKeyPassword,
  kUser,  ///< or the password
  kAuthSchemes,
  kToken,
  kRetries,
};

/// About the connection and the response of an exchange, for people who look for a problem. A text
/// is empty, and a number 0, if it is unknown. Filled in as far as the exchange came.
struct HTTPConnectionDetails {
  bool isReused = false;      ///< the kept-alive connection; then seconds and TLS are unknown
  String address;             ///< IP address and port of the other end
  String proxy;               ///< URL without credentials; empty: no proxy
  double resolveSeconds = 0;  ///< name resolution
  double connectSeconds = 0;  ///< after name resolution
  double tlsSeconds = 0;      ///< after connecting
  String tlsProtocol;         ///< such as "TLSv1.3"
  String certificateSubject;  ///< of the service
  String certificateIssuer;   ///< of the same certificate
  std::optional<int> certificateDays;  ///< until it expires
  String offeredSchemes;               ///< names, as in "Negotiate, Basic", of the last refusal
  String usedScheme;                   ///< with the service: name; also "Bearer"; empty: no log-in
  String server;                       ///< value of the header Server
  String contentType;                  ///< value of the header Content-Type
  String contentEncoding;              ///< value of the header Content-Encoding
};

/// Data of one finished exchange. With retries, sizes and times are those of the last request. If
/// the reply was read ahead, firstByteSeconds and totalSeconds are the time for which the import
/// waited for it, and connectSeconds is 0.
struct HTTPExchangeInfo {
  String url;                    ///< without credentials
  String subject;                ///< see SetRequestSubject
  long status = 0;               ///< HTTP status; 0: no response
  NarrowString request;          ///< body sent, shared with the caller
  NarrowString reply;            ///< as the caller gets it; do not keep it, it may be large
  std::uint64_t replyBytes = 0;  ///< size of the decoded body
  std::uint64_t wireBytes = 0;   ///< size of the body before decoding
  double connectSeconds = 0;     ///< 0 for the kept-alive connection
  double firstByteSeconds = 0;   ///< until the first byte of the reply
  double totalSeconds = 0;       ///< until the end of the reply
  bool ok = false;               ///< false also for a body with a status other than 2xx
  String error;                  ///< the error text for the caller; empty if ok
  String problem;  ///< the part of `error` after the URL that says what failed, without advice
  /// The password (by Basic) or the token was sent over plain http to another machine, the service
  /// or the proxy. Others on the network could read it.
  bool basicInClear = false;
  /// There was no connection: it was refused, or a host name is unknown. Another request would most
  /// likely fail, too.
  bool isUnreachable = false;
  HTTPStep failedStep = HTTPStep::kNone;     ///< kNone if ok
  HTTPSetting setting = HTTPSetting::kNone;  ///< kNone if ok
  std::uint32_t retries = 0;                 ///< how often the request was repeated
  bool wasReadAhead = false;                 ///< see HTTPClientOptions::requestBudget
  HTTPConnectionDetails connection;          ///< see HTTPClientOptions::wantsConnectionDetails
};

/// Data of an exchange that begins.
struct HTTPExchangeStart {
  String url;                        ///< without credentials
  String subject;                    ///< see SetRequestSubject
  std::uint32_t timeoutSeconds = 0;  ///< see HTTPClientWrapper; 0: no limit
};

/// Data of a request that failed and will be repeated.
struct HTTPRetry {
  String url;                    ///< without credentials
  String subject;                ///< see SetRequestSubject
  String error;                  ///< why the request failed
  std::uint32_t number = 0;      ///< of the retry: 1, 2, ...
  std::uint32_t maxRetries = 0;  ///< the most that are tried
  double waitSeconds = 0;        ///< until the retry
};

/// Called before and after every exchange in the scope of ImportSettings::exchangeObserver, on the
/// thread that runs the exchange. Must not throw.
class HTTPExchangeObserver {
 public:
  virtual ~HTTPExchangeObserver() = default;
  /// Called before the first request of an exchange.
  virtual void OnBegin(const HTTPExchangeStart&) {}
  /// Called when a step of the exchange begins, with what is known about the connection by then.
  /// A kept-alive connection begins with the last step. A log-in repeats steps, and may need
  /// another connection. The steps:
  /// - kNameResolution: the client looks up the address of the host
  /// - kConnection: without a proxy, the client connects to the service
  /// - kProxy: with a proxy, the client connects to the proxy, which may open a tunnel
  /// - kTLS: the TLS handshake with the service. If the server asks for a client certificate, the
  ///   step lasts until the reply, because the server may reject the certificate that late
  /// - kLogIn: the client gets a Kerberos ticket, or sends a log-in that was never accepted before
  /// - kResponse: the client sends any other request and waits for the reply
  virtual void OnStep(HTTPStep, const HTTPConnectionDetails&) {}
  /// Called before the wait for a retry.
  virtual void OnRetry(const HTTPRetry&) {}
  /// Called when an exchange has ended, with or without success.
  virtual void OnExchange(const HTTPExchangeInfo& info) = 0;
  /// Called at the end of an operation that has read ahead.
  virtual void OnReadAhead(const HTTPReadAheadInfo&) {}
};

/// How user name and password are written in a URL. The host of the URL ends at the first of "/",
/// "\", "?" and "#", and begins after the last "@" before.
inline constexpr wchar_t kURLPasswordAdvice[] =
    L"; in a user name or password, write / as %2F, \\ as %5C, ? as %3F, # as %23 and @ as %40, "
    L"or leave it out of the URL";

/// HTTP client for one service. Posts request bodies over one kept-alive connection, by http or
/// https only. Reads ahead over additional ones (HTTPClientOptions::requestBudget). Offers
/// compression, but rejects a reply that is compressed more than once. A redirect is an error that
/// names the target. Use from one thread at a time.
///
/// Authentication: uses only the strongest scheme that the server offers and the options allow.
/// After the password was used with a scheme, it is never sent with a weaker one by this client,
/// nor by any client with the same HTTPClientOptions::logInMemory.
///
/// TLS: version 1.2 or later. Certificates are verified, but their revocation is not checked.
///
/// Kerberos: another thread gets the ticket for Negotiate. If a request stops waiting for it, that
/// thread goes on until the Kerberos library gives up (80 seconds by default), and these libraries
/// stay loaded until the process ends. Only a SOCKS proxy's Kerberos log-in cannot be interrupted.
///
/// Cookies: kept as long as the client lives, and sent only to the host of the service. All
/// connections of the client share them.
///
/// Descriptors: close-on-exec. Descriptors that libcurl creates internally are marked right after
/// their creation. One exception: while a host name is resolved, libcurl uses a pair of local
/// sockets. If their numbers are 1024 or higher, child processes inherit them. They carry no data
/// of an import.
///
/// Secrets: the constructor overwrites its own copies of user, password, token and key password
/// before it returns. If user or password have characters other than ASCII, the client keeps both
/// and overwrites them at its end, as it does with the client certificate and its key. libcurl
/// keeps its copies as long as the client lives, and does not overwrite them.
///
/// Environment variables are trusted: a user who can set them controls the process. They must not
/// change while a client is created or used. SECURITY.md lists them: proxies (http_proxy,
/// https_proxy, HTTPS_PROXY, all_proxy, ALL_PROXY, read by the constructor; no_proxy and NO_PROXY),
/// certificates (SSL_CERT_FILE, SSL_CERT_DIR), the TLS library (OPENSSL_CONF, OPENSSL_CONF_INCLUDE,
/// OPENSSL_MODULES, OPENSSL_ENGINES, which cannot lower the TLS version below 1.2; SSLKEYLOGFILE),
/// converters of charsets (GCONV_PATH), name resolution (HOSTALIASES, LOCALDOMAIN, RES_OPTIONS,
/// RESOLV_HOST_CONF) and, with kAuthNegotiate, Kerberos (KRB5CCNAME, KRB5_CLIENT_KTNAME,
/// KRB5_CONFIG, KRB5_TRACE, GSS_MECH_CONFIG).
class XMLAHOST_API HTTPClientWrapper {
 public:
  /// `timeoutSeconds` limits the time to connect and periods without data; 0 means no limit. The
  /// options can replace it. A
  /// reply that keeps arriving is not cut off. If `user` is empty, credentials inside the URL are
  /// used; they are always removed from the URL. If `options` is null, those of the calling
  /// thread's ImportSettings apply. Throws ErrorMessage for an unusable URL of the service or the
  /// proxy, for control characters (U+0000 to U+001F, U+007F) in user, password, key password or
  /// the proxy's URL, for a token with invalid characters (RFC 6750) or together with a user or
  /// password, and for an unusable client certificate. The text contains none of the secrets.
  HTTPClientWrapper(const String& url, const String& user, const String& password,
                    std::uint32_t timeoutSeconds, const HTTPClientOptions* options);
  ~HTTPClientWrapper();
  HTTPClientWrapper(const HTTPClientWrapper&) = delete;
  HTTPClientWrapper& operator=(const HTTPClientWrapper&) = delete;

  /// Sets the header lines of the following requests. Each ends with a line feed. Replaces earlier
  /// ones.
  void SetRequestHeader(const String& lines);
  /// What is read ahead, if the options allow it. Call before the first request.
  void SetPrediction(std::shared_ptr<const HTTPPrediction> prediction);
  /// Describes the next request for the exchange observer, for example `MDSCHEMA_LEVELS of catalog
  /// "C", cube "Q", hierarchy "[Time]"`.
  void SetRequestSubject(const String& subject);
  /// Posts the body. There are three results:
  /// - True, `error` unchanged: the status is 2xx, and `reply` is the body as UTF-8. It may be XML.
  /// - True, `error` set: another status, and `reply` is a body that may be XML. If the caller
  ///   finds no SOAP fault in it, `error` says what happened.
  /// - False: `reply` is empty, and `error` says what happened.
  /// An error text is one line: "URL: what failed: why; what to do (details)". If the
  /// VXExecutionState of the calling thread is cancelled, the function returns with an error within
  /// 0.1 s.
  bool ReadBytes(const NarrowString& body, NarrowString& reply, String& error);

  /// Removes the credentials from `url`, and stores them decoded in `user` and `password`. Without
  /// credentials, both stay unchanged. Returns true if `url` is an http or https URL with a host.
  static bool TakeCredentials(String& url, String& user, String& password);
  /// The URL as error texts show it: without credentials, and with "..." for what may be a part of
  /// a password that is not percent-encoded, as in "http://ann:123/b@host/".
  static String ShownURL(const String& url);
  /// Why a URL without credentials cannot be used, and what to write instead; empty if it can. Does
  /// not repeat the URL.
  static String URLProblem(const String& url);
  /// The same for the URL of a proxy, which may contain credentials and lack a scheme.
  static String ProxyProblem(const String& url);
  /// True while a thread waits for a Kerberos server (KDC) although its request has ended. Call
  /// _exit to end the process then: exit runs the destructors of the Kerberos library beside that
  /// thread. Thread-safe.
  static bool IsKerberosThreadLeft() noexcept;
  /// Why the client certificate of the options cannot be used, and what to do; empty if it can, or
  /// if there is none. Reads its files. `setting` is the one to change.
  static String CertificateProblem(const HTTPClientOptions& options, HTTPSetting& setting);

 private:
  class Impl;
  Heap<Impl> m_impl;
};
