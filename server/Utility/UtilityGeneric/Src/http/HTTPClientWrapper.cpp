#include "Utility/Generic/HTTPClientWrapper.h"

#include <algorithm>
#include <utility>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/Cancellation.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/ImportOperation.h"
#include "Utility/Generic/ImportSettings.h"
#include "Utility/Generic/Secret.h"
#include "errors/MessageCatalogue.h"
#include "http/HTTPBearer.h"
#include "http/HTTPOwnSecrets.h"
#include "http/HTTPProxy.h"
#include "http/HTTPReadAhead.h"
#include "http/HTTPRetries.h"
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
  bool hasToken;
  unsigned int allowed;  ///< set of HTTPAuthScheme
  String missingUserAdvice;
  HTTPOwnSecrets secrets;
};

/// A text of the server without the client's own secrets. Our own texts are not changed: that would
/// show which word the secret is.
String Cleaned(String text, const Setup& setup) {
  setup.secrets.RemoveFrom(text);
  return text;
}

/// True if none of the offered schemes is allowed, but another setting could allow one that works.
bool IsOfferNotAllowed(const HTTPResponse& response, bool hasUser, unsigned int allowed) {
  if ((response.offered & allowed) != 0) return false;
  // By default, a user name excludes Negotiate.
  const bool isDefault = hasUser && (response.offered & kAuthPasswordSchemes) == 0;
  return response.offered != 0 && !isDefault;
}

void DiagnoseOfferNotAllowed(const HTTPResponse& response, bool isProxy, const Setup& setup,
                             HTTPDiagnosis& diagnosis) {
  const std::vector<std::string> allowed = HTTPLogIn::Names(setup.allowed);
  diagnosis.what += String(isProxy ? L": the proxy" : L": the server") + L" offers " +
                    Joined(response.schemes) + L", but ";
  diagnosis.what += allowed.empty() ? String(L"no scheme is allowed")
                                    : L"only " + Joined(allowed) +
                                          (allowed.size() == 1 ? L" is allowed" : L" are allowed");
  diagnosis.advice = L"allow one of the schemes that it offers";
  const bool needsUser = (response.offered & kAuthNegotiate) == 0 && !setup.hasUser;
  if (needsUser && !isProxy) diagnosis.advice += L", and " + setup.missingUserAdvice;
  diagnosis.details = L"";
}

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
    if (canUsePassword && !isProxy) diagnosis.advice += L", or " + setup.missingUserAdvice;
  } else if (rejected != 0) {
    diagnosis.what += String(peer) + L" rejected the Kerberos ticket";
    diagnosis.advice =
        L"check with klist whose ticket it is, and ask the administrator whether that user may log "
        L"in";
  } else if (!isProxy && response.schemes.size() == 1 && !response.bearerChallenge.empty()) {
    diagnosis.what += L": the server requires a token";
    diagnosis.advice = L"give one, instead of user and password";
  } else if (!isProxy && !setup.hasUser) {
    diagnosis.what += L": the server requires a log-in";
    diagnosis.advice = setup.missingUserAdvice;
    if (!response.bearerChallenge.empty()) diagnosis.advice += L", or a token";
  } else if (!isProxy) {
    diagnosis.what += L": the server offers no way to log in that can be used here";
    diagnosis.advice = L"ask the server's administrator for one that uses a password";
    if (!offersOther && !response.schemes.empty())
      diagnosis.advice =
          L"log in with a Kerberos ticket instead of a user name, or " + diagnosis.advice;
  }
  if (!response.logInAdvice.empty()) diagnosis.advice = response.logInAdvice;
}

HTTPStep StepOf(const HTTPResponse& response) {
  if (response.status == 401) return HTTPStep::kLogIn;
  return response.status == 407 && response.hasProxy ? HTTPStep::kProxy : HTTPStep::kResponse;
}

HTTPDiagnosis DiagnoseStatus(const HTTPResponse& response, const Setup& setup) {
  HTTPDiagnosis diagnosis{HTTPStatus::Line(response.status), HTTPStatus::Advice(response.status),
                          L""};
  diagnosis.step = StepOf(response);
  if (setup.hasToken && response.status != 407 &&
      HTTPBearer::Describe(response.status, response.bearerChallenge, diagnosis)) {
    diagnosis.step = HTTPStep::kLogIn;
    return diagnosis;
  }
  if (response.status == 401 || response.status == 407) {
    DiagnoseLogIn(response, response.status == 407, setup, diagnosis);
  } else if (!response.redirectTarget.empty()) {
    diagnosis.what += L", points to " + Truncated(Cleaned(response.redirectTarget, setup));
    diagnosis.advice = L"use the URL that it points to, if that is the service";
  } else if (response.status == 400 && !HTTPUrl::IsHTTPS(setup.shownURL)) {
    diagnosis.advice += L"; if the port is one for https, use https://";
  }
  return diagnosis;
}

/// Finds reasons why a body cannot be XML.
HTTPDiagnosis DiagnoseBody(const HTTPResponse& response, const Setup& setup) {
  const std::string_view body = response.body.view();
  const wchar_t* const kCheckURL = L"check that the URL leads to an XML for Analysis service";
  if (ReplyKind::IsEmpty(body)) {
    return {HTTPStatus::Line(response.status) + L", but the reply is empty", kCheckURL, L"",
            HTTPStep::kProtocol};
  }
  if (ReplyKind::IsWebPage(body)) {
    const std::string title = ReplyKind::PageTitle(body);
    String what = L"the server sent a web page instead of XML";
    if (!title.empty()) what += L", titled \"" + Cleaned(FromUTF8(title), setup) + L"\"";
    return {what,
            L"it may be a log-in form or a proxy's page; open the URL in a browser, and check "
            L"that it leads to an XML for Analysis service",
            L"", HTTPStep::kProtocol};
  }
  if (ReplyKind::IsPlainText(body)) {
    return {L"the server sent plain text instead of XML: \"" +
                Cleaned(FromUTF8(ReplyKind::Beginning(body)), setup) + L"\"",
            kCheckURL, L"", HTTPStep::kProtocol};
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
    if (response.proxyStatus == 407) DiagnoseLogIn(response, true, setup, response.diagnosis);
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
        {L"the reply is in the charset \"" + Cleaned(charset, setup) + L"\", which is not accepted",
         L"configure the server to use UTF-8", L""},
        false};
  }
  const HTTPDiagnosis body = DiagnoseBody(response, setup);
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

void CheckToken(const String& token, bool hasUser) {
  if (token.empty()) return;
  if (hasUser)
    SUGThrow(ErrorMessage(L"A token was given together with a user name or a password: give only "
                          L"one of them"),
             kSourceFile, __LINE__);
  if (!HTTPBearer::IsToken(token.view()))
    SUGThrow(ErrorMessage(L"The token contains a character that a token cannot have, such as a "
                          L"space or a line break, and cannot be used: check how it was entered"),
             kSourceFile, __LINE__);
}

}  // namespace

class HTTPClientWrapper::Impl {
 public:
  Impl(const String& shownURL, const NarrowString& url, const NarrowString& user,
       const NarrowString& password, const HTTPOwnSecrets& secrets,
       const HTTPClientOptions& options)
      : m_setup{shownURL,
                !user.empty(),
                !options.bearerToken.empty(),
                options.authSchemes,
                options.missingUserAdvice.empty() ? String(L"give a user name and a password")
                                                  : options.missingUserAdvice,
                secrets},
        m_maxReplyBytes(options.maxReplyBytes),
        m_timeoutSeconds(*options.timeoutSeconds),
        m_maxRetries(options.maxRetries),
        m_budget(options.requestBudget),
        m_transfer(url, user, password, options) {}

  void SetHeaderLines(const String& lines) {
    if (lines == m_headerLines) return;
    const NarrowString narrow = ToUTF8(lines);
    m_transfer.SetHeaderLines(narrow);
    if (m_readAhead) m_readAhead->SetHeaderLines(narrow);
    m_headerLines = lines;
  }

  void SetPrediction(std::shared_ptr<const HTTPPrediction> prediction) {
    if (!m_budget || m_budget->MostAhead() == 0) return;
    m_readAhead = std::make_unique<HTTPReadAhead>(
        m_transfer, m_budget, std::move(prediction), [this](HTTPResponse& response) {
          const Classification result = Classify(response, m_setup, m_maxReplyBytes);
          return result.diagnosis.what.empty() && result.hasReply;
        });
  }

  void SetSubject(const String& subject) { m_subject = subject; }

  bool Exchange(const NarrowString& body, NarrowString& reply, String& error) {
    HTTPExchangeObserver* const observer = ImportSettings::Current().exchangeObserver;
    if (observer) observer->OnBegin({m_setup.shownURL, m_subject, m_timeoutSeconds});
    std::uint32_t retries = 0;
    bool basicInClear = false;
    Attempt attempt;
    const ExchangeEnd end{m_readAhead.get()};
    for (;;) {
      attempt = Attempt();
      attempt.wasReadAhead = retries == 0 && m_readAhead &&  //
                             m_readAhead->Take(body, attempt.response);
      if (attempt.wasReadAhead)
        attempt.hasReply = true;
      else
        SendOrRepeat(body, attempt);
      CountBytes(attempt.response);
      basicInClear |= attempt.response.basicInClear;
      if (retries >= m_maxRetries || !MayRepeat(attempt)) break;
      const double seconds = HTTPRetries::WaitSeconds(++retries, attempt.response.retryAfter);
      if (observer)
        observer->OnRetry({m_setup.shownURL, m_subject, ErrorText(attempt.diagnosis, 0), retries,
                           m_maxRetries, seconds});
      attempt.response.body = NarrowString();
      if (HTTPRetries::Wait(seconds)) continue;
      --retries;
      attempt.hasReply = false;
      attempt.diagnosis = {StopText(), L"", L"", attempt.diagnosis.step};
      break;
    }
    const HTTPResponse& response = attempt.response;
    reply = attempt.hasReply ? response.body : NarrowString();
    const bool ok = attempt.diagnosis.what.empty();
    if (!ok) error = ErrorText(attempt.diagnosis, retries);
    if (observer) {
      HTTPExchangeInfo info;
      info.url = m_setup.shownURL;
      info.subject = m_subject;
      info.status = response.status;
      info.request = body;
      info.replyBytes = response.receivedBytes;
      info.wireBytes = response.wireBytes;
      info.connectSeconds = response.connectSeconds;
      info.firstByteSeconds = response.firstByteSeconds;
      info.totalSeconds = response.totalSeconds;
      info.ok = ok;
      if (!ok) info.error = error;
      info.problem = MessageCatalogue::OneLine(attempt.diagnosis.what);
      info.basicInClear = basicInClear;
      info.isUnreachable = response.failure == HTTPFailure::kUnknownHost ||
                           response.failure == HTTPFailure::kUnknownProxy ||
                           response.failure == HTTPFailure::kConnectFailed;
      if (!ok) info.failedStep = attempt.diagnosis.step;
      info.retries = retries;
      info.wasReadAhead = attempt.wasReadAhead;
      info.connection = response.connection;
      m_setup.secrets.RemoveFrom(info.connection);
      observer->OnExchange(info);
    }
    return attempt.hasReply;
  }

 private:
  /// One of the requests of an exchange, which all have the same body.
  struct Attempt {
    HTTPResponse response;
    HTTPDiagnosis diagnosis;
    bool hasReply = false;  // the body may be XML
    bool wasReadAhead = false;
  };

  /// Tells the read-ahead that an exchange is over.
  struct ExchangeEnd {
    HTTPReadAhead* readAhead;
    ~ExchangeEnd() {
      if (readAhead) readAhead->EndExchange();
    }
  };

  void Send(const NarrowString& body, Attempt& attempt) {
    HTTPResponse& response = attempt.response;
    m_transfer.Post(body, response);
    const Classification result = Classify(response, m_setup, m_maxReplyBytes);
    attempt.diagnosis = result.diagnosis;
    attempt.hasReply = result.hasReply;
    if (m_readAhead)
      m_readAhead->OnResponse(body, response, result.hasReply && result.diagnosis.what.empty());
  }

  void SendOrRepeat(const NarrowString& body, Attempt& attempt) {
    Send(body, attempt);
    if (!m_readAhead || !m_readAhead->MustRepeatAlone(attempt.response)) return;
    attempt = Attempt();
    Send(body, attempt);
  }

  static void CountBytes(const HTTPResponse& response) {
    if (ImportOperation* const operation = ImportOperation::Current())
      operation->CountReplyBytes(
          response.earlierBytes +
          std::max<std::uint64_t>(
              {response.receivedBytes, response.body.size(), response.wireBytes}));
  }

  /// A repeated request counts as a request of the operation.
  static bool MayRepeat(const Attempt& attempt) {
    if (attempt.diagnosis.what.empty() || IsThreadToStop() ||
        !HTTPRetries::MayRepeat(attempt.response))
      return false;
    ImportOperation* const operation = ImportOperation::Current();
    return !operation || operation->TryCountRequest();
  }

 private:
  String ErrorText(const HTTPDiagnosis& diagnosis, std::uint32_t retries) const {
    String text = m_setup.shownURL + L": " + diagnosis.what;
    if (!diagnosis.advice.empty()) text += L"; " + diagnosis.advice;
    if (retries > 0)
      text += L"; tried " + BaseStringUtil::StringFrom(std::uint64_t{retries} + 1) + L" times";
    if (!diagnosis.details.empty()) text += L" (" + Cleaned(diagnosis.details, m_setup) + L")";
    return MessageCatalogue::OneLine(text);
  }

  const Setup m_setup;
  const std::uint64_t m_maxReplyBytes;
  const std::uint32_t m_timeoutSeconds;
  const std::uint32_t m_maxRetries;
  String m_subject;
  String m_headerLines;                               // set in m_transfer
  const std::shared_ptr<HTTPRequestBudget> m_budget;  // null: no read-ahead
  HTTPTransfer m_transfer;
  std::unique_ptr<HTTPReadAhead> m_readAhead;  // null: none
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
  effective.timeoutSeconds = given.timeoutSeconds.value_or(timeoutSeconds);
  effective.connectTimeoutSeconds = given.connectTimeoutSeconds.value_or(*effective.timeoutSeconds);
  CheckToken(given.bearerToken, !usedUser.empty() || !usedPassword.empty() || !password.empty());
  Secret<String> proxyUser;
  Secret<String> proxyPassword;
  HTTPProxy::GetCredentials(proxy, proxyUser, proxyPassword);
  RejectControlCharacters(proxyUser, L"proxy's user name");
  RejectControlCharacters(proxyPassword, L"proxy's password");
  RejectControlCharacters(proxy, L"proxy's URL");
  if (const String problem = HTTPProxy::Problem(proxy); !problem.empty()) {
    SUGThrow(
        ErrorMessage(MessageCatalogue::OneLine(
            HTTPProxy::ForDisplay(proxy) + L": the URL of the proxy cannot be used: " + problem)),
        kSourceFile, __LINE__);
  }

  const Secret<NarrowString> narrowUser(ToUTF8(usedUser));
  const Secret<NarrowString> narrowPassword(ToUTF8(usedPassword));
  m_impl = std::make_unique<Impl>(shown, HTTPUrl::ForRequest(cleanURL), narrowUser, narrowPassword,
                                  HTTPOwnSecrets(usedUser, usedPassword, effective), effective);
}

HTTPClientWrapper::~HTTPClientWrapper() = default;

void HTTPClientWrapper::SetRequestHeader(const String& lines) { m_impl->SetHeaderLines(lines); }

void HTTPClientWrapper::SetPrediction(std::shared_ptr<const HTTPPrediction> prediction) {
  m_impl->SetPrediction(std::move(prediction));
}

void HTTPClientWrapper::SetRequestSubject(const String& subject) { m_impl->SetSubject(subject); }

bool HTTPClientWrapper::ReadBytes(const NarrowString& body, NarrowString& reply, String& error) {
  return m_impl->Exchange(body, reply, error);
}

bool HTTPClientWrapper::TakeCredentials(String& url, String& user, String& password) {
  HTTPUrl::RemoveCredentials(url, user, password);
  return HTTPUrl::Problem(url).empty();
}

String HTTPClientWrapper::URLProblem(const String& url) { return HTTPUrl::Problem(url); }

String HTTPClientWrapper::ProxyProblem(const String& url) { return HTTPProxy::Problem(url); }
