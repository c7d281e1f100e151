#pragma once

#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/Secret.h"
#include "Utility/Generic/String.h"

/// Why a client certificate cannot be used.
class HTTPClientCertificateError : public ErrorMessage {
 public:
  HTTPClientCertificateError(HTTPSetting which, const String& text)
      : ErrorMessage(text), setting(which) {}
  HTTPSetting setting;  ///< the one to change
};

/// The client certificate of HTTPClientOptions, read from its files and checked. The form of a file
/// is recognised by its content. Overwrites its texts when it is destroyed.
class HTTPClientCertificate {
 public:
  /// Throws HTTPClientCertificateError for a file that cannot be read or used, a key that is
  /// missing or belongs to another certificate, and a wrong or missing password.
  explicit HTTPClientCertificate(const HTTPClientOptions& options);
  ~HTTPClientCertificate() = default;
  HTTPClientCertificate(const HTTPClientCertificate&) = delete;
  HTTPClientCertificate& operator=(const HTTPClientCertificate&) = delete;

  /// False: the options name none, and the other members are empty.
  bool IsGiven() const noexcept { return !m_certificate.empty(); }
  bool IsPKCS12() const noexcept { return m_isPKCS12; }
  const NarrowString& Certificate() const noexcept { return m_certificate; }
  /// PEM. Not used for PKCS#12.
  const NarrowString& Key() const noexcept { return m_key.empty() ? m_certificate : m_key; }
  const NarrowString& Password() const noexcept { return m_password; }
  /// Overwrites the password. Call this after libcurl has copied it.
  void ErasePassword() noexcept { m_password.Erase(); }

 private:
  void CheckPEM(const HTTPClientOptions& options) const;
  void CheckPKCS12(const String& file) const;

  bool m_isPKCS12 = false;
  Secret<NarrowString> m_certificate;
  Secret<NarrowString> m_key;
  Secret<NarrowString> m_password;
};
