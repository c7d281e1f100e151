#include "support/Certificate.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <filesystem>

namespace {

std::string NewName() {
  static std::atomic<int> count{0};
  const std::string file =
      "xmla-host-" + std::to_string(getpid()) + "-" + std::to_string(++count) + ".pem";
  return std::filesystem::temp_directory_path() / file;
}

void AddExtension(X509* certificate, int kind, const char* value) {
  X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, nullptr, kind, value);
  X509_add_ext(certificate, extension, -1);
  X509_EXTENSION_free(extension);
}

}  // namespace

Certificate::Certificate(const char* alternativeName, long validSeconds, const Certificate* issuer,
                         long validFrom)
    : m_key(EVP_EC_gen("P-256")),
      m_certificate(X509_new()),
      m_context(SSL_CTX_new(TLS_server_method())),
      m_path(NewName()) {
  X509_set_version(m_certificate, 2);
  ASN1_INTEGER_set(X509_get_serialNumber(m_certificate), issuer ? 2 : 1);
  X509_gmtime_adj(X509_getm_notBefore(m_certificate), validFrom);
  X509_gmtime_adj(X509_getm_notAfter(m_certificate), validSeconds);
  X509_set_pubkey(m_certificate, m_key);
  X509_NAME* const name = X509_get_subject_name(m_certificate);
  // A unique name, so that different authorities are not confused.
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>(alternativeName), -1, -1, 0);
  X509_set_issuer_name(m_certificate, issuer ? X509_get_subject_name(issuer->m_certificate) : name);
  AddExtension(m_certificate, NID_subject_alt_name, alternativeName);
  if (!issuer) AddExtension(m_certificate, NID_basic_constraints, "CA:TRUE");
  X509_sign(m_certificate, issuer ? issuer->m_key : m_key, EVP_sha256());
  SSL_CTX_use_certificate(m_context, m_certificate);
  SSL_CTX_use_PrivateKey(m_context, m_key);
  // With an ID, the context resumes sessions when a client asks for it.
  constexpr unsigned char kName[] = "test";
  SSL_CTX_set_session_id_context(m_context, kName, sizeof kName);
  std::FILE* const file = std::fopen(m_path.c_str(), "w");
  PEM_write_X509(file, m_certificate);
  std::fclose(file);
}

Certificate::~Certificate() {
  std::remove(m_path.c_str());
  SSL_CTX_free(m_context);
  X509_free(m_certificate);
  EVP_PKEY_free(m_key);
}

namespace {

std::string Content(BIO* bio) {
  char* data = nullptr;
  const long size = BIO_get_mem_data(bio, &data);
  std::string text(data, static_cast<std::size_t>(size));
  BIO_free(bio);
  return text;
}

}  // namespace

std::string Certificate::Key(const std::string& password) const {
  BIO* const bio = BIO_new(BIO_s_mem());
  const bool isPlain = password.empty();
  PEM_write_bio_PKCS8PrivateKey(bio, m_key, isPlain ? nullptr : EVP_aes_256_cbc(),
                                isPlain ? nullptr : password.data(),
                                static_cast<int>(password.size()), nullptr, nullptr);
  return Content(bio);
}

std::string Certificate::PKCS12(const std::string& password) const {
  BIO* const bio = BIO_new(BIO_s_mem());
  ::PKCS12* const file =
      PKCS12_create(password.c_str(), "name", m_key, m_certificate, nullptr, 0, 0, 0, 0, 0);
  i2d_PKCS12_bio(bio, file);
  PKCS12_free(file);
  return Content(bio);
}

void Certificate::AskForClient(const Certificate& authority, bool isRequired) {
  X509_STORE_add_cert(SSL_CTX_get_cert_store(m_context), authority.m_certificate);
  SSL_CTX_set_verify(m_context,
                     SSL_VERIFY_PEER | (isRequired ? SSL_VERIFY_FAIL_IF_NO_PEER_CERT : 0), nullptr);
  SSL_CTX_set_cert_verify_callback(
      m_context,
      [](X509_STORE_CTX* store, void* self) {
        ++static_cast<Certificate*>(self)->m_clients;
        return X509_verify_cert(store);
      },
      this);
}

void Certificate::Become(const Certificate& other) {
  SSL_CTX_use_certificate(m_context, other.m_certificate);
  SSL_CTX_use_PrivateKey(m_context, other.m_key);
}
