#include "http/HTTPFailure.h"

#include <algorithm>
#include <iterator>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/Cancellation.h"
#include "http/HTTPStatus.h"
#include "system/SystemErrorText.h"

namespace {

/// HTTPFailureDetails::number replaces "#".
struct Text {
  const wchar_t* what;
  const wchar_t* advice;
  HTTPSetting setting = HTTPSetting::kNone;
};

Text TextOf(HTTPFailure failure) noexcept {
  constexpr const wchar_t* kSmaller = L"choose a smaller part of the server's metadata";
  constexpr const wchar_t* kLonger = L"try again, or with a longer time-out";
  switch (failure) {
    case HTTPFailure::kNone:
    case HTTPFailure::kCancelled:  // uses StopText
      return {L"", L""};
    case HTTPFailure::kResponseTimeout:
      return {L"the server has not responded for # seconds", kLonger, HTTPSetting::kTimeout};
    case HTTPFailure::kIdleTimeout:
      return {L"the server stopped in the middle of its reply and has sent nothing for # seconds",
              kLonger, HTTPSetting::kTimeout};
    case HTTPFailure::kReplyTooLong:
      return {L"the reply is longer than # bytes (limit maxReplyBytes)", kSmaller};
    case HTTPFailure::kHeadersTooLong:
      return {L"the reply has more than # bytes of headers (limit maxHeaderBytes)",
              L"check that the URL leads to an XML for Analysis service", HTTPSetting::kURL};
    case HTTPFailure::kCompressionRatioTooHigh:
      return {L"the reply is compressed by a factor of more than # (limit maxCompressionRatio)",
              kSmaller};
    case HTTPFailure::kMalformedHeader:
      return {L"a header line of the response contains a carriage return",
              L"report it to the administrator of the server or proxy"};
    case HTTPFailure::kCompressedTwice:
      return {L"the reply is compressed more than once, which is not accepted",
              L"configure the server or proxy to compress it only once"};
    case HTTPFailure::kOutOfMemory:
      return {L"there is not enough memory for the reply", L""};
    case HTTPFailure::kTokenUnprotected:
      return {L"the token is not sent over plain http to another machine",
              L"use https, or set allowBasicOverPlainHttp", HTTPSetting::kURL};
    case HTTPFailure::kBadURL:
      return {L"the URL of the service or of the proxy cannot be used", L"correct it",
              HTTPSetting::kURL};
    case HTTPFailure::kUnknownHost:
      return {L"the host name of the service cannot be resolved",
              L"check the spelling of the host name"};
    case HTTPFailure::kUnknownProxy:
      return {L"the host name of the proxy @ cannot be resolved", L"check the proxy setting",
              HTTPSetting::kProxy};
    case HTTPFailure::kConnectFailed:
      return {L"cannot connect to the service",
              L"check host and port, and that the service is running", HTTPSetting::kURL};
    case HTTPFailure::kConnectTimeout:
      return {L"no connection to the service within # seconds",
              L"check host and port, or try a longer time-out", HTTPSetting::kConnectTimeout};
    case HTTPFailure::kCertificateRejected:
      return {L"the server's certificate is not trusted",
              L"replace the certificate, or add its authority to the file of trusted certificates",
              HTTPSetting::kCAFile};
    case HTTPFailure::kCAFileUnreadable:
      return {L"the file of trusted certificates cannot be read",
              L"check its name, its contents and the right to read it; the system's own file is in "
              L"the package ca-certificates",
              HTTPSetting::kCAFile};
    case HTTPFailure::kClientCertificateRequired:
      return {L"the server requires a client certificate",
              L"give one, or ask the server's administrator for one", HTTPSetting::kCertificate};
    case HTTPFailure::kClientCertificateRejected:
      return {L"the server rejected the client certificate",
              L"use one from an authority that the server accepts, and check that it is still "
              L"valid",
              HTTPSetting::kCertificate};
    case HTTPFailure::kTLSFailed:
      return {L"the TLS handshake with the server failed",
              L"check that the port is one for https, and that the server speaks TLS 1.2 or later",
              HTTPSetting::kURL};
    case HTTPFailure::kTLSInterrupted:
      return {L"the connection was lost in the TLS handshake",
              L"check that the port is one for https, and try again; if the port is one for http, "
              L"use http://",
              HTTPSetting::kURL};
    case HTTPFailure::kClosedWithoutResponse:
      return {L"the server closed the connection without a response",
              L"check that a web server uses this port, and try again", HTTPSetting::kURL};
    case HTTPFailure::kTruncated:
      return {L"the connection was closed in the middle of the reply", L"try again",
              HTTPSetting::kRetries};
    case HTTPFailure::kReceiveFailed:
      return {L"the connection failed while the reply was received", L"try again",
              HTTPSetting::kRetries};
    case HTTPFailure::kSendFailed:
      return {L"the connection failed while the request was sent", L"try again",
              HTTPSetting::kRetries};
    case HTTPFailure::kDecompressionFailed:
      return {L"the reply cannot be decompressed",
              L"try again, or disable compression on the server"};
    case HTTPFailure::kNotHTTP:
      return {L"the response is not HTTP", L"check that a web server uses this port",
              HTTPSetting::kURL};
    case HTTPFailure::kProxyRefused:
      return {L"the proxy refuses the connection", L"check the proxy setting", HTTPSetting::kProxy};
    case HTTPFailure::kOther:
      break;
  }
  return {L"the request failed", L""};
}

/// What is said instead if a proxy is at the other end. Its URL replaces "@".
struct ProxyText {
  HTTPFailure failure;
  const wchar_t* what;
  const wchar_t* advice = L"check the proxy setting";
};
constexpr ProxyText kProxyTexts[] = {
    {HTTPFailure::kConnectFailed, L"cannot connect to the proxy @"},
    {HTTPFailure::kConnectTimeout, L"no connection through the proxy @ within # seconds",
     L"check the proxy setting, or try a longer time-out"},
    {HTTPFailure::kCertificateRejected, L"the certificate of the proxy @ is not trusted",
     L"check the proxy setting, or add the authority of its certificate to the file of trusted "
     L"certificates"},
    {HTTPFailure::kTLSFailed, L"the TLS handshake with the proxy @ failed",
     L"check the proxy setting, and that the proxy speaks TLS 1.2 or later"},
    {HTTPFailure::kTLSInterrupted, L"the connection to the proxy @ was lost in the TLS handshake"},
    {HTTPFailure::kClosedWithoutResponse, L"the proxy @ closed the connection without a response"},
    {HTTPFailure::kReceiveFailed, L"the connection to the proxy @ was lost"},
    {HTTPFailure::kSendFailed, L"the connection to the proxy @ was lost"},
    {HTTPFailure::kNotHTTP, L"the response of the proxy @ is not HTTP"},
};

Text TextOf(HTTPFailure failure, bool isOfProxy) noexcept {
  for (const ProxyText& text : kProxyTexts)
    if (isOfProxy && text.failure == failure) return {text.what, text.advice, HTTPSetting::kProxy};
  return TextOf(failure);
}

/// Texts of libcurl and OpenSSL about certificates that are wrong in a particular way.
struct CertificateText {
  const wchar_t* reason;
  const wchar_t* what;
  const wchar_t* advice;
  HTTPSetting setting = HTTPSetting::kNone;
};
constexpr CertificateText kCertificateTexts[] = {
    {L"target host", L"the server's certificate is for another host name",
     L"use the name in the certificate, or replace the certificate", HTTPSetting::kURL},
    {L"has expired", L"the server's certificate has expired",
     L"replace it, or check the clock of this machine"},
    {L"not yet valid", L"the server's certificate is not yet valid",
     L"replace it, or check the clock of this machine"},
};

/// True if OpenSSL's text says that the server's first bytes are not TLS.
bool IsNotTLS(const String& reason) {
  return reason.find(L"wrong version number") != String::npos ||
         reason.find(L"http request") != String::npos ||
         reason.find(L"packet length too long") != String::npos;
}

/// True if a server that expects TLS may fail in this way when it gets a request by plain http.
bool MayExpectTLS(HTTPFailure failure) {
  return failure == HTTPFailure::kNotHTTP || failure == HTTPFailure::kClosedWithoutResponse ||
         failure == HTTPFailure::kReceiveFailed;
}

bool IsLostConnection(HTTPFailure failure) {
  return failure == HTTPFailure::kClosedWithoutResponse || failure == HTTPFailure::kReceiveFailed ||
         failure == HTTPFailure::kSendFailed;
}

bool Contains(const String& text, const wchar_t* part) { return text.find(part) != String::npos; }

void DescribeCertificate(const HTTPFailureDetails& facts, HTTPDiagnosis& result) {
  for (const CertificateText& text : kCertificateTexts) {
    if (!Contains(facts.reason, text.reason)) continue;
    result.what = text.what;
    if (!facts.proxy.empty())
      BaseStringUtil::ReplacePatternInString(result.what, L"the server's certificate",
                                             L"the certificate of the proxy @");
    result.advice = text.advice;
    result.setting = facts.proxy.empty() ? text.setting : HTTPSetting::kProxy;
    return;
  }
}

bool IsAlertAboutClient(const String& reason) {
  // Alerts about a client certificate, in OpenSSL's words. The last one is libcurl's text for an
  // expired certificate.
  constexpr const wchar_t* kAlerts[] = {L"alert certificate required",
                                        L"alert bad certificate",
                                        L"alert unsupported certificate",
                                        L"alert certificate revoked",
                                        L"alert certificate expired",
                                        L"alert certificate unknown",
                                        L"alert unknown ca",
                                        L"alert access denied",
                                        L"alert decrypt error",
                                        L"SSL certificate verification failed"};
  return std::any_of(std::begin(kAlerts), std::end(kAlerts),
                     [&reason](const wchar_t* alert) { return Contains(reason, alert); });
}

HTTPStep StepOf(HTTPFailure failure, HTTPStep reached, bool usesProxy) noexcept {
  switch (failure) {
    case HTTPFailure::kNone:
      return HTTPStep::kNone;
    case HTTPFailure::kBadURL:
      return HTTPStep::kAddress;
    case HTTPFailure::kUnknownHost:
      return HTTPStep::kNameResolution;
    case HTTPFailure::kUnknownProxy:
    case HTTPFailure::kProxyRefused:
      return HTTPStep::kProxy;
    case HTTPFailure::kTokenUnprotected:
      return HTTPStep::kLogIn;
    case HTTPFailure::kCAFileUnreadable:
    case HTTPFailure::kClientCertificateRequired:
    case HTTPFailure::kClientCertificateRejected:
      return HTTPStep::kTLS;
    default:
      break;
  }
  const bool isBeforeTunnel =
      reached == HTTPStep::kNameResolution || reached == HTTPStep::kConnection;
  return usesProxy && isBeforeTunnel ? HTTPStep::kProxy : reached;
}

}  // namespace

HTTPFailure RefineTLSFailure(HTTPFailure failure, const String& reason, bool hasClientCertificate,
                             bool wasCertificateRequested) {
  const bool isTLS =
      failure == HTTPFailure::kTLSFailed || failure == HTTPFailure::kCertificateRejected;
  if (!IsLostConnection(failure) && !isTLS) return failure;
  const bool isAlert = IsAlertAboutClient(reason);
  const bool wasInterrupted =
      failure == HTTPFailure::kTLSFailed &&
      (Contains(reason, L"SSL_ERROR_SYSCALL") || Contains(reason, L"eset by peer") ||
       Contains(reason, L"unexpected eof"));
  const bool isLost = IsLostConnection(failure) || wasInterrupted;
  // The connection may end before libcurl reads the alert, mostly with TLS 1.3.
  if (hasClientCertificate && (isAlert || (wasCertificateRequested && isLost)))
    return HTTPFailure::kClientCertificateRejected;
  // TLS 1.2 has no alert of its own for a missing certificate.
  if (wasCertificateRequested && !hasClientCertificate &&
      (isAlert || isLost || Contains(reason, L"alert handshake failure")))
    return HTTPFailure::kClientCertificateRequired;
  return wasInterrupted ? HTTPFailure::kTLSInterrupted : failure;
}

HTTPDiagnosis DescribeHTTPFailure(const HTTPFailureDetails& facts) {
  const HTTPFailure failure = facts.failure;
  const bool isOfProxy = !facts.proxy.empty();
  const Text text = TextOf(failure, isOfProxy);
  HTTPDiagnosis result;
  result.what = failure == HTTPFailure::kCancelled ? StopText() : String(text.what);
  result.advice = text.advice;
  result.setting = text.setting;
  result.step = StepOf(failure, facts.reached, facts.usesProxy);
  if (failure == HTTPFailure::kConnectTimeout && facts.reached == HTTPStep::kTLS)
    result.what = L"the TLS handshake with the server has not ended within # seconds";
  if (failure == HTTPFailure::kCertificateRejected) DescribeCertificate(facts, result);
  if (facts.number == 1)
    BaseStringUtil::ReplacePatternInString(result.what, L"# seconds", L"# second");
  BaseStringUtil::ReplacePatternInString(result.what, L"#",
                                         BaseStringUtil::StringFrom(facts.number));
  if (isOfProxy) BaseStringUtil::ReplacePatternInString(result.what, L"@", facts.proxy);
  if (failure == HTTPFailure::kConnectTimeout && facts.isHTTPS && !isOfProxy)
    result.advice += L"; if the port is one for http, use http://";
  if (IsAbortedByClient(failure) || failure == HTTPFailure::kConnectTimeout) return result;
  if (facts.proxyStatus >= 300) {
    result.what =
        TextOf(HTTPFailure::kProxyRefused).what + (L": " + HTTPStatus::Line(facts.proxyStatus));
    result.advice = HTTPStatus::Advice(facts.proxyStatus);
    result.setting = HTTPSetting::kProxy;
    return result;
  }
  if (failure == HTTPFailure::kTLSFailed && IsNotTLS(facts.reason)) {
    result.what = isOfProxy ? L"the proxy " + facts.proxy + L" does not use TLS on this port"
                            : String(L"the server does not use TLS on this port");
    result.advice = isOfProxy ? L"check the proxy setting" : L"use http://, or the port for https";
  } else if (facts.mayNeedTLS && MayExpectTLS(failure)) {
    result.advice += L"; if the port is one for https, use https://";
    result.setting = HTTPSetting::kURL;
  }
  if (failure == HTTPFailure::kClientCertificateRejected && !IsAlertAboutClient(facts.reason))
    result.what =
        L"the connection ended after the client certificate was sent: most likely, the server "
        L"rejected it";
  // libcurl's text for a system error may depend on the locale, so the number is used.
  const bool isSystemError = failure == HTTPFailure::kConnectFailed || IsLostConnection(failure);
  const bool needsNoReason = failure == HTTPFailure::kClosedWithoutResponse ||
                             failure == HTTPFailure::kUnknownHost ||
                             failure == HTTPFailure::kUnknownProxy;
  if (isSystemError && facts.systemError != 0)
    result.what += L": " + SystemErrorText(facts.systemError);
  else if (!needsNoReason)
    result.details = facts.reason;
  return result;
}
