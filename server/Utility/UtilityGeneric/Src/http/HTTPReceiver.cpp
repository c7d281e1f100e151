#include "http/HTTPReceiver.h"

#include <algorithm>

#include "Utility/Generic/Cancellation.h"
#include "http/HTTPConnection.h"

namespace {

/// The compression ratio of a shorter reply is not limited.
constexpr std::uint64_t kMinBytesForRatio = std::uint64_t{1} << 20;
/// A server may announce more than it sends, so at most this much is reserved at once.
constexpr std::uint64_t kMaxReservedBytes = std::uint64_t{256} << 20;
/// The reader may insert an XML declaration in front of the body.
constexpr std::uint64_t kDeclarationBytes = 64;

bool IsPast(const std::string& date) { return SecondsUntilHTTPDate(date).value_or(1) <= 0; }

}  // namespace

HTTPReceiver::HTTPReceiver(std::string_view servicePath, const HTTPClientOptions& options)
    : m_maxReplyBytes(options.maxReplyBytes == 0 ? UINT64_MAX : options.maxReplyBytes),
      m_maxHeaderBytes(options.maxHeaderBytes),
      m_maxRatio(options.maxCompressionRatio),
      m_cookies(
          std::make_shared<HTTPCookies>(servicePath, options.maxCookies, options.maxCookieBytes)),
      m_cookieCopy(servicePath, options.maxCookies, options.maxCookieBytes),
      m_headers(m_maxHeaderBytes, &IsPast) {}

HTTPReceiver::HTTPReceiver(const HTTPReceiver& other)
    : m_maxReplyBytes(other.m_maxReplyBytes),
      m_maxHeaderBytes(other.m_maxHeaderBytes),
      m_maxRatio(other.m_maxRatio),
      m_cookies(other.m_cookies),
      m_cookieCopy(HTTPCookies::SameSettings{*other.m_cookies}),
      m_headers(m_maxHeaderBytes, &IsPast) {}

void HTTPReceiver::BeginExchange(NarrowString& body, const HTTPStepHandler& onStep) {
  m_cookieCopy.CopyFrom(*m_cookies);
  m_onStep = &onStep;
  m_body = &body;
  m_failure = HTTPFailure::kNone;
  m_headers.BeginExchange(m_limit ? m_cookieCopy : *m_cookies);
  m_receivedBytes = m_decodedBytes = m_earlierBytes = 0;
}

void HTTPReceiver::BeginRequest() noexcept {
  CountEarlierBytes();
  m_body->clear();
  m_headers.BeginRequest();
}

bool HTTPReceiver::OnHeader(std::string_view line, long request) noexcept {
  if (IsThreadToStop()) return Fail(HTTPFailure::kCancelled);
  if (request != m_request) CountEarlierBytes();
  m_request = request;
  try {
    switch (m_headers.OnLine(line, request)) {
      case HTTPResponseHeaders::Result::kNewResponse:
        m_body->clear();  // an informational response may have had a body
        break;
      case HTTPResponseHeaders::Result::kTooLong:
        return Fail(HTTPFailure::kHeadersTooLong);
      case HTTPResponseHeaders::Result::kMalformed:
        return Fail(HTTPFailure::kMalformedHeader);
      case HTTPResponseHeaders::Result::kCompressedTwice:
        return Fail(HTTPFailure::kCompressedTwice);
      case HTTPResponseHeaders::Result::kOk:
        break;
    }
  } catch (...) {
    return Fail(HTTPFailure::kOutOfMemory);
  }
  return true;
}

bool HTTPReceiver::OnBody(std::string_view bytes, std::uint64_t announcedBytes,
                          std::uint64_t wireBytes) noexcept {
  // A small compressed block can produce very much text before the next check elsewhere.
  if (IsThreadToStop()) return Fail(HTTPFailure::kCancelled);
  m_decodedBytes += bytes.size();
  if (bytes.size() > m_maxReplyBytes - m_body->size()) return Fail(HTTPFailure::kReplyTooLong);
  if (m_limit) {
    if (!m_limit->TryAdd(bytes.size())) return Fail(HTTPFailure::kReplyTooLong);
    m_limitedBytes += bytes.size();
    announcedBytes = std::min(announcedBytes, m_limit->Most());
  }
  try {
    if (m_body->empty() && announcedBytes > 0) {
      m_body->reserve(std::min({announcedBytes, kMaxReservedBytes, m_maxReplyBytes}) +
                      kDeclarationBytes);
    }
    m_body->append(bytes);
  } catch (...) {
    return Fail(HTTPFailure::kOutOfMemory);
  }
  // For a chunked body, libcurl counts the bytes of the current buffer only after decoding.
  if (IsOverRatio(wireBytes + kHTTPReceiveBufferBytes))
    return Fail(HTTPFailure::kCompressionRatioTooHigh);
  return true;
}

bool HTTPReceiver::OnProgress(std::uint64_t receivedBytes) noexcept {
  // At the next request of a log-in, the number starts at 0 before the first header.
  m_receivedBytes = std::max(m_receivedBytes, receivedBytes);
  if (receivedBytes > m_maxReplyBytes) m_failure = HTTPFailure::kReplyTooLong;
  if (IsThreadToStop()) m_failure = HTTPFailure::kCancelled;
  return m_failure == HTTPFailure::kNone;
}

bool HTTPReceiver::OnEnd(std::uint64_t wireBytes) noexcept {
  return !IsOverRatio(wireBytes) || Fail(HTTPFailure::kCompressionRatioTooHigh);
}

void HTTPReceiver::CountEarlierBytes() noexcept {
  m_earlierBytes += std::max(m_receivedBytes, m_decodedBytes);
  m_receivedBytes = m_decodedBytes = 0;
}

bool HTTPReceiver::Fail(HTTPFailure failure) noexcept {
  m_failure = failure;
  return false;
}

std::uint64_t HTTPReceiver::LimitOf(HTTPFailure failure) const noexcept {
  switch (failure) {
    case HTTPFailure::kReplyTooLong:
      return m_maxReplyBytes;
    case HTTPFailure::kHeadersTooLong:
      return m_maxHeaderBytes;
    case HTTPFailure::kCompressionRatioTooHigh:
      return m_maxRatio;
    default:
      return 0;
  }
}

bool HTTPReceiver::IsOverRatio(std::uint64_t wireBytes) const noexcept {
  if (m_maxRatio == 0 || m_body->size() <= kMinBytesForRatio) return false;
  return m_body->size() / m_maxRatio > wireBytes;
}
