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

  std::uint64_t wireBytes = 0;     ///< bytes of the body before decompression
  std::uint64_t earlierBytes = 0;  ///< bytes of the bodies of rejected log-ins and failed attempts
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

  /// Header lines of the following requests, separated by line feeds.
  void SetHeaderLines(const NarrowString& lines);
  void Post(const NarrowString& body, HTTPResponse& response, const HTTPStepHandler& onStep);

 private:
  HTTPFailure Send(const NarrowString& body, HTTPRequestInfo& info);
  bool ShouldSendAgain(bool isComplete, const HTTPRequestInfo& info);
  void Collect(const HTTPRequestInfo& info, HTTPConnectionDetails& details) const;
  void Describe(HTTPFailure failure, const HTTPRequestInfo& info, HTTPResponse& response) const;

  const std::uint32_t m_timeoutSeconds;
  const std::uint32_t m_connectTimeoutSeconds;
  const bool m_isHTTPS;
  const bool m_hasProxy;
  const bool m_hasCertificate;
  const bool m_wantsDetails;
  unsigned int m_usedScheme = 0;  // of the exchange
  const HTTPCredentials m_credentials;
  HTTPAuthentication m_authentication;
  HTTPReceiver m_receiver;
  std::unique_ptr<HTTPConnection> m_connection;
};
