#pragma once

#include <cstdint>
#include <string>

#include "Utility/Generic/HTTPReadAhead.h"
#include "http/HTTPFailure.h"

struct HTTPResponse;

/// When a request is repeated, and after which time.
namespace HTTPRetries {

/// True if the same request may succeed later: there was no connection, it was lost, or the status
/// is 429, 502, 503 or 504 without a SOAP fault. False if the connection was lost after a log-in
/// that was never accepted: the server may have refused it, and repeated, it could lock an account.
/// All requests only read, so the server may have processed the first one. Names that cannot be
/// resolved count as no connection, because libcurl does not tell a name that does not exist from a
/// name server that does not answer.
bool MayRepeat(const HTTPResponse& response);

/// True if the failure looks as if the server works on too many requests: like MayRepeat, and also
/// after a time-out, and with a SOAP fault.
bool MayBeOverload(const HTTPResponse& response);

/// Of such a failure: false after a lost connection, which can have another reason. To try more
/// requests at a time again would cost little then, but after a time-out another one.
bool IsLastingOverload(const HTTPResponse& response);

/// Returns the permit of a request that has ended. If the client ended it, the server may still
/// work on it.
void Return(HTTPRequestBudget::Permit& permit, HTTPFailure failure) noexcept;

/// True if other requests in progress may be the reason of the failure, and if it is safe to send
/// the request again. False if the client ended the request because of a limit. False if the server
/// may have refused the log-in, because another attempt could lock the account.
bool MayComeFromOthers(const HTTPResponse& response);

/// Seconds to wait before the next request to this server: after 429, and after 503 with
/// Retry-After. 0 for all other responses.
double PauseSeconds(const HTTPResponse& response);

/// Seconds to wait before retry `number` (1, 2, ...): 0.5, 1, 2, ..., or what the Retry-After
/// header says, at most 60. `retryAfter` is its value; an unusable one is ignored.
double WaitSeconds(std::uint32_t number, const std::string& retryAfter);

/// Waits. Returns false at once when the calling thread must end its operation.
bool Wait(double seconds);

}  // namespace HTTPRetries
