#include "http/HTTPOutcome.h"

#include <algorithm>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/Cancellation.h"
#include "Utility/Generic/HTTPClientWrapper.h"
#include "http/HTTPBearer.h"
#include "http/HTTPStatus.h"
#include "http/HTTPUrl.h"
#include "http/KerberosProblem.h"
#include "http/ReplyCharset.h"
#include "http/ReplyKind.h"
#include "text/ASCIIText.h"

namespace {

using BaseStringUtil::FromUTF8;

/// Limits the length of a text that a server chose.
String Truncated(const String& text) {
  constexpr std::size_t kMaxCharacters = 512;
  return text.size() <= kMaxCharacters ? text : text.substr(0, kMaxCharacters) + L"...";
}

bool IsNegotiate(const std::string& scheme) {
  return ASCIIText::EqualsIgnoringCase(scheme, "negotiate");
}

/// True if none of the offered schemes is allowed, but another setting could allow one that works.
bool IsOfferNotAllowed(const HTTPResponse& response, bool hasUser, unsigned int allowed) {
  if ((response.offered & allowed) != 0) return false;
  // By default, a user name excludes Negotiate.
  const bool isDefault = hasUser && (response.offered & kAuthPasswordSchemes) == 0;
  return response.offered != 0 && !isDefault;
}

void DiagnoseOfferNotAllowed(const HTTPResponse& response, bool isProxy,
                             const HTTPClientSetup& setup, HTTPDiagnosis& diagnosis) {
  const std::vector<std::string> allowed = HTTPLogIn::Names(setup.allowed);
  diagnosis.what += String(isProxy ? L": the proxy" : L": the server") + L" offers " +
                    JoinedNames(response.schemes) + L", but ";
  diagnosis.what += allowed.empty() ? String(L"no scheme is allowed")
                                    : L"only " + JoinedNames(allowed) +
                                          (allowed.size() == 1 ? L" is allowed" : L" are allowed");
  diagnosis.advice = L"allow one of the schemes that it offers";
  diagnosis.setting = HTTPSetting::kAuthSchemes;
  const bool needsUser = (response.offered & kAuthNegotiate) == 0 && !setup.hasUser;
  if (needsUser && !isProxy) diagnosis.advice += L", and " + setup.missingUserAdvice;
  diagnosis.details = L"";
}

/// Describes a 401 of the service or a 407 of the proxy.
void DiagnoseLogIn(const HTTPResponse& response, bool isProxy, const HTTPClientSetup& setup,
                   HTTPDiagnosis& diagnosis) {
  const bool offersOther = std::any_of(response.schemes.begin(), response.schemes.end(),
                                       [](const std::string& name) { return !IsNegotiate(name); });
  diagnosis.details = response.schemes.empty() ? String(L"no way to log in is offered")
                                               : L"it offers " + JoinedNames(response.schemes);
  if (!response.logInProblem.empty()) diagnosis.details += L"; " + FromUTF8(response.logInProblem);
  const unsigned int rejected = isProxy ? response.rejectedByProxy : response.rejectedByService;
  const wchar_t* const peer = isProxy ? L": the proxy" : L": the server";
  if (response.isLogInUnfinished) {
    diagnosis.what += L": the connection was closed in the middle of the log-in";
    diagnosis.advice =
        L"ask the administrator of the server, or of a gateway before it, to keep connections "
        L"open, which NTLM requires";
    diagnosis.setting = HTTPSetting::kNone;
  } else if (isProxy && !response.hasProxy) {
    diagnosis.what +=
        L": no proxy is set, but the server, or a gateway before it, asks for a proxy's log-in";
    diagnosis.advice = L"check the URL, or set the proxy";
  } else if (rejected == 0 &&
             IsOfferNotAllowed(response, setup.hasUser && !isProxy, setup.allowed)) {
    DiagnoseOfferNotAllowed(response, isProxy, setup, diagnosis);
  } else if ((rejected & kAuthPasswordSchemes) != 0) {
    diagnosis.what += String(peer) + L" rejected the user name or the password";
    if (isProxy) diagnosis.advice = L"check user name and password in the proxy's URL";
  } else if (rejected != 0 && !response.logInProblem.empty()) {
    const KerberosProblem problem = DescribeKerberosProblem(response.logInProblem);
    diagnosis.what += L": " + problem.what;
    const bool canUsePassword = problem.isWithoutTicket && !setup.hasUser &&
                                (response.offered & setup.allowed & kAuthPasswordSchemes) != 0;
    diagnosis.advice = problem.advice;
    diagnosis.setting = problem.setting;
    if (canUsePassword && !isProxy) {
      diagnosis.advice += L", or " + setup.missingUserAdvice;
      diagnosis.setting = HTTPSetting::kUser;
    }
  } else if (rejected != 0) {
    diagnosis.what += String(peer) + L" rejected the Kerberos ticket";
    diagnosis.advice =
        L"check with klist whose ticket it is, and ask the administrator whether that user may log "
        L"in";
    diagnosis.setting = HTTPSetting::kNone;
  } else if (!isProxy && response.schemes.size() == 1 && !response.bearerChallenge.empty()) {
    diagnosis.what += L": the server requires a token";
    diagnosis.advice = L"give one, instead of user and password";
    diagnosis.setting = HTTPSetting::kToken;
  } else if (!isProxy && !setup.hasUser) {
    diagnosis.what += L": the server requires a log-in";
    diagnosis.advice = setup.missingUserAdvice;
    if (!response.bearerChallenge.empty()) diagnosis.advice += L", or a token";
  } else if (!isProxy) {
    diagnosis.what += L": the server offers no way to log in that can be used here";
    diagnosis.advice = L"ask the server's administrator for one that uses a password";
    diagnosis.setting = HTTPSetting::kAuthSchemes;
    if (!offersOther && !response.schemes.empty())
      diagnosis.advice =
          L"log in with a Kerberos ticket instead of a user name, or " + diagnosis.advice;
  }
  if (response.logInAdvice.empty()) return;
  diagnosis.advice = response.logInAdvice;
  diagnosis.setting = HTTPSetting::kNone;
}

HTTPStep StepOf(const HTTPResponse& response) {
  if (response.status == 401) return HTTPStep::kLogIn;
  return response.status == 407 && response.hasProxy ? HTTPStep::kProxy : HTTPStep::kResponse;
}

HTTPDiagnosis DiagnoseStatus(const HTTPResponse& response, const HTTPClientSetup& setup) {
  HTTPDiagnosis diagnosis{HTTPStatus::Line(response.status), HTTPStatus::Advice(response.status),
                          L""};
  diagnosis.step = StepOf(response);
  diagnosis.setting = HTTPStatus::Setting(response.status);
  if (setup.hasToken && response.status != 407 &&
      HTTPBearer::Describe(response.status, response.bearerChallenge, diagnosis)) {
    diagnosis.step = HTTPStep::kLogIn;
    return diagnosis;
  }
  if (response.status == 401 || response.status == 407) {
    DiagnoseLogIn(response, response.status == 407, setup, diagnosis);
  } else if (!response.redirectTarget.empty()) {
    diagnosis.what += L", points to " + Truncated(setup.Cleaned(response.redirectTarget));
    diagnosis.advice = L"use the URL that it points to, if that is the service";
  } else if (response.status == 400 && !HTTPUrl::IsHTTPS(setup.shownURL)) {
    diagnosis.advice += L"; if the port is one for https, use https://";
  }
  return diagnosis;
}

/// Finds reasons why a body cannot be XML.
HTTPDiagnosis DiagnoseBody(const HTTPResponse& response, const HTTPClientSetup& setup) {
  const std::string_view body = response.body.view();
  const wchar_t* const kCheckURL = L"check that the URL leads to an XML for Analysis service";
  if (ReplyKind::IsEmpty(body)) {
    return {HTTPStatus::Line(response.status) + L", but the reply is empty", kCheckURL, L"",
            HTTPStep::kProtocol, HTTPSetting::kURL};
  }
  if (ReplyKind::IsWebPage(body)) {
    const std::string title = ReplyKind::PageTitle(body);
    String what = L"the server sent a web page instead of XML";
    if (!title.empty()) what += L", titled \"" + setup.Cleaned(FromUTF8(title)) + L"\"";
    return {what,
            L"it may be a log-in form or a proxy's page; open the URL in a browser, and check "
            L"that it leads to an XML for Analysis service",
            L"", HTTPStep::kProtocol, HTTPSetting::kURL};
  }
  if (ReplyKind::IsPlainText(body)) {
    return {L"the server sent plain text instead of XML: \"" +
                setup.Cleaned(FromUTF8(ReplyKind::Beginning(body))) + L"\"",
            kCheckURL, L"", HTTPStep::kProtocol, HTTPSetting::kURL};
  }
  return {};
}

}  // namespace

HTTPOutcome ClassifyHTTPResponse(HTTPResponse& response, const HTTPClientSetup& setup,
                                 std::uint64_t maxReplyBytes) {
  const bool isSuccess = response.status >= 200 && response.status < 300;
  if (response.failure != HTTPFailure::kNone) {
    // A server that rejects a request often closes the connection. The status then says more than
    // the failure.
    if (response.proxyStatus == 407) DiagnoseLogIn(response, true, setup, response.diagnosis);
    // The host may be a user name, and the port the beginning of a password with a slash.
    if (response.failure == HTTPFailure::kUnknownHost && HTTPUrl::HidesPart(setup.shownURL))
      response.diagnosis.advice += kURLPasswordAdvice;
    if (IsAbortedByClient(response.failure) || response.status < 300)
      return {response.diagnosis, false};
    return {DiagnoseStatus(response, setup), false};
  }
  String charset;
  const CharsetResult result =
      ConvertReplyToUTF8(response.body, response.contentType, maxReplyBytes, charset);
  if (IsThreadToStop()) return {{StopText(), L"", L""}, false};  // the text may be incomplete
  if (result == CharsetResult::kTooLong) {
    return {{L"the reply is longer than " + BaseStringUtil::StringFrom(maxReplyBytes) +
                 L" bytes after its conversion to UTF-8 (limit maxReplyBytes)",
             L"choose a smaller part of the server's metadata", L""},
            false};
  }
  if (isSuccess && result == CharsetResult::kUnknownCharset) {
    return {
        {L"the reply is in the charset \"" + setup.Cleaned(charset) + L"\", which is not accepted",
         L"configure the server to use UTF-8", L""},
        false};
  }
  const HTTPDiagnosis body = DiagnoseBody(response, setup);
  if (isSuccess) return {body, body.what.empty()};
  return {DiagnoseStatus(response, setup), result == CharsetResult::kReady && body.what.empty()};
}
