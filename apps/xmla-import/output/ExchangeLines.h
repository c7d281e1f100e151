#pragma once

#include <cstdint>
#include <string>

#include "Utility/Generic/HTTPClientWrapper.h"

// Texts about exchanges, for people.

/// A number of bytes with a suitable unit.
std::string SizeText(std::uint64_t bytes);
/// One exchange with its timings, as a line with the time of day. A failed one is marked.
std::string ExchangeLine(const HTTPExchangeInfo& info);
/// A request that failed and is repeated, as a line with the time of day.
std::string RetryLine(const HTTPRetry& retry);
/// The number of requests at a time was reduced (`isOverload`) or has grown again, as a line with
/// the time of day.
std::string LoadLine(bool isOverload, unsigned int requests);
/// No request is sent for `seconds` from now, as a line with the time of day. Negative: the pause
/// is over.
std::string PauseLine(double seconds);
/// What an operation has read ahead, as a line with the time of day.
std::string ReadAheadLine(const HTTPReadAheadInfo& info);
/// A request that failed after its exchange, as a line with the time of day.
std::string FailureLine(const String& subject, const String& error);
