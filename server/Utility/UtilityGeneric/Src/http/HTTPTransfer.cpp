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

String Joined(const std::vector<std::string>& names) {
  String text;
  for (const std::string& name : names) {
    if (!text.empty()) text += L", ";
    text += BaseStringUtil::FromUTF8(NarrowString(name.data(), name.size()));
  }
  return text;
}

}  // namespace

HTTPTransfer::HTTPTransfer(const NarrowString& url, const NarrowString& user,
                           const NarrowString& password, const HTTPClientOptions& options)
    : m_timeoutSeconds(*options.timeoutSeconds),
      m_connectTimeoutSeconds(*options.connectTimeoutSeconds),
      m_isHTTPS(HTTPUrl::IsHTTPS(BaseStringUtil::FromUTF8(url))),
      m_hasProxy(!options.proxy->empty()),
      m_hasCertificate(!options.certificateFile.empty()),
      m_wantsDetails(options.wantsConnectionDetails),
      m_credentials(user, password),
      m_authentication(BaseStringUtil::FromUTF8(url), m_credentials, options),
      m_receiver(HTTPUrl::PathForRequest(url), options),
      m_connection(HTTPConnection::Create(url, user, password, options, m_receiver)) {}

HTTPTransfer::~HTTPTransfer() = default;

void HTTPTransfer::SetHeaderLines(const NarrowString& lines) {
  m_connection->SetHeaderLines(lines);
}

void HTTPTransfer::Post(const NarrowString& body, HTTPResponse& response,
                        const HTTPStepHandler& onStep) {
  m_receiver.BeginExchange(response.body, onStep);
  m_authentication.BeginExchange();
  m_usedScheme = 0;
  HTTPFailure failure;
  HTTPRequestInfo info;
  do {
    failure = Send(body, info);
    // libcurl retries on a kept-alive connection that turns out to be closed. But it counts these
    // retries over all requests, and refuses every sixth.
    if (failure == HTTPFailure::kSendFailed && !info.usedNewConnection) failure = Send(body, info);
    if (!info.logInProblem.empty()) response.logInProblem = info.logInProblem;
    if (m_wantsDetails) Collect(info, response.connection);
  } while (ShouldSendAgain(failure == HTTPFailure::kNone, info));
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
  response.wireBytes = info.wireBytes;
  response.earlierBytes = m_receiver.EarlierBytes();
  response.connectSeconds = info.connectSeconds;
  response.firstByteSeconds = info.firstByteSeconds;
  response.totalSeconds = info.totalSeconds;
  if (failure != HTTPFailure::kNone) Describe(failure, info, response);
}

HTTPFailure HTTPTransfer::Send(const NarrowString& body, HTTPRequestInfo& info) {
  m_receiver.BeginRequest();
  if (m_authentication.IsTokenForbidden()) {
    m_receiver.Fail(HTTPFailure::kTokenUnprotected);
    return HTTPFailure::kTokenUnprotected;
  }
  HTTPRequest request{body, m_receiver.Cookies()};
  request.serviceScheme = m_authentication.ServiceScheme();
  request.proxyScheme = m_authentication.ProxyScheme();
  if (!m_credentials.IsASCII()) request.credentials = &m_credentials;
  request.forgetLogInState = m_authentication.WasDigestRejected();
  request.needsNewConnection = m_authentication.MustProveLogIn();
  request.onlyToThisMachine = m_authentication.MustTokenStayHere();
  if (request.serviceScheme != 0) m_usedScheme = request.serviceScheme;
  const HTTPFailure failure = m_connection->Send(request);
  info = m_connection->Info();
  return failure;
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
  const String offered = m_receiver.OfferedSchemes().empty() ? details.offeredSchemes
                                                             : Joined(m_receiver.OfferedSchemes());
  if (!info.connection.isReused || details.address.empty()) details = info.connection;
  details.offeredSchemes = offered;
  details.usedScheme = m_authentication.HasToken() && info.reached == HTTPStep::kResponse
                           ? String(L"Bearer")
                           : Joined(HTTPLogIn::Names(m_usedScheme));
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
  details.proxy = info.proxyAtOtherEnd;
  details.mayNeedTLS = !m_isHTTPS && !m_hasProxy && !m_authentication.HasServiceAnswered();
  // libcurl does not pass on the headers of a refused tunnel.
  if (response.proxyStatus == 407) response.schemes = HTTPLogIn::Names(info.offeredByProxy);
  response.failure = details.failure;
  response.diagnosis = DescribeHTTPFailure(details);
}
