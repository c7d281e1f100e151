#pragma once

#include "Utility/Generic/Secret.h"
#include "Utility/Generic/String.h"

/// User and password in the form that a scheme needs. libcurl expects UTF-8, except for NTLM: there
/// it turns each byte into a character. So it gets ISO 8859-1, with the user name in capitals,
/// because libcurl capitalises only ASCII letters and NTLM requires it. Keeps copies only if there
/// are characters other than ASCII, and overwrites them.
class HTTPCredentials {
 public:
  /// Both in UTF-8. An empty user: none.
  HTTPCredentials(const NarrowString& user, const NarrowString& password);

  bool HasUser() const noexcept { return m_hasUser; }
  bool IsASCII() const noexcept { return m_user.empty() && m_password.empty(); }
  /// Set of HTTPAuthScheme that cannot send them.
  unsigned int Unusable() const noexcept { return m_unusable; }
  /// For characters other than ASCII: the forms for one HTTPAuthScheme.
  const NarrowString& User(unsigned int scheme) const noexcept;
  const NarrowString& Password(unsigned int scheme) const noexcept;

 private:
  bool m_hasUser;
  unsigned int m_unusable = 0;
  Secret<NarrowString> m_user;
  Secret<NarrowString> m_password;
  Secret<NarrowString> m_ntlmUser;
  Secret<NarrowString> m_ntlmPassword;
};
