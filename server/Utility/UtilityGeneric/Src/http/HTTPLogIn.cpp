#include "http/HTTPLogIn.h"

#include <utility>

#include "Utility/Generic/HTTPClientWrapper.h"

namespace {

struct Ranked {
  unsigned int bit;
  const char* name;
};
constexpr Ranked kStrongestFirst[] = {{kAuthNegotiate, "Negotiate"},
                                      {kAuthDigest, "Digest"},
                                      {kAuthNTLM, "NTLM"},
                                      {kAuthBasic, "Basic"}};

unsigned int Strongest(unsigned int schemes) {
  for (const Ranked& scheme : kStrongestFirst)
    if ((schemes & scheme.bit) != 0) return scheme.bit;
  return 0;
}

/// The set of the scheme and all stronger ones.
unsigned int AtLeastAsStrongAs(unsigned int scheme) {
  unsigned int schemes = 0;
  for (const Ranked& stronger : kStrongestFirst) {
    schemes |= stronger.bit;
    if (stronger.bit == scheme) break;
  }
  return schemes;
}

}  // namespace

/// Returns the strongest offered scheme that is allowed, and forbids weaker ones from now on.
unsigned int HTTPLogIn::Choose(unsigned int offered) noexcept {
  for (;;) {
    const unsigned int scheme = Strongest(offered & m_allowed & m_memory & ~m_tried);
    // Negotiate does not use the password, so weaker schemes stay allowed.
    if ((scheme & kAuthPasswordSchemes) == 0) return scheme;
    // Another client may have used a stronger scheme in the meantime.
    if ((m_memory.fetch_and(AtLeastAsStrongAs(scheme)) & scheme) != 0) return scheme;
  }
}

bool HTTPLogIn::OnRejected(unsigned int offered) noexcept {
  const unsigned int refused = std::exchange(m_scheme, 0);
  const bool workedBefore = std::exchange(m_isRemembered, false);
  // A scheme that worked before may need a new nonce or handshake. A repeated Basic would fail
  // again.
  if (workedBefore && refused != kAuthBasic && (offered & refused) != 0) {
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

std::vector<std::string> HTTPLogIn::Names(unsigned int schemes) {
  std::vector<std::string> names;
  for (const Ranked& scheme : kStrongestFirst)
    if ((schemes & scheme.bit) != 0) names.emplace_back(scheme.name);
  return names;
}
