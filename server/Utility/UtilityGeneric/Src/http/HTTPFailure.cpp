#include "http/HTTPFailure.h"

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/Cancellation.h"
#include "http/HTTPStatus.h"
#include "system/SystemErrorText.h"

namespace {

/// HTTPFailureDetails::number replaces "#".
struct Text {
  const wchar_t* what;
  const wchar_t* advice;
};

Text TextOf(HTTPFailure failure) noexcept {
  constexpr const wchar_t* kSmaller = L"choose a smaller part of the server's metadata";
  constexpr const wchar_t* kLonger = L"try again, or with a longer time-out";
  switch (failure) {
    case HTTPFailure::kNone:
    case HTTPFailure::kCancelled:  // uses StopText
      return {L"", L""};
    case HTTPFailure::kResponseTimeout:
      return {L"The server has sent no answer for # seconds", kLonger};
    case HTTPFailure::kIdleTimeout:
      return {L"The server stopped in the middle of its reply and has sent nothing for # seconds",
              kLonger};
    case HTTPFailure::kReplyTooLong:
      return {L"The reply is longer than # bytes (limit maxReplyBytes)", kSmaller};
    case HTTPFailure::kHeadersTooLong:
      return {L"The reply has more than # bytes of headers (limit maxHeaderBytes)",
              L"check that the URL is that of an XML for Analysis service"};
    case HTTPFailure::kCompressionRatioTooHigh:
      return {
          L"The reply is more than # times as long as its compressed form (limit "
          L"maxCompressionRatio)",
          kSmaller};
    case HTTPFailure::kMalformedHeader:
      return {L"A header line of the answer has a carriage return inside",
              L"have the server, or the proxy, put right"};
    case HTTPFailure::kCompressedTwice:
      return {L"The reply is compressed more than once, which is not accepted",
              L"have the server, or the proxy, compress it only once"};
    case HTTPFailure::kOutOfMemory:
      return {L"There is not enough memory for the reply", L""};
    case HTTPFailure::kUnknownHost:
      return {L"The host of the service is not known", L"check the spelling of the host name"};
    case HTTPFailure::kUnknownProxy:
      return {L"The host of the proxy is not known", L"check the environment's proxy setting"};
    case HTTPFailure::kConnectFailed:
      return {L"There is no connection to the service",
              L"check host and port, that the service is running, and the proxy if the environment "
              L"names one"};
    case HTTPFailure::kConnectTimeout:
      return {L"No connection to the service came about within # seconds",
              L"check host and port, or try a longer time-out"};
    case HTTPFailure::kCertificateRejected:
      return {L"The server's certificate is not trusted",
              L"have the certificate put right, or name the file of its authority's certificate in "
              L"SSL_CERT_FILE"};
    case HTTPFailure::kCAFileUnreadable:
      return {L"The file of trusted certificates cannot be read", L"check SSL_CERT_FILE"};
    case HTTPFailure::kTLSFailed:
      return {L"The server does not speak TLS as it should",
              L"check that the port is one for https, and that the server speaks TLS 1.2 or later"};
    case HTTPFailure::kClosedWithoutResponse:
      return {L"The server closed the connection without an answer",
              L"check that the port is that of a web server, and try again"};
    case HTTPFailure::kTruncated:
      return {L"The connection was cut in the middle of the reply", L"try again"};
    case HTTPFailure::kReceiveFailed:
      return {L"The connection broke while the reply was read", L"try again"};
    case HTTPFailure::kSendFailed:
      return {L"The connection broke while the request was sent", L"try again"};
    case HTTPFailure::kDecompressionFailed:
      return {L"The reply's compression is broken or not known",
              L"try again, or switch the server's compression off"};
    case HTTPFailure::kNotHTTP:
      return {L"The answer is not HTTP", L"check that the port is that of a web server"};
    case HTTPFailure::kProxyRefused:
      return {L"The proxy does not let the connection through",
              L"check the environment's proxy setting"};
    case HTTPFailure::kOther:
      break;
  }
  return {L"The request failed", L""};
}

}  // namespace

void DescribeHTTPFailure(const HTTPFailureDetails& facts, String& what, String& advice) {
  const HTTPFailure failure = facts.failure;
  const Text text = TextOf(failure);
  what = failure == HTTPFailure::kCancelled ? StopText() : String(text.what);
  advice = text.advice;
  BaseStringUtil::ReplacePatternInString(what, L"#", BaseStringUtil::StringFrom(facts.number));
  if (IsAbortedByClient(failure) || failure == HTTPFailure::kConnectTimeout) return;
  if (facts.proxyStatus >= 300) {
    what = TextOf(HTTPFailure::kProxyRefused).what + (L": " + HTTPStatus::Line(facts.proxyStatus));
    advice = HTTPStatus::Advice(facts.proxyStatus);
    return;
  }
  // libcurl's text for a system error may depend on the locale, so the number is used.
  const bool isSystemError =
      failure == HTTPFailure::kConnectFailed || failure == HTTPFailure::kReceiveFailed ||
      failure == HTTPFailure::kSendFailed || failure == HTTPFailure::kClosedWithoutResponse;
  const bool needsNoReason = failure == HTTPFailure::kClosedWithoutResponse ||
                             failure == HTTPFailure::kUnknownHost ||
                             failure == HTTPFailure::kUnknownProxy;
  if (isSystemError && facts.systemError != 0)
    what += L": " + SystemErrorText(facts.systemError);
  else if (!needsNoReason && !facts.reason.empty())
    what += L": " + facts.reason;
}
