#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/String.h"
#include "http/HTTPByteLimit.h"
#include "http/HTTPCookies.h"
#include "http/HTTPFailure.h"
#include "http/HTTPResponseHeaders.h"

/// Called when a step of an exchange begins.
using HTTPStepHandler = std::function<void(HTTPStep, HTTPConnectionDetails)>;

/// Receives the responses of one exchange: checks their headers and keeps the body of the last one.
/// Applies the limits of HTTPClientOptions and checks for cancellation.
///
/// The On... functions return false if the transfer must end; Failure() then says why. They throw
/// nothing.
class HTTPReceiver {
 public:
  HTTPReceiver(std::string_view servicePath, const HTTPClientOptions& options);
  /// With the limits and the cookies of the other receiver.
  HTTPReceiver(const HTTPReceiver& other);
  HTTPReceiver& operator=(const HTTPReceiver&) = delete;
  ~HTTPReceiver() = default;

  /// Starts an exchange. The body goes to `body`. Both arguments must outlive the exchange. With
  /// an additional limit, cookies of the responses are used in this exchange only.
  void BeginExchange(NarrowString& body, const HTTPStepHandler& onStep);
  /// Starts one request of the exchange.
  void BeginRequest() noexcept;

  /// A line of a response to request number `request` of libcurl.
  bool OnHeader(std::string_view line, long request) noexcept;
  /// A part of the decoded body. `announcedBytes` is the value of Content-Length or 0, `wireBytes`
  /// the number of bytes read before decompression.
  bool OnBody(std::string_view bytes, std::uint64_t announcedBytes,
              std::uint64_t wireBytes) noexcept;
  /// `receivedBytes` also counts bodies that are not passed to OnBody, such as that of a rejected
  /// log-in.
  bool OnProgress(std::uint64_t receivedBytes) noexcept;
  /// Checks the compression ratio of the complete body.
  bool OnEnd(std::uint64_t wireBytes) noexcept;

  bool WantsSteps() const noexcept { return m_onStep && *m_onStep; }
  void OnStep(HTTPStep step, HTTPConnectionDetails connection) const {
    (*m_onStep)(step, std::move(connection));
  }

  /// Ends the exchange with a failure; always false.
  bool Fail(HTTPFailure failure) noexcept;
  HTTPFailure Failure() const noexcept { return m_failure; }
  /// The number in the text of a failure that exceeds a limit; 0 for other failures.
  std::uint64_t LimitOf(HTTPFailure failure) const noexcept;

  bool HasAllHeaders() const noexcept { return m_headers.IsComplete(); }
  const std::vector<std::string>& OfferedSchemes() const noexcept { return m_headers.Schemes(); }
  const HTTPHeaderValues& Headers() const noexcept { return m_headers.Values(); }
  /// Size of the bodies of all responses of the exchange, except those to the last request:
  /// rejected log-ins and failed attempts. Decoded, or as received if that is longer or libcurl
  /// discarded it.
  std::uint64_t EarlierBytes() const noexcept { return m_earlierBytes; }
  std::string Cookies() const { return (m_limit ? m_cookieCopy : *m_cookies).ForRequest(); }
  /// Forgets the cookies of this exchange.
  void ForgetCookies() { m_cookies->CopyFrom(m_cookieCopy); }
  /// An additional limit for the following exchanges, which must outlive them; null: none.
  void SetLimit(HTTPByteLimit* limit) noexcept { m_limit = limit; }
  /// The bytes of this exchange that were added to the additional limit. The caller subtracts them.
  std::uint64_t TakeLimitedBytes() noexcept { return std::exchange(m_limitedBytes, 0); }

 private:
  bool IsOverRatio(std::uint64_t wireBytes) const noexcept;
  void CountEarlierBytes() noexcept;

  const std::uint64_t m_maxReplyBytes;
  const std::size_t m_maxHeaderBytes;
  const std::uint64_t m_maxRatio;
  const std::shared_ptr<HTTPCookies> m_cookies;
  /// The cookies at the start of the exchange. An exchange with an additional limit changes these.
  HTTPCookies m_cookieCopy;
  HTTPResponseHeaders m_headers;
  HTTPByteLimit* m_limit = nullptr;  // null: none
  std::uint64_t m_limitedBytes = 0;
  NarrowString* m_body = nullptr;
  const HTTPStepHandler* m_onStep = nullptr;
  long m_request = 0;  // number of the request to which the latest header belongs
  std::uint64_t m_receivedBytes = 0;
  std::uint64_t m_decodedBytes = 0;
  std::uint64_t m_earlierBytes = 0;
  HTTPFailure m_failure = HTTPFailure::kNone;
};
