#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "http/HTTPCookies.h"

/// Reads the header lines of all answers that one exchange brings: preliminary ones, refused
/// log-ins and the last one with its trailer. What a server can make them cost is bounded over all
/// of them.
class HTTPResponseHeaders {
 public:
  /// At most so many headers that offer a log-in are read of an answer.
  static constexpr std::size_t kMaxOffers = 16;
  enum class Result { kOk, kNewResponse, kTooLong, kMalformed, kCompressedTwice };

  /// `maxBytes` 0 means no limit.
  HTTPResponseHeaders(std::size_t maxBytes, HTTPCookies& cookies,
                      bool (*isPast)(const std::string&))
      : m_maxBytes(maxBytes), m_cookies(cookies), m_isPast(isPast) {}

  void BeginExchange() noexcept { m_bytes = 0; }
  void BeginRequest() noexcept {
    m_part = Part::kStatusLine;
    m_compressions = 0;
  }
  /// Takes one line with its end. `request` numbers the requests that led to the answers: an answer
  /// to another one begins with a status line, and no other line behind a head does.
  Result OnLine(std::string_view line, long request);
  /// All headers before the body of the latest answer have come.
  bool IsComplete() const noexcept { return m_part == Part::kBody; }
  /// The names of the schemes that the latest answer, a 401 or 407, offers.
  const std::vector<std::string>& Schemes() const noexcept { return m_schemes; }

 private:
  enum class Part { kStatusLine, kHeaders, kBody };

  bool IsCompressedTwice(std::string_view line, long request);
  void OnHeader(std::string_view line);

  const std::size_t m_maxBytes;
  HTTPCookies& m_cookies;
  bool (*const m_isPast)(const std::string&);
  std::size_t m_bytes = 0;
  Part m_part = Part::kStatusLine;
  long m_request = 0;
  std::size_t m_compressions = 0;  // that libcurl undoes, of all answers to the request
  std::string m_status;            // three digits
  std::size_t m_offers = 0;
  std::vector<std::string> m_schemes;
};
