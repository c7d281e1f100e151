#pragma once

#include <openssl/types.h>

#include <atomic>
#include <string>

constexpr long kDay = 86400;  // seconds

/// A server certificate, self-signed or signed by another certificate's key, and a TLS server
/// context that uses it.
class Certificate {
 public:
  /// `alternativeName` is in OpenSSL's form ("IP:127.0.0.1"). Valid for `validSeconds` from now,
  /// from two hours ago or else `validFrom` seconds from now.
  Certificate(const char* alternativeName, long validSeconds, const Certificate* issuer = nullptr,
              long validFrom = -7200);
  ~Certificate();
  Certificate(const Certificate&) = delete;
  Certificate& operator=(const Certificate&) = delete;

  SSL_CTX* Context() const { return m_context; }
  /// The certificate in PEM form, as a file.
  const std::string& Path() const { return m_path; }
  /// The private key in PEM form, as text; encrypted if there is a password.
  std::string Key(const std::string& password = "") const;
  /// Certificate and private key in PKCS#12 form.
  std::string PKCS12(const std::string& password) const;
  /// Servers of the context ask for a client certificate of the authority. If it is required, they
  /// accept no connection without it.
  void AskForClient(const Certificate& authority, bool isRequired);
  /// How many clients have sent a certificate.
  int Clients() const { return m_clients; }

  /// New connections of the context use the other certificate.
  void Become(const Certificate& other);

 private:
  EVP_PKEY* m_key;
  X509* m_certificate;
  SSL_CTX* m_context;
  std::string m_path;
  std::atomic<int> m_clients{0};
};
