#include "http/HTTPResponseHeaders.h"

#include <algorithm>

#include "Utility/Generic/BaseStringUtil.h"
#include "text/ASCIIText.h"

namespace {

/// Counts the compressions in the value of Content-Encoding or Transfer-Encoding.
std::size_t CountCompressions(std::string_view list) {
  std::size_t count = 0;
  while (!list.empty()) {
    const std::size_t end = std::min(list.find(','), list.size());
    const std::string_view coding = ASCIIText::Trimmed(list.substr(0, end));
    list.remove_prefix(std::min(end + 1, list.size()));
    if (!coding.empty() && !ASCIIText::EqualsIgnoringCase(coding, "identity") &&
        !ASCIIText::EqualsIgnoringCase(coding, "chunked"))
      ++count;
  }
  return count;
}

/// The status code. libcurl accepts several spaces before it.
std::string_view StatusOf(std::string_view line) {
  line.remove_prefix(std::min(line.find(' '), line.size()));
  return ASCIIText::Trimmed(line).substr(0, 3);
}

}  // namespace

HTTPResponseHeaders::Result HTTPResponseHeaders::OnLine(std::string_view line, long request) {
  m_bytes += line.size();
  if (m_maxBytes != 0 && m_bytes > m_maxBytes) return Result::kTooLong;
  const std::string_view text = line.substr(0, line.find_last_not_of("\r\n") + 1);
  // Some servers treat a CR inside a line as its end, and libcurl would repeat it in a log-in.
  if (text.find('\r') != std::string_view::npos) return Result::kMalformed;
  if (IsCompressedTwice(text, request)) return Result::kCompressedTwice;
  if (m_part == Part::kBody && request != m_request) m_part = Part::kStatusLine;
  switch (m_part) {
    case Part::kStatusLine:
      m_part = Part::kHeaders;
      m_request = request;
      m_status = StatusOf(text);
      m_offers = 0;
      m_schemes.clear();
      m_values = {};
      return Result::kNewResponse;
    case Part::kHeaders:
      if (!text.empty())
        OnHeader(text);
      else  // another response follows an informational one
        m_part = m_status.starts_with('1') ? Part::kStatusLine : Part::kBody;
      break;
    case Part::kBody:
      break;  // trailers are ignored
  }
  return Result::kOk;
}

void HTTPResponseHeaders::Keep(std::string_view name, std::string_view value) {
  constexpr std::size_t kMaxBytes = 512;
  struct Kept {
    std::string_view name;
    std::string HTTPHeaderValues::*value;
  };
  static constexpr Kept kKept[] = {{"retry-after", &HTTPHeaderValues::retryAfter},
                                   {"server", &HTTPHeaderValues::server},
                                   {"content-encoding", &HTTPHeaderValues::contentEncoding},
                                   {"www-authenticate", &HTTPHeaderValues::bearerChallenge}};
  for (const Kept& kept : kKept) {
    if (!ASCIIText::EqualsIgnoringCase(name, kept.name)) continue;
    const bool isOffer = kept.value == &HTTPHeaderValues::bearerChallenge;
    if (isOffer && ASCIIText::FindIgnoringCase(value, "bearer") == std::string_view::npos) return;
    std::string& place = m_values.*kept.value;
    if (place.empty()) place = value.substr(0, BaseStringUtil::UTF8PrefixLength(value, kMaxBytes));
    return;
  }
}

/// Each level of compression can multiply the size by a thousand. The data between the levels has
/// no limit: libcurl passes only the last level's output to its callbacks, and can be stopped only
/// there. libcurl adds up the headers of all responses to a request, so all of them count here.
bool HTTPResponseHeaders::IsCompressedTwice(std::string_view line, long request) {
  if (request != m_request) m_compressions = 0;
  const std::size_t colon = std::min(line.find(':'), line.size());
  const std::string_view name = line.substr(0, colon);
  if (ASCIIText::EqualsIgnoringCase(name, "content-encoding") ||
      ASCIIText::EqualsIgnoringCase(name, "transfer-encoding"))
    m_compressions += CountCompressions(line.substr(std::min(colon + 1, line.size())));
  return m_compressions > 1;
}

void HTTPResponseHeaders::OnHeader(std::string_view line) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos) return;
  const std::string_view name = line.substr(0, colon);
  const std::string_view value = ASCIIText::Trimmed(line.substr(colon + 1));
  Keep(name, value);
  if (ASCIIText::EqualsIgnoringCase(name, "set-cookie")) m_cookies->Store(value, m_isPast);
  const bool isOffer =
      (m_status == "401" && ASCIIText::EqualsIgnoringCase(name, "www-authenticate")) ||
      (m_status == "407" && ASCIIText::EqualsIgnoringCase(name, "proxy-authenticate"));
  if (!isOffer || ++m_offers > kMaxOffers) return;
  // Without a challenge, the scheme's name is the whole value.
  if (value.size() > 5 && ASCIIText::EqualsIgnoringCase(value.substr(0, 5), "ntlm "))
    m_values.hasNTLMChallenge = true;
  std::string scheme(value.substr(0, std::min(value.find_first_of(" ,\t"), std::size_t{40})));
  if (!scheme.empty() && std::find(m_schemes.begin(), m_schemes.end(), scheme) == m_schemes.end())
    m_schemes.push_back(std::move(scheme));
}
