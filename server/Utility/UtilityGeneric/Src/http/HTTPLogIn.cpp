#include "http/HTTPLogIn.h"

#include <utility>

#include "Utility/Generic/HTTPClientWrapper.h"

namespace {

constexpr unsigned int kStrongestFirst[] = {kAuthNegotiate, kAuthDigest, kAuthNTLM, kAuthBasic};

unsigned int Strongest(unsigned int schemes) {
  for (const unsigned int scheme : kStrongestFirst)
    if ((schemes & scheme) != 0) return scheme;
  return 0;
}

/// The scheme and all stronger ones.
unsigned int AtLeastAsStrongAs(unsigned int scheme) {
  unsigned int schemes = 0;
  for (const unsigned int stronger : kStrongestFirst) {
    schemes |= stronger;
    if (stronger == scheme) break;
  }
  return schemes;
}

}  // namespace

/// The strongest scheme of the offer that may still be used; weaker ones may not be used any more.
unsigned int HTTPLogIn::Choose(unsigned int offered) noexcept {
  for (;;) {
    const unsigned int scheme = Strongest(offered & m_allowed & m_memory & ~m_tried);
    // Negotiate does not use the password, and may only lack a ticket.
    if ((scheme & kAuthPasswordSchemes) == 0) return scheme;
    // Another client may have used a stronger one meanwhile.
    if ((m_memory.fetch_and(AtLeastAsStrongAs(scheme)) & scheme) != 0) return scheme;
  }
}

bool HTTPLogIn::OnRejected(unsigned int offered) noexcept {
  const unsigned int refused = std::exchange(m_scheme, 0);
  const bool wasRemembered = std::exchange(m_isRemembered, false);
  // What was accepted before may need a new nonce or handshake. Basic has nothing new to say.
  if (wasRemembered && refused != kAuthBasic && (offered & refused) != 0) {
    m_scheme = refused;
    return true;
  }
  m_tried |= refused;
  m_scheme = Choose(offered);
  return m_scheme != 0;
}

void HTTPLogIn::OnAccepted() noexcept {
  if (m_scheme != 0) m_memory &= AtLeastAsStrongAs(m_scheme);
}
