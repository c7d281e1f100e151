#pragma once

#include <cstdint>
#include <string>

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

/// True if the server has refused the request for its load: with 429 or 503, or without accepting
/// the connection. A reply with a SOAP fault is no refusal.
bool IsOverload(const HTTPResponse& response);

/// Seconds to wait before retry `number` (1, 2, ...): 0.5, 1, 2, ..., or what the Retry-After
/// header says, at most 60. `retryAfter` is its value; an unusable one is ignored.
double WaitSeconds(std::uint32_t number, const std::string& retryAfter);

/// Waits. Returns false at once when the calling thread must end its operation.
bool Wait(double seconds);

}  // namespace HTTPRetries
