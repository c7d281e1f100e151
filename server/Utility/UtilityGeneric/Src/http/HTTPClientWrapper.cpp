#include "Utility/Generic/HTTPClientWrapper.h"

#include <algorithm>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/Cancellation.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/ImportOperation.h"
#include "Utility/Generic/ImportSettings.h"
#include "Utility/Generic/Secret.h"
#include "errors/MessageCatalogue.h"
#include "http/HTTPProxy.h"
#include "http/HTTPStatus.h"
#include "http/HTTPTransfer.h"
#include "http/HTTPUrl.h"
#include "http/KerberosProblem.h"
#include "http/ReplyCharset.h"
#include "http/ReplyKind.h"
#include "text/ASCIIText.h"

namespace {

using BaseStringUtil::FromUTF8;
using BaseStringUtil::ToUTF8;

String Joined(const std::vector<std::string>& names) {
  String text;
  for (const std::string& name : names) {
    if (!text.empty()) text += L", ";
    text += FromUTF8(name);
  }
  return text;
}

/// Limits the length of a text that a server chose.
String Truncated(const String& text) {
  constexpr std::size_t kMaxCharacters = 512;
  return text.size() <= kMaxCharacters ? text : text.substr(0, kMaxCharacters) + L"...";
}

bool IsNegotiate(const std::string& scheme) {
  return ASCIIText::EqualsIgnoringCase(scheme, "negotiate");
}

/// How the client is set up, as far as it matters to the texts.
struct Setup {
  String shownURL;
  bool hasUser;
  String missingUserAdvice;
};

/// Describes a 401 of the service or a 407 of the proxy.
void DiagnoseLogIn(const HTTPResponse& response, bool isProxy, const Setup& setup,
                   HTTPDiagnosis& diagnosis) {
  const bool offersOther = std::any_of(response.schemes.begin(), response.schemes.end(),
                                       [](const std::string& name) { return !IsNegotiate(name); });
  diagnosis.details = response.schemes.empty() ? String(L"no way to log in is offered")
                                               : L"it offers " + Joined(response.schemes);
  if (!response.logInProblem.empty()) diagnosis.details += L"; " + FromUTF8(response.logInProblem);
  const unsigned int rejected = isProxy ? response.rejectedByProxy : response.rejectedByService;
  const wchar_t* const peer = isProxy ? L": the proxy" : L": the server";
  if (response.isLogInUnfinished) {
    diagnosis.what += L": the connection was closed in the middle of the log-in";
    diagnosis.advice =
        L"ask the administrator of the server, or of a gateway before it, to keep connections "
        L"open, which NTLM requires";
  } else if ((rejected & kAuthPasswordSchemes) != 0) {
    diagnosis.what += String(peer) + L" rejected the user name or the password";
    if (isProxy) diagnosis.advice = L"check user name and password in the proxy's URL";
  } else if (rejected != 0 && !response.logInProblem.empty()) {
    const KerberosProblem problem = DescribeKerberosProblem(response.logInProblem);
    diagnosis.what += L": " + problem.what;
    const bool canUsePassword = problem.isWithoutTicket && offersOther && !setup.hasUser;
    diagnosis.advice = problem.advice;
    if (canUsePassword && !isProxy) diagnosis.advice += L", or " + setup.missingUserAdvice;
  } else if (rejected != 0) {
    diagnosis.what += String(peer) + L" rejected the Kerberos ticket";
    diagnosis.advice =
        L"check with klist whose ticket it is, and ask the administrator whether that user may log "
        L"in";
  } else if (!isProxy && !setup.hasUser) {
    diagnosis.what += L": the server requires a log-in";
    diagnosis.advice = setup.missingUserAdvice;
  } else if (!isProxy) {
    diagnosis.what += L": the server offers no way to log in that can be used here";
    diagnosis.advice = L"ask the server's administrator for one that uses a password";
    if (!offersOther && !response.schemes.empty())
      diagnosis.advice =
          L"log in with a Kerberos ticket instead of a user name, or " + diagnosis.advice;
  }
  if (!response.logInAdvice.empty()) diagnosis.advice = response.logInAdvice;
}

HTTPDiagnosis DiagnoseStatus(const HTTPResponse& response, const Setup& setup) {
  HTTPDiagnosis diagnosis{HTTPStatus::Line(response.status), HTTPStatus::Advice(response.status),
                          L""};
  if (response.status == 401 || response.status == 407)
    DiagnoseLogIn(response, response.status == 407, setup, diagnosis);
  else if (!response.redirectTarget.empty())
    diagnosis.what += L", points to " + Truncated(response.redirectTarget);
  else if (response.status == 400 && !HTTPUrl::IsHTTPS(setup.shownURL))
    diagnosis.advice += L"; if the port is one for https, use https://";
  return diagnosis;
}

/// Finds reasons why a body cannot be XML.
HTTPDiagnosis DiagnoseBody(const HTTPResponse& response) {
  const std::string_view body = response.body.view();
  const wchar_t* const kCheckURL = L"check that the URL leads to an XML for Analysis service";
  if (ReplyKind::IsEmpty(body)) {
    return {HTTPStatus::Line(response.status) + L", but the reply is empty", kCheckURL, L""};
  }
  if (ReplyKind::IsWebPage(body)) {
    const std::string title = ReplyKind::PageTitle(body);
    String what = L"the server sent a web page instead of XML";
    if (!title.empty()) what += L", titled \"" + FromUTF8(title) + L"\"";
    return {what,
            L"it may be a log-in form or a proxy's page; open the URL in a browser, and check "
            L"that it leads to an XML for Analysis service",
            L""};
  }
  if (ReplyKind::IsPlainText(body)) {
    return {L"the server sent plain text instead of XML: \"" +
                FromUTF8(ReplyKind::Beginning(body)) + L"\"",
            kCheckURL, L""};
  }
  return {};
}

/// The outcome of an exchange.
struct Classification {
  HTTPDiagnosis diagnosis;
  bool hasReply;  // the body may be XML
};

/// Classifies a response and converts its body to UTF-8.
Classification Classify(HTTPResponse& response, const Setup& setup, std::uint64_t maxReplyBytes) {
  const bool isSuccess = response.status >= 200 && response.status < 300;
  if (response.failure != HTTPFailure::kNone) {
    // A server that rejects a request often closes the connection. The status then says more than
    // the failure.
    if (response.connectStatus == 407) DiagnoseLogIn(response, true, setup, response.diagnosis);
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
    return {{L"the reply is in the charset \"" + charset + L"\", which is not accepted",
             L"configure the server to use UTF-8", L""},
            false};
  }
  const HTTPDiagnosis body = DiagnoseBody(response);
  if (isSuccess) return {body, body.what.empty()};
  return {DiagnoseStatus(response, setup), result == CharsetResult::kReady && body.what.empty()};
}

constexpr const wchar_t* kSourceFile = L"HTTPClientWrapper.cpp";

/// A control character could end a header line, so that the rest becomes another header or request.
void RejectControlCharacters(const String& text, const wchar_t* name) {
  if (!HTTPUrl::HasControlCharacter(text.view())) return;
  SUGThrow(ErrorMessage(String(L"The ") + name +
                        L" contains a control character, such as a line break, and cannot be "
                        L"used: check how it was entered"),
           kSourceFile, __LINE__);
}

}  // namespace

class HTTPClientWrapper::Impl {
 public:
  Impl(const String& shownURL, const NarrowString& url, const NarrowString& user,
       const NarrowString& password, std::uint32_t timeoutSeconds, const HTTPClientOptions& options)
      : m_setup{shownURL, !user.empty(),
                options.missingUserAdvice.empty() ? String(L"give a user name and a password")
                                                  : options.missingUserAdvice},
        m_maxReplyBytes(options.maxReplyBytes),
        m_timeoutSeconds(timeoutSeconds),
        m_transfer(url, user, password, timeoutSeconds, options) {}

  void SetHeaderLines(const String& lines) {
    if (lines == m_headerLines) return;
    m_transfer.SetHeaderLines(ToUTF8(lines));
    m_headerLines = lines;
  }

  void SetSubject(const String& subject) { m_subject = subject; }

  bool Exchange(const NarrowString& body, NarrowString& reply, String& error) {
    HTTPExchangeObserver* const observer = ImportSettings::Current().exchangeObserver;
    if (observer) observer->OnBegin({m_setup.shownURL, m_subject, m_timeoutSeconds});
    HTTPResponse response;
    m_transfer.Post(body, response);
    const std::uint64_t received = response.body.size();
    const auto [diagnosis, hasReply] = Classify(response, m_setup, m_maxReplyBytes);
    if (ImportOperation* const operation = ImportOperation::Current())
      operation->CountReplyBytes(
          response.earlierBytes +
          std::max<std::uint64_t>({received, response.body.size(), response.wireBytes}));
    reply = hasReply ? response.body : NarrowString();
    const bool ok = diagnosis.what.empty();
    if (!ok) error = ErrorText(diagnosis);
    if (observer) {
      HTTPExchangeInfo info;
      info.url = m_setup.shownURL;
      info.subject = m_subject;
      info.status = response.status;
      info.request = body;
      info.replyBytes = received;
      info.wireBytes = response.wireBytes;
      info.connectSeconds = response.connectSeconds;
      info.firstByteSeconds = response.firstByteSeconds;
      info.totalSeconds = response.totalSeconds;
      info.ok = ok;
      if (!ok) info.error = error;
      info.basicInClear = response.basicInClear;
      info.isUnreachable = response.failure == HTTPFailure::kUnknownHost ||
                           response.failure == HTTPFailure::kUnknownProxy ||
                           response.failure == HTTPFailure::kConnectFailed;
      observer->OnExchange(info);
    }
    return hasReply;
  }

 private:
  String ErrorText(const HTTPDiagnosis& diagnosis) const {
    String text = m_setup.shownURL + L": " + diagnosis.what;
    if (!diagnosis.advice.empty()) text += L"; " + diagnosis.advice;
    if (!diagnosis.details.empty()) text += L" (" + diagnosis.details + L")";
    return MessageCatalogue::OneLine(text);
  }

  const Setup m_setup;
  const std::uint64_t m_maxReplyBytes;
  const std::uint32_t m_timeoutSeconds;
  String m_subject;
  String m_headerLines;  // set in m_transfer
  HTTPTransfer m_transfer;
};

HTTPClientWrapper::HTTPClientWrapper(const String& url, const String& user, const String& password,
                                     std::uint32_t timeoutSeconds,
                                     const HTTPClientOptions* options) {
  String cleanURL = url;
  Secret<String> urlUser;
  Secret<String> urlPassword;
  TakeCredentials(cleanURL, urlUser, urlPassword);
  const String shown = HTTPUrl::ForDisplay(cleanURL);
  if (const String problem = HTTPUrl::Problem(cleanURL); !problem.empty()) {
    SUGThrow(ErrorMessage(MessageCatalogue::OneLine(
                 shown + L": the URL of the service cannot be used: " + problem)),
             kSourceFile, __LINE__);
  }
  const String& usedUser = user.empty() ? urlUser : user;
  const String& usedPassword = user.empty() ? urlPassword : password;
  RejectControlCharacters(usedUser, L"user name");
  RejectControlCharacters(usedPassword, L"password");

  const HTTPClientOptions& given = options ? *options : ImportSettings::Current().http;
  const Secret<String> proxy(given.proxy ? String(*given.proxy)
                                         : HTTPProxy::FromEnvironment(HTTPUrl::IsHTTPS(cleanURL)));
  HTTPClientOptions effective = given;  // destroyed before `proxy`, which erases the shared text
  effective.proxy = proxy;
  Secret<String> proxyUser;
  Secret<String> proxyPassword;
  HTTPProxy::GetCredentials(proxy, proxyUser, proxyPassword);
  RejectControlCharacters(proxyUser, L"proxy's user name");
  RejectControlCharacters(proxyPassword, L"proxy's password");
  RejectControlCharacters(proxy, L"proxy's URL");

  const Secret<NarrowString> narrowUser(ToUTF8(usedUser));
  const Secret<NarrowString> narrowPassword(ToUTF8(usedPassword));
  m_impl = std::make_unique<Impl>(shown, HTTPUrl::ForRequest(cleanURL), narrowUser, narrowPassword,
                                  timeoutSeconds, effective);
}

HTTPClientWrapper::~HTTPClientWrapper() = default;

void HTTPClientWrapper::SetRequestHeader(const String& lines) { m_impl->SetHeaderLines(lines); }

void HTTPClientWrapper::SetRequestSubject(const String& subject) { m_impl->SetSubject(subject); }

bool HTTPClientWrapper::ReadBytes(const NarrowString& body, NarrowString& reply, String& error) {
  return m_impl->Exchange(body, reply, error);
}

bool HTTPClientWrapper::TakeCredentials(String& url, String& user, String& password) {
  HTTPUrl::RemoveCredentials(url, user, password);
  return HTTPUrl::Problem(url).empty();
}

String HTTPClientWrapper::URLProblem(const String& url) { return HTTPUrl::Problem(url); }
