#pragma once

#include <openssl/types.h>

#include <string>

constexpr long kDay = 86400;  // seconds

/// A server's certificate, signed by itself or by another one's key, and a server context that uses
/// it.
class Certificate {
 public:
  /// The alternative name is in OpenSSL's form ("IP:127.0.0.1"); valid from two hours ago until so
  /// many seconds from now.
  Certificate(const char* alternativeName, long validSeconds, const Certificate* issuer = nullptr);
  ~Certificate();
  Certificate(const Certificate&) = delete;
  Certificate& operator=(const Certificate&) = delete;

  SSL_CTX* Context() const { return m_context; }
  /// The certificate as a PEM file.
  const std::string& Path() const { return m_path; }
  /// New connections of the context get the other certificate.
  void Become(const Certificate& other);

 private:
  EVP_PKEY* m_key;
  X509* m_certificate;
  SSL_CTX* m_context;
  std::string m_path;
};
