#pragma once

#include <cstdint>

#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/String.h"

/// Why a response is incomplete.
enum class HTTPFailure {
  kNone,
  // The client aborted the exchange:
  kCancelled,
  kResponseTimeout,
  kIdleTimeout,
  kReplyTooLong,
  kHeadersTooLong,
  kCompressionRatioTooHigh,
  kMalformedHeader,
  kCompressedTwice,
  kOutOfMemory,
  kTokenUnprotected,
  // The server, the network or TLS failed:
  kBadURL,
  kUnknownHost,
  kUnknownProxy,
  kConnectFailed,
  kConnectTimeout,
  kCertificateRejected,
  kCAFileUnreadable,
  kClientCertificateRequired,
  kClientCertificateRejected,
  kTLSFailed,
  kTLSInterrupted,  ///< the connection was lost in the handshake
  kClosedWithoutResponse,
  kTruncated,
  kReceiveFailed,
  kSendFailed,
  kDecompressionFailed,
  kNotHTTP,
  kProxyRefused,
  kOther,
};

/// True if the client aborted the exchange. Then the failure says more than a received status.
inline bool IsAbortedByClient(HTTPFailure failure) noexcept {
  return failure != HTTPFailure::kNone && failure < HTTPFailure::kBadURL;
}

/// True if the server did not send the response, or the rest of it, in time.
inline bool IsTimeout(HTTPFailure failure) noexcept {
  return failure == HTTPFailure::kResponseTimeout || failure == HTTPFailure::kIdleTimeout;
}

/// Data for the text of a failure.
struct HTTPFailureDetails {
  HTTPFailure failure = HTTPFailure::kNone;
  std::uint64_t number = 0;               ///< the exceeded limit, or the time-out in seconds
  long proxyStatus = 0;                   ///< of the proxy's response to CONNECT; 0: none
  int systemError = 0;                    ///< errno; 0: none
  bool isHTTPS = false;                   ///< the URL of the service
  HTTPStep reached = HTTPStep::kAddress;  ///< the last step that began
  bool usesProxy = false;
  String proxy;             ///< its URL without credentials, if it was the other end; else empty
  bool mayNeedTLS = false;  ///< plain http without a proxy, and the service has never answered
  String reason;            ///< libcurl's text; may be empty
};

/// Parts of an error line: "URL: what; advice (details)". Each may be empty; without `what`,
/// nothing is wrong.
struct HTTPDiagnosis {
  String what;                          ///< what failed, and why
  String advice;                        ///< what to do
  String details;                       ///< what the server or a library says
  HTTPStep step = HTTPStep::kResponse;  ///< at which it failed
  HTTPSetting setting = HTTPSetting::kNone;
};

/// A more precise failure of a TLS connection, from the alert that ended it. With TLS 1.3, the
/// server checks the client certificate after the handshake. `wasCertificateRequested`: the server
/// asked for a client certificate on this new connection, and has not responded. A connection lost
/// then counts as a rejected or missing certificate.
HTTPFailure RefineTLSFailure(HTTPFailure failure, const String& reason, bool hasClientCertificate,
                             bool wasCertificateRequested);

HTTPDiagnosis DescribeHTTPFailure(const HTTPFailureDetails& facts);
