#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "Utility/Generic/Heap.h"
#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// Ways to log in, as bits of a set.
enum HTTPAuthScheme : unsigned int {
  kAuthBasic = 1,
  kAuthDigest = 2,
  kAuthNTLM = 4,
  /// Uses the Kerberos identity of the process, not user and password.
  kAuthNegotiate = 8,
  kAuthPasswordSchemes = kAuthBasic | kAuthDigest | kAuthNTLM,
};

/// Settings of a client. Every limit is named in the error text of a reply that exceeds it.
struct HTTPClientOptions {
  /// Size of a reply in bytes, as received and again after its charset was converted to UTF-8.
  std::uint64_t maxReplyBytes = std::uint64_t{256} << 20;
  /// Bytes of status lines, headers and trailers of one exchange, log-in rounds included.
  std::size_t maxHeaderBytes = std::size_t{300} << 10;
  /// Cookies that the client keeps, and their total size. Further ones are ignored.
  std::size_t maxCookies = 50;
  std::size_t maxCookieBytes = std::size_t{64} << 10;
  /// How many times as long as its compressed form a reply may be.
  std::uint64_t maxCompressionRatio = 1000;

  /// The schemes that may be used to log in: a set of HTTPAuthScheme. kAuthNegotiate is needed to
  /// log in as the process, with or without a user.
  unsigned int authSchemes = kAuthPasswordSchemes;
  /// False: Basic is not used over plain http to another machine, where everybody on the way can
  /// read the password.
  bool allowBasicOverPlainHttp = true;

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
  bool ok = false;
  String error;  ///< the error text handed to the caller, empty when ok
};

/// Told of every exchange in the scope that names it (ImportSettings), on the thread that ran it.
/// Must not throw.
class HTTPExchangeObserver {
 public:
  virtual ~HTTPExchangeObserver() = default;
  virtual void OnExchange(const HTTPExchangeInfo& info) = 0;
};

/// HTTP client for one service. Posts request bodies over one kept-alive connection; http and https
/// only; certificates are verified; compression is offered; cookies live as long as the client; a
/// redirect is an error that names where it points; authentication takes the strongest of what the
/// server offers of Negotiate, NTLM, Digest and Basic. One thread at a time.
class XMLAHOST_API HTTPClientWrapper {
 public:
  /// `timeoutSeconds` bounds the connecting and the silence on the connection, 0 meaning no bound;
  /// a reply that keeps flowing is never cut off. Credentials inside the URL are used when `user`
  /// is empty, and taken out of it in any case. `options` may be null: then those of the calling
  /// thread's ImportSettings hold. Throws ErrorMessage for a URL that cannot be used.
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
  /// Posts the body. True: `reply` holds the body of the answer as UTF-8, whatever charset it came
  /// in. False: `reply` is empty and `error` says what happened in one line and what to try. A SOAP
  /// fault counts as an answer whatever its HTTP status. Ends with an error within a tenth of a
  /// second when the calling thread's VXExecutionState is asked to stop.
  bool ReadBytes(const NarrowString& body, NarrowString& reply, String& error);

  /// Takes user name and password out of a URL. True when `url` is a URL with the scheme http or
  /// https and a host; `user` and `password` get the decoded credentials or stay untouched.
  static bool TakeCredentials(String& url, String& user, String& password);

 private:
  class Impl;
  Heap<Impl> m_impl;
};
