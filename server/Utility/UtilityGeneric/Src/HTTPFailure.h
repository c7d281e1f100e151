#pragma once

/// Why there is no whole answer.
enum class HTTPFailure {
  kNone,
  // The client gave up:
  kCancelled,
  kNoAnswer,
  kSilence,
  kReplyTooLong,
  kHeadersTooLong,
  kRatioTooHigh,
  kBadHeaderLine,
  kOutOfMemory,
  // The connection failed:
  kUnknownHost,
  kUnknownProxy,
  kNotConnected,
  kNotConnectedInTime,
  kUntrustedCertificate,
  kUnreadableCertificates,
  kNoTLS,
  kNothingCame,
  kCut,
  kBrokenWhileReading,
  kBrokenWhileSending,
  kBadCompression,
  kNotHTTP,
  kProxyRefuses,
  kOther,
};

/// What happened, and what to try, each as part of a line. "#" stands for the number of the limit
/// or of the seconds that were waited.
struct HTTPFailureText {
  const wchar_t* what;
  const wchar_t* advice;
};

HTTPFailureText TextOf(HTTPFailure failure) noexcept;

/// True when the client gave up: then a status that may have come says less than the failure.
inline bool IsOwnDoing(HTTPFailure failure) noexcept {
  return failure != HTTPFailure::kNone && failure < HTTPFailure::kUnknownHost;
}
