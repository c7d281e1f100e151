#include "http/HTTPConnectionNotes.h"

#include <algorithm>

#include "Utility/Generic/BaseStringUtil.h"
#include "text/ASCIIText.h"

namespace {

/// If the text begins with `prefix`, removes it and returns true.
bool Take(std::string_view& text, std::string_view prefix) {
  if (!text.starts_with(prefix)) return false;
  text.remove_prefix(prefix.size());
  return true;
}

}  // namespace

void HTTPConnectionNotes::BeginRequest() noexcept {
  m_logInProblem.clear();
  m_tlsProtocol.clear();
  m_wasCertificateRequested = false;
}

HTTPConnectionEvent HTTPConnectionNotes::OnMessage(std::string_view message) {
  std::string_view text = ASCIIText::Trimmed(message);
  if (Take(text, "Trying ")) {
    m_address = text.substr(0, text.find("..."));
    m_host.clear();
    return HTTPConnectionEvent::kConnecting;
  } else if (Take(text, "Connected to ")) {
    OnConnected(text);
  } else if (Take(text, "SSL connection using ")) {  // "TLSv1.3 / NAME OF THE CIPHER"
    m_tlsProtocol = text.substr(0, std::min(text.find(' '), std::size_t{16}));
  } else if (text.starts_with("Establish HTTP proxy tunnel")) {
    m_tlsProtocol.clear();  // that of the proxy
    m_wasCertificateRequested = false;
  } else if (text.starts_with("TLSv") && text.find("Request CERT") != std::string_view::npos) {
    m_wasCertificateRequested = true;
  } else if (text.starts_with("TLSv") && text.find("Client hello") != std::string_view::npos) {
    return HTTPConnectionEvent::kHandshake;
  } else if (text.starts_with("gss_") && text.find(" failed: ") != std::string_view::npos) {
    m_logInProblem = text.substr(0, BaseStringUtil::UTF8PrefixLength(text, kMaxProblemBytes));
    std::replace_if(m_logInProblem.begin(), m_logInProblem.end(), ASCIIText::IsControl, ' ');
  }
  return HTTPConnectionEvent::kNone;
}

/// The rest of "Connected to HOST (ADDRESS) port NUMBER (#COUNT)".
void HTTPConnectionNotes::OnConnected(std::string_view rest) {
  const std::size_t open = rest.find(" (");
  const std::size_t close = rest.find(") port ");
  if (open == std::string_view::npos || close == std::string_view::npos || close < open) return;
  m_host = rest.substr(0, open);
  const std::string address(rest.substr(open + 2, close - open - 2));
  std::string_view port = rest.substr(close + std::string_view(") port ").size());
  port = port.substr(0, port.find(' '));
  m_address = address.find(':') == std::string::npos ? address : '[' + address + ']';
  m_address += ':';
  m_address += port;
}
