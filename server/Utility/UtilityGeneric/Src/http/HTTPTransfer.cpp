#include "http/HTTPTransfer.h"

#include "Utility/Generic/BaseStringUtil.h"
#include "http/HTTPUrl.h"

HTTPTransfer::HTTPTransfer(const NarrowString& url, const NarrowString& user,
                           const NarrowString& password, std::uint32_t timeoutSeconds,
                           const HTTPClientOptions& options)
    : m_timeoutSeconds(timeoutSeconds),
      m_isHTTPS(HTTPUrl::IsHTTPS(BaseStringUtil::FromUTF8(url))),
      m_hasProxy(!options.proxy->empty()),
      m_credentials(user, password),
      m_authentication(BaseStringUtil::FromUTF8(url), m_credentials, options),
      m_receiver(HTTPUrl::PathForRequest(url), options),
      m_connection(
          HTTPConnection::Create(url, user, password, timeoutSeconds, options, m_receiver)) {}

HTTPTransfer::~HTTPTransfer() = default;

void HTTPTransfer::SetHeaderLines(const NarrowString& lines) {
  m_connection->SetHeaderLines(lines);
}

void HTTPTransfer::Post(const NarrowString& body, HTTPResponse& response) {
  m_receiver.BeginExchange(response.body);
  m_authentication.BeginExchange();
  HTTPFailure failure;
  HTTPRequestInfo info;
  do {
    failure = Send(body, info);
    // libcurl retries on a kept-alive connection that turns out to be closed. But it counts these
    // retries over all requests, and refuses every sixth.
    if (failure == HTTPFailure::kSendFailed && !info.usedNewConnection) failure = Send(body, info);
    if (!info.logInProblem.empty()) response.logInProblem = info.logInProblem;
  } while (ShouldSendAgain(failure == HTTPFailure::kNone, info));
  if (failure == HTTPFailure::kNone) m_receiver.OnEnd(info.wireBytes);
  if (m_receiver.Failure() != HTTPFailure::kNone) failure = m_receiver.Failure();

  response.status = info.status;
  response.contentType = std::move(info.contentType);
  response.redirectTarget = info.redirectTarget;
  response.schemes = m_receiver.OfferedSchemes();
  response.isLogInUnfinished = m_receiver.HasNTLMChallenge();
  response.logInAdvice = m_authentication.Advice();
  response.rejectedByService = m_authentication.RejectedByService();
  response.rejectedByProxy = m_authentication.RejectedByProxy();
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
  HTTPRequest request{body, m_receiver.Cookies()};
  request.serviceScheme = m_authentication.ServiceScheme();
  request.proxyScheme = m_authentication.ProxyScheme();
  if (!m_credentials.IsASCII()) request.credentials = &m_credentials;
  request.forgetLogInState = m_authentication.WasDigestRejected();
  const HTTPFailure failure = m_connection->Send(request);
  info = m_connection->Info();
  return failure;
}

bool HTTPTransfer::ShouldSendAgain(bool isComplete, const HTTPRequestInfo& info) {
  HTTPAuthRound round;
  round.isComplete = isComplete;
  round.status = info.status;
  round.connectStatus = info.connectStatus;
  round.offeredByService = info.offeredByService;
  round.offeredByProxy = info.offeredByProxy;
  round.peer = info.peer;
  return m_authentication.OnRound(round) && m_receiver.Failure() == HTTPFailure::kNone;
}

void HTTPTransfer::Describe(HTTPFailure failure, const HTTPRequestInfo& info,
                            HTTPResponse& response) const {
  HTTPFailureDetails details;
  details.failure = failure;
  const std::uint64_t limit = m_receiver.LimitOf(failure);
  details.number = limit != 0 ? limit : m_timeoutSeconds;
  details.proxyStatus = info.status == 0 ? info.connectStatus : 0;
  details.systemError = info.systemError;
  details.isHTTPS = m_isHTTPS;
  details.mayNeedTLS = !m_isHTTPS && !m_hasProxy && !m_authentication.HasServiceAnswered();
  details.reason = m_connection->FailureReason();
  response.connectStatus = details.proxyStatus;
  // libcurl does not pass on the headers of a refused tunnel.
  if (response.connectStatus == 407) response.schemes = HTTPLogIn::Names(info.offeredByProxy);
  response.failure = failure;
  response.diagnosis = DescribeHTTPFailure(details);
}
