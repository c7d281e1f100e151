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
#include "http/HTTPOutcome.h"
#include "http/HTTPOwnSecrets.h"
#include "http/HTTPProxy.h"
#include "http/HTTPReadAhead.h"
#include "http/HTTPRetries.h"
#include "http/HTTPTransfer.h"
#include "http/HTTPUrl.h"

namespace {

using BaseStringUtil::ToUTF8;

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
        m_budget(options.requestBudget && options.requestBudget->IsOfThisProcess()
                     ? options.requestBudget
                     : nullptr),
        m_transfer(url, user, password, options) {}

  void SetHeaderLines(const String& lines) {
    if (lines == m_headerLines) return;
    const NarrowString narrow = ToUTF8(lines);
    m_transfer.SetHeaderLines(narrow);
    if (m_readAhead) m_readAhead->SetHeaderLines(narrow);
    m_headerLines = lines;
  }

  void SetPrediction(std::shared_ptr<const HTTPPrediction> prediction) {
    if (!m_budget) return;
    m_prediction = prediction;
    if (m_budget->Limit() == 1) return;
    m_readAhead = std::make_unique<HTTPReadAhead>(
        m_transfer, m_budget, std::move(prediction), [this](HTTPResponse& response) {
          const HTTPOutcome result = ClassifyHTTPResponse(response, m_setup, m_maxReplyBytes);
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
    HTTPRequestBudget::Permit permit;
    for (;;) {
      attempt = Attempt();
      if (retries > 0 || !TakeReadAhead(body, permit, attempt)) SendInBudget(body, permit, attempt);
      CountBytes(attempt.response);
      basicInClear |= attempt.response.basicInClear;
      if (retries >= m_maxRetries || !MayRepeat(attempt)) break;
      const double seconds = HTTPRetries::WaitSeconds(++retries, attempt.response.retryAfter);
      if (observer)
        observer->OnRetry({m_setup.shownURL, m_subject, ErrorText(attempt.diagnosis, 0), retries,
                           m_maxRetries, seconds});
      attempt.response.body = NarrowString();
      // Others may send meanwhile.
      const bool isAlone = permit && !permit.IsBesideOthers();
      HTTPRetries::Return(permit, attempt.response.failure);
      if (HTTPRetries::Wait(seconds)) {
        if (isAlone) permit = m_budget->Take(true);
        continue;
      }
      --retries;
      attempt.Stop();
      break;
    }
    const HTTPResponse& response = attempt.response;
    HTTPRetries::Return(permit, response.failure);
    reply = attempt.hasReply ? response.body : NarrowString();
    const bool ok = attempt.diagnosis.what.empty();
    if (!ok) error = ErrorText(attempt.diagnosis, retries);
    if (observer) {
      HTTPExchangeInfo info;
      info.url = m_setup.shownURL;
      info.subject = m_subject;
      info.status = response.status;
      info.request = body;
      info.reply = reply;
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
      const bool isRetriedInVain =
          retries > 0 && attempt.diagnosis.setting == HTTPSetting::kRetries;
      if (!ok && !isRetriedInVain) info.setting = attempt.diagnosis.setting;
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

    /// The operation ends before the reply is complete.
    void Stop() {
      hasReply = false;
      diagnosis = {StopText(), L"", L"", diagnosis.step};
    }
  };

  void Send(const NarrowString& body, Attempt& attempt) {
    HTTPResponse& response = attempt.response;
    HTTPStepHandler onStep;
    if (HTTPExchangeObserver* const observer = ImportSettings::Current().exchangeObserver)
      onStep = [this, observer](HTTPStep step, HTTPConnectionDetails connection) {
        m_setup.secrets.RemoveFrom(connection);
        observer->OnStep(step, connection);
      };
    m_transfer.Post(body, response, onStep);
    const HTTPOutcome result = ClassifyHTTPResponse(response, m_setup, m_maxReplyBytes);
    attempt.diagnosis = result.diagnosis;
    attempt.hasReply = result.hasReply;
    if (m_readAhead)
      m_readAhead->OnResponse(body, response, result.hasReply && result.diagnosis.what.empty());
  }

  /// True if the reply was read ahead: sets `attempt`. Otherwise the request must be sent. If no
  /// other request may be in progress then, sets `permit`.
  bool TakeReadAhead(const NarrowString& body, HTTPRequestBudget::Permit& permit,
                     Attempt& attempt) {
    if (!m_readAhead) return false;
    const HTTPReadAhead::Answer answer = m_readAhead->Take(body, attempt.response);
    attempt.wasReadAhead = attempt.hasReply = answer == HTTPReadAhead::Answer::kReady;
    if (answer == HTTPReadAhead::Answer::kSendAlone) permit = m_budget->Take(true);
    return attempt.wasReadAhead;
  }

  /// Sends the request. If there is a budget, waits for a permit first. If the request fails while
  /// others are in progress, they may be the reason: waits until they have ended, and sends it once
  /// more.
  void SendInBudget(const NarrowString& body, HTTPRequestBudget::Permit& permit, Attempt& attempt) {
    if (!m_budget) return Send(body, attempt);
    if (!permit) permit = m_budget->Take(false);
    if (permit) SendWith(permit, body, attempt);
    if (permit && permit.IsBesideOthers() && HTTPRetries::MayComeFromOthers(attempt.response) &&
        HasFailed(attempt)) {
      m_budget->Pause(HTTPRetries::PauseSeconds(attempt.response));
      HTTPRetries::Return(permit, attempt.response.failure);
      m_transfer.ForgetCookies();
      attempt = Attempt();
      permit = m_budget->Take(true);
      if (permit) SendWith(permit, body, attempt);
    }
    if (!permit) attempt.Stop();
  }

  void SendWith(HTTPRequestBudget::Permit& permit, const NarrowString& body, Attempt& attempt) {
    Send(body, attempt);
    if (HTTPRetries::MayBeOverload(attempt.response))
      permit.Refuse(HTTPRetries::IsLastingOverload(attempt.response));
  }

  /// True if the import would reject the reply. May read it completely.
  bool HasFailed(const Attempt& attempt) const {
    return !attempt.hasReply || !attempt.diagnosis.what.empty() ||
           (m_prediction && !m_prediction->IsAccepted(attempt.response.body));
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
    if (!diagnosis.details.empty()) text += L" (" + m_setup.Cleaned(diagnosis.details) + L")";
    return MessageCatalogue::OneLine(text);
  }

  const HTTPClientSetup m_setup;
  const std::uint64_t m_maxReplyBytes;
  const std::uint32_t m_timeoutSeconds;
  const std::uint32_t m_maxRetries;
  String m_subject;
  String m_headerLines;                               // set in m_transfer
  const std::shared_ptr<HTTPRequestBudget> m_budget;  // null: one request at a time
  HTTPTransfer m_transfer;
  std::shared_ptr<const HTTPPrediction> m_prediction;  // null: none, like m_readAhead
  std::unique_ptr<HTTPReadAhead> m_readAhead;
};

HTTPClientWrapper::HTTPClientWrapper(const String& url, const String& user, const String& password,
                                     std::uint32_t timeoutSeconds,
                                     const HTTPClientOptions* options) {
  String cleanURL = url;
  Secret<String> urlUser;
  Secret<String> urlPassword;
  TakeCredentials(cleanURL, urlUser, urlPassword);
  const String shown = HTTPUrl::ForDisplay(url);
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

String HTTPClientWrapper::ShownURL(const String& url) { return HTTPUrl::ForDisplay(url); }

String HTTPClientWrapper::URLProblem(const String& url) { return HTTPUrl::Problem(url); }

String HTTPClientWrapper::ProxyProblem(const String& url) { return HTTPProxy::Problem(url); }
