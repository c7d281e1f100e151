#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/String.h"
#include "http/HTTPAuthentication.h"
#include "http/HTTPConnection.h"
#include "http/HTTPFailure.h"
#include "http/HTTPReceiver.h"

/// The result of one POST.
struct HTTPResponse {
  HTTPFailure failure = HTTPFailure::kNone;  ///< why the response is incomplete
  HTTPDiagnosis diagnosis;                   ///< describes `failure`
  long proxyStatus = 0;                      ///< of the refusal of a tunnel; 0: none

  long status = 0;
  NarrowString body;
  std::string contentType;
  std::string retryAfter;              ///< value of the header; empty: none
  std::string bearerChallenge;         ///< value of WWW-Authenticate with a Bearer challenge
  String redirectTarget;               ///< without credentials; empty without a redirect
  std::vector<std::string> schemes;    ///< names of the schemes that a 401 or 407 offers
  unsigned int offered = 0;            ///< those of them that are an HTTPAuthScheme
  bool hasProxy = false;               ///< a proxy is set; no_proxy may exclude the service
  std::string logInProblem;            ///< see HTTPRequestInfo; of any request of the exchange
  String logInAdvice;                  ///< why none of them was used, and what to do; may be empty
  bool isLogInUnfinished = false;      ///< the connection ended between the rounds of NTLM
  unsigned int rejectedByService = 0;  ///< set of HTTPAuthScheme that were tried in this exchange
  unsigned int rejectedByProxy = 0;
  bool isLogInUnproven = false;  ///< the last request contained a log-in that was never accepted
  bool basicInClear = false;     ///< see HTTPExchangeInfo

  std::uint64_t receivedBytes = 0;  ///< size of the body as received, decompressed
  std::uint64_t wireBytes = 0;      ///< the same before decompression
  std::uint64_t earlierBytes = 0;   ///< bytes of the bodies of rejected log-ins and failed attempts
  double connectSeconds = 0;
  double firstByteSeconds = 0;
  double totalSeconds = 0;
  HTTPConnectionDetails connection;  ///< see HTTPClientOptions::wantsConnectionDetails
};

/// Posts to one URL and logs in to the service and the proxy if they ask for it. Use from one
/// thread at a time.
class HTTPTransfer {
 public:
  /// `url`, `user` and `password` must not contain control characters. The proxy and the time-outs
  /// of the options must be set. Throws ErrorMessage if libcurl does not accept one of them, and
  /// for an unusable client certificate.
  HTTPTransfer(const NarrowString& url, const NarrowString& user, const NarrowString& password,
               const HTTPClientOptions& options);
  ~HTTPTransfer();
  HTTPTransfer(const HTTPTransfer&) = delete;
  HTTPTransfer& operator=(const HTTPTransfer&) = delete;

  /// Forgets the cookies that the latest exchange has set. Do not call after an exchange with a
  /// limit, which sets none.
  void ForgetCookies() { m_receiver.ForgetCookies(); }
  /// A transfer with the same settings and cookies, and its own connection in `group`. Begins with
  /// the schemes of `logIn`. This one must not be busy.
  std::unique_ptr<HTTPTransfer> Duplicate(HTTPConnectionGroup& group,
                                          const HTTPLogInSchemes& logIn) const;

  /// Header lines of the following requests, separated by line feeds.
  void SetHeaderLines(const NarrowString& lines);
  /// Sends a request and waits for its response.
  void Post(const NarrowString& body, HTTPResponse& response, const HTTPStepHandler& onStep);

  /// The same in steps: call Begin, then Advance after each wait of the group. True: `response` is
  /// complete. It must not move before, and `onStep` must live as long.
  void Begin(const NarrowString& body, HTTPResponse& response, const HTTPStepHandler& onStep);
  bool Advance();
  void Wait(int milliseconds) { m_group.Wait(milliseconds); }
  /// Ends the request and closes its connection. The response stays incomplete.
  void Cancel() noexcept;
  /// Ends a wait, or the next one. Call from any thread.
  void Wake() noexcept { m_group.Wake(); }
  // See HTTPReceiver.
  void SetLimit(HTTPByteLimit* limit) noexcept { m_receiver.SetLimit(limit); }
  std::uint64_t TakeLimitedBytes() noexcept { return m_receiver.TakeLimitedBytes(); }
  /// The schemes with which the last exchange logged in.
  HTTPLogInSchemes LogInSchemes() const noexcept { return m_authentication.Schemes(); }

 private:
  HTTPTransfer(const HTTPTransfer& other, HTTPConnectionGroup& group);

  void Send();
  bool MustSendAgain();
  bool ShouldSendAgain(bool isComplete, const HTTPRequestInfo& info);
  void Finish();
  void Collect(const HTTPRequestInfo& info, HTTPConnectionDetails& details) const;
  void Describe(HTTPFailure failure, const HTTPRequestInfo& info, HTTPResponse& response) const;

  const std::uint32_t m_timeoutSeconds;
  const std::uint32_t m_connectTimeoutSeconds;
  const bool m_isHTTPS;
  const bool m_hasProxy;
  const bool m_hasCertificate;
  const bool m_wantsDetails;
  unsigned int m_usedScheme = 0;  // of the exchange
  const std::shared_ptr<const HTTPCredentials> m_credentials;
  HTTPAuthentication m_authentication;
  HTTPReceiver m_receiver;
  std::unique_ptr<HTTPConnectionGroup> m_ownGroup;  // null: the group of others
  HTTPConnectionGroup& m_group;
  const std::unique_ptr<HTTPConnection> m_connection;

  // Of the exchange:
  NarrowString m_body;
  HTTPResponse* m_response = nullptr;
  HTTPFailure m_failure = HTTPFailure::kNone;
  HTTPRequestInfo m_info;
  bool m_isRefused = false;    // the request was not sent
  bool m_wasRepeated = false;  // after a kept-alive connection that turned out to be closed
};

/// The names of schemes, with commas.
String JoinedNames(const std::vector<std::string>& names);
