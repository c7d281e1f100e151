#pragma once

#include <openssl/types.h>

#include <string>

constexpr long kDay = 86400;  // seconds

/// A server certificate, self-signed or signed by another certificate's key, and a TLS server
/// context that uses it.
class Certificate {
 public:
  /// `alternativeName` is in OpenSSL's form ("IP:127.0.0.1"). Valid from two hours ago for
  /// `validSeconds` from now.
  Certificate(const char* alternativeName, long validSeconds, const Certificate* issuer = nullptr);
  ~Certificate();
  Certificate(const Certificate&) = delete;
  Certificate& operator=(const Certificate&) = delete;

  SSL_CTX* Context() const { return m_context; }
  /// The certificate in PEM form, as a file.
  const std::string& Path() const { return m_path; }
  /// New connections of the context use the other certificate.
  void Become(const Certificate& other);

 private:
  EVP_PKEY* m_key;
  X509* m_certificate;
  SSL_CTX* m_context;
  std::string m_path;
};
