#pragma once

#include <cstdint>

#include "Utility/Generic/Heap.h"
#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// Settings of a client that its user may leave alone.
struct HTTPClientOptions {
  /// Greatest size of a decoded reply in bytes; a greater one is an error.
  std::uint64_t maxReplyBytes = std::uint64_t{1} << 30;
  /// File of trusted certificates (PEM) to be used instead of the system's; empty: the
  /// environment's SSL_CERT_FILE, else the system's.
  String caFile;
};

/// What one finished exchange was like.
struct HTTPExchangeInfo {
  String url;                      ///< without credentials
  long status = 0;                 ///< HTTP status, 0 when none came
  NarrowString request;            ///< body sent, shared with the caller
  std::uint64_t replyBytes = 0;    ///< decoded body received
  std::uint64_t wireBytes = 0;     ///< body as it came over the wire
  double connectSeconds = 0;       ///< 0 on a connection that was kept alive
  double firstByteSeconds = 0;     ///< until the first byte of the reply
  double totalSeconds = 0;
  bool ok = false;
  String error;  ///< the error text handed to the caller, empty when ok
};

/// Told of every exchange of every client in the process, on the thread that ran it. Must not
/// throw.
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
  /// is empty, and taken out of it in any case. `options` may be null. Throws ErrorMessage for a
  /// URL that cannot be used.
  HTTPClientWrapper(const String& url, const String& user, const String& password,
                    std::uint32_t timeoutSeconds, const HTTPClientOptions* options);
  ~HTTPClientWrapper();
  HTTPClientWrapper(const HTTPClientWrapper&) = delete;
  HTTPClientWrapper& operator=(const HTTPClientWrapper&) = delete;

  /// The header lines of the following requests, each ended by a line feed; replaces earlier ones.
  void SetRequestHeader(const String& lines);
  /// Posts the body. True: `reply` holds the body of the answer as UTF-8, whatever charset it came
  /// in. False: `reply` is empty and `error` says what happened in one line and what to try. A SOAP
  /// fault counts as an answer whatever its HTTP status. Ends with an error within a tenth of a
  /// second when the calling thread's VXExecutionState is asked to stop.
  bool ReadBytes(const NarrowString& body, NarrowString& reply, String& error);

  /// Takes user name and password out of a URL. True when `url` is a URL with the scheme http or
  /// https and a host; `user` and `password` get the decoded credentials or stay untouched.
  static bool TakeCredentials(String& url, String& user, String& password);
  /// Sets or (null) removes the process-wide observer, which outlives its use. Returns the former.
  static HTTPExchangeObserver* SetExchangeObserver(HTTPExchangeObserver* observer) noexcept;

 private:
  class Impl;
  Heap<Impl> m_impl;
};
