#include "http/HTTPRetries.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <optional>
#include <thread>

#include "Utility/Generic/Cancellation.h"
#include "http/HTTPConnection.h"
#include "http/HTTPTransfer.h"
#include "http/ReplyKind.h"

namespace HTTPRetries {
namespace {

constexpr double kFirstSeconds = 0.5;
constexpr double kMaxSeconds = 60;
constexpr std::chrono::milliseconds kStep{40};  // between two checks for cancellation

bool IsTemporary(long status) {
  return status == 429 || status == 502 || status == 503 || status == 504;
}

/// Of the service, or of the proxy that has refused a tunnel to it.
long StatusOf(const HTTPResponse& response) {
  return response.status == 0 ? response.proxyStatus : response.status;
}

bool IsConnectionFailure(HTTPFailure failure) {
  switch (failure) {
    case HTTPFailure::kUnknownHost:
    case HTTPFailure::kUnknownProxy:
    case HTTPFailure::kConnectFailed:
    case HTTPFailure::kConnectTimeout:
    case HTTPFailure::kTLSInterrupted:
    case HTTPFailure::kClosedWithoutResponse:
    case HTTPFailure::kTruncated:
    case HTTPFailure::kReceiveFailed:
    case HTTPFailure::kSendFailed:
      return true;
    default:
      return false;
  }
}

/// The value of Retry-After: a number of seconds, or a date. A date in the past is ignored, because
/// the clocks may differ.
std::optional<double> SecondsOf(const std::string& retryAfter) {
  if (retryAfter.empty()) return std::nullopt;
  if (retryAfter.find_first_not_of("0123456789") == std::string::npos) {
    std::uint64_t seconds = 0;
    const char* const end = retryAfter.data() + retryAfter.size();
    const bool fits = std::from_chars(retryAfter.data(), end, seconds).ec == std::errc();
    return fits ? static_cast<double>(seconds) : kMaxSeconds;
  }
  // Every form of a date has a time. libcurl also accepts other numbers.
  if (retryAfter.find(':') == std::string::npos) return std::nullopt;
  const std::optional<std::int64_t> seconds = SecondsUntilHTTPDate(retryAfter);
  if (!seconds || *seconds < 0) return std::nullopt;
  return static_cast<double>(*seconds);
}

}  // namespace

bool MayRepeat(const HTTPResponse& response) {
  if (IsAbortedByClient(response.failure)) return false;
  const long status = StatusOf(response);
  if (status >= 300) return IsTemporary(status) && !ReplyKind::IsFault(response.body.view());
  return IsConnectionFailure(response.failure) && !response.isLogInUnproven;
}

bool MayBeOverload(const HTTPResponse& response) {
  if (MayRepeat(response)) return true;
  if (response.failure == HTTPFailure::kNone) return IsTemporary(StatusOf(response));
  return IsTimeout(response.failure) && !response.isLogInUnproven;
}

bool IsLastingOverload(const HTTPResponse& response) {
  return IsTemporary(StatusOf(response)) || IsTimeout(response.failure) ||
         response.failure == HTTPFailure::kConnectFailed;
}

void Return(HTTPRequestBudget::Permit& permit, HTTPFailure failure) noexcept {
  if (IsAbortedByClient(failure)) return permit.Abandon();
  permit.Return();
}

bool MayComeFromOthers(const HTTPResponse& response) {
  if (IsAbortedByClient(response.failure) && !IsTimeout(response.failure)) return false;
  const long status = StatusOf(response);
  if (status == 401 || status == 407) return false;
  return !response.isLogInUnproven || IsTemporary(status);
}

double PauseSeconds(const HTTPResponse& response) {
  const long status = StatusOf(response);
  if (status != 429 && (status != 503 || response.retryAfter.empty())) return 0;
  return WaitSeconds(2, response.retryAfter);
}

double WaitSeconds(std::uint32_t number, const std::string& retryAfter) {
  const double backOff = std::ldexp(kFirstSeconds, static_cast<int>(std::min(number, 16U)) - 1);
  return std::min(SecondsOf(retryAfter).value_or(backOff), kMaxSeconds);
}

bool Wait(double seconds) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point end = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                   std::chrono::duration<double>(seconds));
  while (!IsThreadToStop()) {
    const Clock::time_point now = Clock::now();
    if (now >= end) return true;
    std::this_thread::sleep_for(std::min<Clock::duration>(kStep, end - now));
  }
  return false;
}

}  // namespace HTTPRetries
