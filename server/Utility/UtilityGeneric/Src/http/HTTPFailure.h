#pragma once

#include <cstdint>

#include "Utility/Generic/String.h"

/// Why there is no whole answer.
enum class HTTPFailure {
  kNone,
  // The client gave up:
  kCancelled,
  kResponseTimeout,
  kIdleTimeout,
  kReplyTooLong,
  kHeadersTooLong,
  kCompressionRatioTooHigh,
  kMalformedHeader,
  kCompressedTwice,
  kOutOfMemory,
  // The connection failed:
  kUnknownHost,
  kUnknownProxy,
  kConnectFailed,
  kConnectTimeout,
  kCertificateRejected,
  kCAFileUnreadable,
  kTLSFailed,
  kClosedWithoutResponse,
  kTruncated,
  kReceiveFailed,
  kSendFailed,
  kDecompressionFailed,
  kNotHTTP,
  kProxyRefused,
  kOther,
};

/// True when the client gave up: then a status that may have come says less than the failure.
inline bool IsAbortedByClient(HTTPFailure failure) noexcept {
  return failure != HTTPFailure::kNone && failure < HTTPFailure::kUnknownHost;
}

/// What is known about a failure.
struct HTTPFailureDetails {
  HTTPFailure failure = HTTPFailure::kNone;
  std::uint64_t number = 0;  ///< of the limit, or of the seconds that were waited
  long proxyStatus = 0;      ///< of a proxy that was asked for a connection; 0 for none
  int systemError = 0;       ///< errno of the connection
  String reason;             ///< in libcurl's words; may be empty
};

/// What happened, and what to try, each as part of a line.
void DescribeHTTPFailure(const HTTPFailureDetails& facts, String& what, String& advice);
