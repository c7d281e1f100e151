#include "http/HTTPConnectionNotes.h"

#include <algorithm>

#include "Utility/Generic/BaseStringUtil.h"
#include "text/ASCIIText.h"

void HTTPConnectionNotes::BeginRequest() noexcept {
  m_logInProblem.clear();
  m_tlsProtocol.clear();
}

void HTTPConnectionNotes::OnMessage(std::string_view message) {
  constexpr std::string_view kTLS = "SSL connection using ";
  // The message goes on with the name of the cipher.
  if (message.starts_with(kTLS)) {
    message.remove_prefix(kTLS.size());
    m_tlsProtocol = message.substr(0, std::min(message.find_first_of(" \r\n"), std::size_t{16}));
  } else if (message.starts_with("Establish HTTP proxy tunnel")) {
    m_tlsProtocol.clear();  // that of the proxy
  } else if (message.starts_with("gss_") && message.find(" failed: ") != std::string_view::npos) {
    const std::string_view text = ASCIIText::Trimmed(message);
    m_logInProblem = text.substr(0, BaseStringUtil::UTF8PrefixLength(text, kMaxProblemBytes));
    std::replace_if(m_logInProblem.begin(), m_logInProblem.end(), ASCIIText::IsControl, ' ');
  }
}
