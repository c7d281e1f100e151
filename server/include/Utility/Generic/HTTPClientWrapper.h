#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "Utility/Generic/Heap.h"
#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// Ways to log in, as bits of a set. From strong to weak: Negotiate, Digest, NTLM, Basic.
enum HTTPAuthScheme : unsigned int {
  kAuthBasic = 1,
  kAuthDigest = 2,
  kAuthNTLM = 4,
  /// Uses the Kerberos identity of the process, not user and password.
  kAuthNegotiate = 8,
  kAuthPasswordSchemes = kAuthBasic | kAuthDigest | kAuthNTLM,
};

/// Lets several clients of one service and one user protect the password together: once one of them
/// has used it with a scheme, none of them sends it with a weaker one. Clients on different threads
/// may share it. The members are sets of HTTPAuthScheme that may still be used.
struct HTTPLogInMemory {
  std::atomic<unsigned int> service = ~0U;
  std::atomic<unsigned int> proxy = ~0U;
};

/// Settings of a client. The error text of a reply that exceeds a limit names the limit. 0 means no
/// limit.
struct HTTPClientOptions {
  /// Size of a reply in bytes, as received and again after its charset was converted to UTF-8.
  std::uint64_t maxReplyBytes = std::uint64_t{256} << 20;
  /// Bytes of status lines, headers and trailers of one exchange, log-in rounds included. libcurl's
  /// own limit of 300 KiB for each answer holds in any case. At most 16 headers that offer a log-in
  /// are read of an answer, whatever this is.
  std::size_t maxHeaderBytes = std::size_t{300} << 10;
  /// Cookies that the client keeps, and the total size of their names and values. Further ones are
  /// ignored.
  std::size_t maxCookies = 50;
  std::size_t maxCookieBytes = std::size_t{64} << 10;
  /// How many times as long as its compressed form a reply may be, once it is longer than 1 MiB.
  /// Recorded replies of real servers reach 22; a made-up rowset of 128 MB reaches 55 with gzip and
  /// 144 with zstd.
  std::uint64_t maxCompressionRatio = 500;

  /// The schemes that may be used to log in to the service: a set of HTTPAuthScheme. Without a
  /// user, only kAuthNegotiate has an effect. With a user, kAuthNegotiate still means the process's
  /// own identity: a server process leaves it out, or its users read with the process's rights.
  ///
  /// The same set holds for the proxy and the user inside its URL, where the password schemes of
  /// the set are preferred to kAuthNegotiate.
  unsigned int authSchemes = kAuthPasswordSchemes;
  /// False: Basic is not used over plain http to another machine, service or proxy, where everybody
  /// on the way can read the password. The same holds for the password of a SOCKS proxy, which also
  /// needs kAuthBasic in the set above.
  bool allowBasicOverPlainHttp = true;
  /// Shared with other clients. A host that makes several clients or import objects for one service
  /// and one user gives all of them the same one. Null: the client has one of its own.
  std::shared_ptr<HTTPLogInMemory> logInMemory;

  /// URL of the proxy; empty: no proxy; absent: the proxy that the environment names.
  std::optional<String> proxy;
  /// File of trusted certificates (PEM) instead of the system's; empty: the environment's
  /// SSL_CERT_FILE, else the system's.
  String caFile;
};

/// What one finished exchange was like.
struct HTTPExchangeInfo {
  String url;                    ///< without credentials
  String subject;                ///< what was asked for, see SetRequestSubject
  long status = 0;               ///< HTTP status, 0 when none came
  NarrowString request;          ///< body sent, shared with the caller
  std::uint64_t replyBytes = 0;  ///< decoded body received
  std::uint64_t wireBytes = 0;   ///< body as it came over the wire
  double connectSeconds = 0;     ///< 0 on a connection that was kept alive
  double firstByteSeconds = 0;   ///< until the first byte of the reply
  double totalSeconds = 0;
  bool ok = false;  ///< false, too, for a body that came with another status than 2xx
  String error;     ///< the error text handed to the caller, empty when ok
  /// A password went out by Basic over plain http to another machine (the service's or the
  /// proxy's): everybody on the way could read it.
  bool basicInClear = false;
};

/// Told of every exchange in the scope that names it (ImportSettings), on the thread that ran it.
/// Must not throw.
class HTTPExchangeObserver {
 public:
  virtual ~HTTPExchangeObserver() = default;
  virtual void OnExchange(const HTTPExchangeInfo& info) = 0;
};

/// HTTP client for one service. Posts request bodies over one kept-alive connection; http and https
/// only; compression is offered, and a reply that is compressed more than once refused; a redirect
/// is an error that names where it points. One thread at a time.
///
/// Log-in: the strongest scheme that the server offers and the options allow, and no other. Once a
/// password was used with a scheme, no weaker one gets it as long as the client lives, nor from any
/// client with the same HTTPClientOptions::logInMemory.
///
/// TLS: version 1.2 or later. Certificates are verified; whether one was revoked is not checked.
///
/// Cookies: live as long as the client, and are sent to the service's own host only.
///
/// Descriptors: close-on-exec. Those that libcurl makes for itself, not for a connection, become so
/// right after libcurl created them. One exception: while a host name is resolved, libcurl uses a
/// pair of local sockets. If their numbers are 1024 or higher, child processes inherit them. They
/// carry no data of an import.
///
/// Secrets: the client overwrites its copies of user and password before its constructor returns.
/// libcurl keeps its own copies as long as the client lives, and does not overwrite them.
///
/// Environment variables are trusted: a user who can set them controls the process. They must not
/// change while a client is constructed or used. SECURITY.md lists them: proxies (http_proxy,
/// https_proxy, HTTPS_PROXY, all_proxy, ALL_PROXY, read by the constructor; no_proxy and NO_PROXY),
/// certificates (SSL_CERT_FILE, SSL_CERT_DIR), the TLS library (OPENSSL_CONF, OPENSSL_CONF_INCLUDE,
/// OPENSSL_MODULES, OPENSSL_ENGINES, which cannot lower the TLS version below 1.2; SSLKEYLOGFILE),
/// converters of charsets (GCONV_PATH), name resolution (HOSTALIASES, LOCALDOMAIN, RES_OPTIONS,
/// RESOLV_HOST_CONF) and, with kAuthNegotiate, Kerberos (KRB5CCNAME, KRB5_CLIENT_KTNAME,
/// KRB5_CONFIG, KRB5_TRACE, GSS_MECH_CONFIG).
class XMLAHOST_API HTTPClientWrapper {
 public:
  /// `timeoutSeconds` bounds the connecting and the silence on the connection, 0 meaning no bound;
  /// a reply that keeps flowing is never cut off. Credentials inside the URL are used when `user`
  /// is empty, and taken out of it in any case. `options` may be null: then those of the calling
  /// thread's ImportSettings hold. Throws ErrorMessage for a URL that cannot be used, and for a
  /// control character (U+0000 to U+001F, U+007F) in user, password or the proxy's URL.
  HTTPClientWrapper(const String& url, const String& user, const String& password,
                    std::uint32_t timeoutSeconds, const HTTPClientOptions* options);
  ~HTTPClientWrapper();
  HTTPClientWrapper(const HTTPClientWrapper&) = delete;
  HTTPClientWrapper& operator=(const HTTPClientWrapper&) = delete;

  /// The header lines of the following requests, each ended by a line feed; replaces earlier ones.
  void SetRequestHeader(const String& lines);
  /// What the next request asks for, in words for the exchange observer, such as
  /// `MDSCHEMA_LEVELS of catalog "C", cube "Q", hierarchy "[Time]"`.
  void SetRequestSubject(const String& subject);
  /// Posts the body. There are three outcomes:
  /// - True, and `error` is untouched: `reply` is the body of a reply with a status of success
  ///   (2xx), as UTF-8 whatever charset it came in. It may be XML.
  /// - True, and `error` has a text: another status, with a body that may be XML, in `reply`. The
  ///   caller looks for a SOAP fault in it; if there is none, `error` is what happened.
  /// - False: `reply` is empty and `error` says what happened.
  /// An error text is one line that ends with the URL and what to try. Ends with an error within a
  /// tenth of a second when the calling thread's VXExecutionState is asked to stop.
  bool ReadBytes(const NarrowString& body, NarrowString& reply, String& error);

  /// Takes user name and password out of a URL. True when `url` is a URL with the scheme http or
  /// https and a host; `user` and `password` get the decoded credentials or stay untouched.
  static bool TakeCredentials(String& url, String& user, String& password);

 private:
  class Impl;
  Heap<Impl> m_impl;
};
