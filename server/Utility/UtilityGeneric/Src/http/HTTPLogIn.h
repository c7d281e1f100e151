#pragma once

#include <atomic>

/// Chooses how to log in to one peer, the service or its proxy, over all exchanges of a client.
/// Schemes are those of HTTPAuthScheme.
///
/// Only the strongest scheme that a peer offers gets the password, and no weaker one gets it later:
/// whoever can change the offer could otherwise read a password that was well protected before.
class HTTPLogIn {
 public:
  /// `memory` has the schemes that may still be used. Other log-ins, on other threads, may use it,
  /// too.
  HTTPLogIn(unsigned int allowed, std::atomic<unsigned int>& memory) noexcept
      : m_allowed(allowed), m_memory(memory) {}

  /// The scheme that the next request uses; 0 for none. What the peer accepted last is used from
  /// the beginning.
  unsigned int Scheme() const noexcept { return m_scheme; }
  void BeginExchange() noexcept {
    m_tried = 0;
    m_scheme &= m_memory;
    m_isRemembered = m_scheme != 0;
  }
  /// After a 401 or 407 that offered a set of schemes. True: the request is to be sent again with
  /// Scheme().
  bool OnRejected(unsigned int offered) noexcept;
  void OnAccepted() noexcept;
  /// True when the offer has only schemes that are weaker than one that was used before.
  bool OffersOnlyWeaker(unsigned int offered) const noexcept {
    return (offered & m_allowed) != 0 && (offered & m_allowed & m_memory) == 0;
  }

 private:
  unsigned int Choose(unsigned int offered) noexcept;

  const unsigned int m_allowed;
  std::atomic<unsigned int>& m_memory;
  unsigned int m_scheme = 0;
  unsigned int m_tried = 0;     // in this exchange
  bool m_isRemembered = false;  // the scheme comes from an earlier exchange
};
