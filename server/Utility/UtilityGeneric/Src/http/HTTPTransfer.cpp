#include "http/HTTPTransfer.h"

#include "Utility/Generic/BaseStringUtil.h"
#include "errors/MessageCatalogue.h"
#include "http/HTTPUrl.h"

namespace {

/// A text of the server, for people: one line, truncated.
String Shown(const std::string& text) {
  return MessageCatalogue::Truncated(
      BaseStringUtil::FromUTF8(NarrowString(text.data(), text.size())));
}

}  // namespace

String JoinedNames(const std::vector<std::string>& names) {
  String text;
  for (const std::string& name : names) {
    if (!text.empty()) text += L", ";
    text += BaseStringUtil::FromUTF8(NarrowString(name.data(), name.size()));
  }
  return text;
}

HTTPTransfer::HTTPTransfer(const NarrowString& url, const NarrowString& user,
                           const NarrowString& password, const HTTPClientOptions& options)
    : m_timeoutSeconds(*options.timeoutSeconds),
      m_connectTimeoutSeconds(*options.connectTimeoutSeconds),
      m_isHTTPS(HTTPUrl::IsHTTPS(BaseStringUtil::FromUTF8(url))),
      m_hasProxy(!options.proxy->empty()),
      m_hasCertificate(!options.certificateFile.empty()),
      m_wantsDetails(options.wantsConnectionDetails),
      m_credentials(std::make_shared<const HTTPCredentials>(user, password)),
      m_authentication(BaseStringUtil::FromUTF8(url), *m_credentials, options),
      m_receiver(HTTPUrl::PathForRequest(url), options),
      m_ownGroup(HTTPConnectionGroup::Create(1)),
      m_group(*m_ownGroup),
      m_connection(HTTPConnection::Create(url, user, password, options, m_group, m_receiver)) {}

HTTPTransfer::HTTPTransfer(const HTTPTransfer& other, HTTPConnectionGroup& group)
    : m_timeoutSeconds(other.m_timeoutSeconds),
      m_connectTimeoutSeconds(other.m_connectTimeoutSeconds),
      m_isHTTPS(other.m_isHTTPS),
      m_hasProxy(other.m_hasProxy),
      m_hasCertificate(other.m_hasCertificate),
      m_wantsDetails(other.m_wantsDetails),
      m_credentials(other.m_credentials),
      m_authentication(other.m_authentication),
      m_receiver(other.m_receiver),
      m_group(group),
      m_connection(other.m_connection->Duplicate(group, m_receiver)) {}

HTTPTransfer::~HTTPTransfer() {
  Cancel();
  m_ownGroup.reset();  // closes the connection, for which libcurl may need the connection's handle
}

std::unique_ptr<HTTPTransfer> HTTPTransfer::Duplicate(HTTPConnectionGroup& group,
                                                      const HTTPLogInSchemes& logIn) const {
  std::unique_ptr<HTTPTransfer> transfer(new HTTPTransfer(*this, group));
  transfer->m_authentication.BeginWith(logIn);
  return transfer;
}

void HTTPTransfer::SetHeaderLines(const NarrowString& lines) {
  m_connection->SetHeaderLines(lines);
}

void HTTPTransfer::Post(const NarrowString& body, HTTPResponse& response,
                        const HTTPStepHandler& onStep) {
  Begin(body, response, onStep);
  while (!Advance()) m_group.Wait(HTTPConnectionGroup::kPollMilliseconds);
}

void HTTPTransfer::Begin(const NarrowString& body, HTTPResponse& response,
                         const HTTPStepHandler& onStep) {
  m_receiver.BeginExchange(response.body, onStep);
  m_authentication.BeginExchange();
  m_usedScheme = 0;
  m_body = body;
  m_info = {};
  m_wasRepeated = false;
  Send();
  m_response = &response;
}

bool HTTPTransfer::Advance() {
  while (!m_connection->IsBusy()) {
    if (!m_isRefused) {
      m_failure = m_connection->Failure();
      m_info = m_connection->Info();
    }
    if (!MustSendAgain()) {
      Finish();
      return true;
    }
    Send();
  }
  return false;
}

void HTTPTransfer::Cancel() noexcept {
  m_connection->Cancel();
  m_response = nullptr;
  m_body.clear();
}

bool HTTPTransfer::MustSendAgain() {
  // libcurl retries on a kept-alive connection that turns out to be closed. But it counts these
  // retries over all requests, and refuses every sixth.
  if (m_failure == HTTPFailure::kSendFailed && !m_info.usedNewConnection && !m_wasRepeated)
    return m_wasRepeated = true;
  m_wasRepeated = false;
  if (!m_info.logInProblem.empty()) m_response->logInProblem = m_info.logInProblem;
  if (m_wantsDetails) Collect(m_info, m_response->connection);
  return ShouldSendAgain(m_failure == HTTPFailure::kNone, m_info);
}

void HTTPTransfer::Finish() {
  HTTPResponse& response = *m_response;
  HTTPRequestInfo& info = m_info;
  HTTPFailure failure = m_failure;
  if (failure == HTTPFailure::kNone) m_receiver.OnEnd(info.wireBytes);
  if (m_receiver.Failure() != HTTPFailure::kNone) failure = m_receiver.Failure();

  response.status = info.status;
  response.proxyStatus = info.status == 0 ? info.connectStatus : 0;
  response.contentType = std::move(info.contentType);
  response.retryAfter = m_receiver.Headers().retryAfter;
  response.bearerChallenge = m_receiver.Headers().bearerChallenge;
  response.redirectTarget = info.redirectTarget;
  response.schemes = m_receiver.OfferedSchemes();
  response.isLogInUnfinished = m_receiver.Headers().hasNTLMChallenge;
  const bool isProxys = response.status == 407 || response.proxyStatus == 407;
  response.offered = isProxys ? info.offeredByProxy : info.offeredByService;
  response.hasProxy = m_hasProxy;
  response.logInAdvice = m_authentication.Advice();
  response.rejectedByService = m_authentication.RejectedByService();
  response.rejectedByProxy = m_authentication.RejectedByProxy();
  response.isLogInUnproven = m_authentication.IsLogInUnproven();
  response.basicInClear = m_authentication.WasBasicUnencrypted();
  response.receivedBytes = response.body.size();
  response.wireBytes = info.wireBytes;
  response.earlierBytes = m_receiver.EarlierBytes();
  response.connectSeconds = info.connectSeconds;
  response.firstByteSeconds = info.firstByteSeconds;
  response.totalSeconds = info.totalSeconds;
  if (failure != HTTPFailure::kNone) Describe(failure, info, response);
  m_response = nullptr;
  m_body.clear();
}

void HTTPTransfer::Send() {
  m_receiver.BeginRequest();
  m_isRefused = m_authentication.IsTokenForbidden();
  if (m_isRefused) {
    m_receiver.Fail(HTTPFailure::kTokenUnprotected);
    m_failure = HTTPFailure::kTokenUnprotected;
    return;
  }
  HTTPRequest request{m_body, m_receiver.Cookies()};
  request.serviceScheme = m_authentication.ServiceScheme();
  request.proxyScheme = m_authentication.ProxyScheme();
  if (!m_credentials->IsASCII()) request.credentials = m_credentials.get();
  request.forgetLogInState = m_authentication.WasDigestRejected();
  request.needsNewConnection = m_authentication.MustProveLogIn();
  request.onlyToThisMachine = m_authentication.MustTokenStayHere();
  if (request.serviceScheme != 0) m_usedScheme = request.serviceScheme;
  m_connection->Begin(request);
}

bool HTTPTransfer::ShouldSendAgain(bool isComplete, const HTTPRequestInfo& info) {
  HTTPAuthRound round;
  round.isConnected = info.reached == HTTPStep::kResponse;
  round.isComplete = isComplete;
  round.status = info.status;
  round.connectStatus = info.connectStatus;
  round.offeredByService = info.offeredByService;
  round.offeredByProxy = info.offeredByProxy;
  round.peer = info.peer;
  return m_authentication.OnRound(round) && m_receiver.Failure() == HTTPFailure::kNone;
}

/// Adds what is known after a request. A later request of the exchange may use its connection
/// again.
void HTTPTransfer::Collect(const HTTPRequestInfo& info, HTTPConnectionDetails& details) const {
  const String offered = m_receiver.OfferedSchemes().empty()
                             ? details.offeredSchemes
                             : JoinedNames(m_receiver.OfferedSchemes());
  if (!info.connection.isReused || details.address.empty()) details = info.connection;
  details.offeredSchemes = offered;
  details.usedScheme = m_authentication.HasToken() && info.reached == HTTPStep::kResponse
                           ? String(L"Bearer")
                           : JoinedNames(HTTPLogIn::Names(m_usedScheme));
  details.server = Shown(m_receiver.Headers().server);
  details.contentType = Shown(info.contentType);
  details.contentEncoding = Shown(m_receiver.Headers().contentEncoding);
}

void HTTPTransfer::Describe(HTTPFailure failure, const HTTPRequestInfo& info,
                            HTTPResponse& response) const {
  HTTPFailureDetails details;
  const bool wasAsked = m_isHTTPS && info.wasCertificateRequested && info.status == 0;
  details.reason = m_connection->FailureReason();
  details.failure =
      RefineTLSFailure(failure, details.reason, m_isHTTPS && m_hasCertificate, wasAsked);
  const std::uint64_t limit = m_receiver.LimitOf(failure);
  const bool isConnecting = failure == HTTPFailure::kConnectTimeout;
  details.number = limit != 0 ? limit : isConnecting ? m_connectTimeoutSeconds : m_timeoutSeconds;
  details.proxyStatus = response.proxyStatus;
  details.systemError = info.systemError;
  details.isHTTPS = m_isHTTPS;
  details.reached = info.reached;
  details.usesProxy = info.usesProxy;
  details.proxy = failure == HTTPFailure::kUnknownProxy ? info.proxy : info.proxyAtOtherEnd;
  details.mayNeedTLS = !m_isHTTPS && !m_hasProxy && !m_authentication.HasServiceAnswered();
  // libcurl does not pass on the headers of a refused tunnel.
  if (response.proxyStatus == 407) response.schemes = HTTPLogIn::Names(info.offeredByProxy);
  response.failure = details.failure;
  response.diagnosis = DescribeHTTPFailure(details);
}
