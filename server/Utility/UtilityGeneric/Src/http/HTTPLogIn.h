#pragma once

#include <atomic>
#include <string>
#include <vector>

/// Chooses the authentication scheme for one peer, the service or its proxy, in all exchanges of a
/// client. Schemes are values of HTTPAuthScheme.
///
/// Uses only the strongest scheme that the peer offers, and never a weaker one later. Otherwise an
/// attacker who can change the offer could read a password that was well protected before.
class HTTPLogIn {
 public:
  /// `memory` is the set of schemes that may still be used. Objects on other threads may share it.
  HTTPLogIn(unsigned int allowed, std::atomic<unsigned int>& memory) noexcept
      : m_allowed(allowed), m_memory(memory) {}

  /// The scheme for the next request; 0: none. An exchange begins with the scheme that the peer
  /// accepted last.
  unsigned int Scheme() const noexcept { return m_scheme; }
  /// The peer has accepted this scheme on another connection.
  void BeginWith(unsigned int scheme) noexcept { m_scheme = scheme; }
  void BeginExchange() noexcept {
    m_tried = 0;
    m_scheme &= m_memory;
    m_isRemembered = m_scheme != 0;
  }
  /// Call after a 401 or 407 that offered a set of schemes. True: send the request again with
  /// Scheme().
  bool OnRejected(unsigned int offered) noexcept;
  void OnAccepted() noexcept;
  /// The set of schemes that the peer rejected in this exchange.
  unsigned int Rejected() const noexcept { return m_tried; }
  /// The offered schemes that may be used.
  unsigned int Usable(unsigned int offered) const noexcept {
    return offered & m_allowed & m_memory;
  }
  /// True if the peer offers only schemes that are weaker than one that was used before.
  bool OffersOnlyWeaker(unsigned int offered) const noexcept {
    return (offered & m_allowed) != 0 && Usable(offered) == 0;
  }

  /// The names of a set of schemes, from strong to weak.
  static std::vector<std::string> Names(unsigned int schemes);

 private:
  unsigned int Choose(unsigned int offered) noexcept;

  const unsigned int m_allowed;
  std::atomic<unsigned int>& m_memory;
  unsigned int m_scheme = 0;
  unsigned int m_tried = 0;     // rejected in this exchange
  bool m_isRemembered = false;  // m_scheme was accepted in an earlier exchange
};
