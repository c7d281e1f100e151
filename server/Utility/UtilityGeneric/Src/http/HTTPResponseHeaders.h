#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "http/HTTPCookies.h"

/// Values of headers of the last response, truncated to 512 bytes each. Empty: no such header.
struct HTTPHeaderValues {
  std::string retryAfter;
  std::string server;
  std::string contentEncoding;
  std::string bearerChallenge;  ///< of WWW-Authenticate, if it contains a Bearer challenge
  /// A 401 or 407 has a challenge of NTLM, to which the client would have to answer on the same
  /// connection.
  bool hasNTLMChallenge = false;
};

/// Reads the headers of all responses of one exchange: informational ones, rejected log-ins, and
/// the last one with its trailers. The limits apply to all of them together.
class HTTPResponseHeaders {
 public:
  /// Number of headers of a response that are read for authentication schemes. Further ones are
  /// ignored.
  static constexpr std::size_t kMaxOffers = 16;
  enum class Result { kOk, kNewResponse, kTooLong, kMalformed, kCompressedTwice };

  /// `maxBytes`: limit for all headers of an exchange; 0 means no limit.
  HTTPResponseHeaders(std::size_t maxBytes, bool (*isPast)(const std::string&))
      : m_maxBytes(maxBytes), m_isPast(isPast) {}

  /// Cookies go to `cookies`, which must outlive the exchange.
  void BeginExchange(HTTPCookies& cookies) noexcept {
    m_bytes = 0;
    m_cookies = &cookies;
  }
  void BeginRequest() noexcept {
    m_part = Part::kStatusLine;
    m_schemes.clear();
    m_values = {};
    m_compressions = 0;
  }
  /// Reads one line with its line end. `request` numbers the requests. The first line after
  /// complete headers is a status line if its number is new, otherwise a trailer.
  Result OnLine(std::string_view line, long request);
  /// True if all headers of the last response were read.
  bool IsComplete() const noexcept { return m_part == Part::kBody; }
  /// Names of the schemes that the last response offers, if it is a 401 or 407.
  const std::vector<std::string>& Schemes() const noexcept { return m_schemes; }
  const HTTPHeaderValues& Values() const noexcept { return m_values; }

 private:
  enum class Part { kStatusLine, kHeaders, kBody };

  bool IsCompressedTwice(std::string_view line, long request);
  void OnHeader(std::string_view line);
  void Keep(std::string_view name, std::string_view value);

  const std::size_t m_maxBytes;
  HTTPCookies* m_cookies = nullptr;  // of the exchange
  bool (*const m_isPast)(const std::string&);
  std::size_t m_bytes = 0;
  Part m_part = Part::kStatusLine;
  long m_request = 0;
  std::size_t m_compressions = 0;  // of all responses to the request
  std::string m_status;            // three digits
  std::size_t m_offers = 0;
  std::vector<std::string> m_schemes;
  HTTPHeaderValues m_values;
};
