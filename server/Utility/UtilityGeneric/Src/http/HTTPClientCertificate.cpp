#include "http/HTTPClientCertificate.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/x509.h>

#include <cstring>
#include <memory>
#include <new>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/ErrorMessage.h"
#include "errors/MessageCatalogue.h"
#include "http/HTTPUrl.h"
#include "system/ReadFile.h"

namespace {

template <auto function>
struct Free {
  template <class Type>
  void operator()(Type* object) const noexcept {
    function(object);
  }
};
using Bio = std::unique_ptr<BIO, Free<BIO_free>>;
using Key = std::unique_ptr<EVP_PKEY, Free<EVP_PKEY_free>>;
using X509Certificate = std::unique_ptr<X509, Free<X509_free>>;
using PKCS12File = std::unique_ptr<PKCS12, Free<PKCS12_free>>;

/// OpenSSL keeps a list of errors for each thread. The host's own errors stay in it.
class ErrorList {
 public:
  ErrorList() { ERR_set_mark(); }
  ~ErrorList() { ERR_pop_to_mark(); }
  ErrorList(const ErrorList&) = delete;
  ErrorList& operator=(const ErrorList&) = delete;
};

[[noreturn]] void Reject(HTTPSetting setting, const String& text) {
  HTTPClientCertificateError error(setting, MessageCatalogue::OneLine(text));
  error.SetSource(L"HTTPClientCertificate.cpp", __LINE__);
  throw error;
}

String Quoted(const String& file) { return L"\"" + file + L"\""; }

void Read(const String& file, NarrowString& bytes, HTTPSetting setting, const wchar_t* name) {
  String error;
  if (ReadSecretFile(file, bytes, error)) {
    if (!bytes.empty()) return;
    error = L"The file " + Quoted(file) + L" is empty";
  }
  Reject(setting, error + L"; it was given as the " + name);
}

Bio Reader(const NarrowString& bytes) {
  Bio bio(BIO_new_mem_buf(bytes.c_str(), static_cast<int>(bytes.size())));
  if (!bio) throw std::bad_alloc();
  return bio;
}

/// Gives the password to OpenSSL, which otherwise asks for it on the terminal.
struct PasswordCall {
  const NarrowString& password;
  bool wasNeeded = false;

  static int Answer(char* place, int room, int, void* self) {
    auto& call = *static_cast<PasswordCall*>(self);
    call.wasNeeded = true;
    const int size = static_cast<int>(call.password.size());
    if (size > room) return -1;
    std::memcpy(place, call.password.c_str(), static_cast<std::size_t>(size));
    return size;
  }
};

/// True for the beginning of a PKCS#12 file in DER: a sequence whose first element is the number 3.
bool IsPKCS12File(std::string_view bytes) {
  if (bytes.size() < 8 || bytes[0] != '\x30') return false;
  const auto length = static_cast<unsigned char>(bytes[1]);
  const std::size_t begin = length > 0x80 ? 2 + (length & 0x7F) : 2;
  return bytes.substr(std::min(begin, bytes.size())).starts_with("\x02\x01\x03");
}

X509Certificate ReadCertificate(const NarrowString& bytes) {
  PasswordCall none{NarrowString()};
  const Bio bio = Reader(bytes);
  return X509Certificate(PEM_read_bio_X509_AUX(bio.get(), nullptr, &PasswordCall::Answer, &none));
}

constexpr const wchar_t* kWrongPassword =
    L" cannot be decrypted: its password is wrong; check the password of the private key";
constexpr const wchar_t* kMissingPassword = L" is encrypted: give the password of the private key";
constexpr const wchar_t* kNotFitting =
    L" does not belong to the client certificate: give the key for which the certificate was "
    L"issued";

}  // namespace

HTTPClientCertificate::HTTPClientCertificate(const HTTPClientOptions& options)
    : m_password(BaseStringUtil::ToUTF8(options.keyPassword)) {
  if (options.certificateFile.empty()) {
    if (options.keyFile.empty() && options.keyPassword.empty()) return;
    Reject(HTTPSetting::kCertificate,
           L"A private key or its password was given without a client certificate: give the file "
           L"of the certificate, too");
  }
  if (HTTPUrl::HasControlCharacter(options.keyPassword.view()))
    Reject(HTTPSetting::kKeyPassword,
           L"The password of the private key contains a control character, such as a line break, "
           L"and cannot be used: check how it was entered");
  const ErrorList errors;
  Read(options.certificateFile, m_certificate, HTTPSetting::kCertificate, L"client certificate");
  if (!options.keyFile.empty()) Read(options.keyFile, m_key, HTTPSetting::kKey, L"private key");
  m_isPKCS12 = IsPKCS12File(m_certificate.view());
  if (m_isPKCS12 && !m_key.empty())
    Reject(HTTPSetting::kKey, L"The PKCS#12 file " + Quoted(options.certificateFile) +
                                  L" contains its own private key: do not give another one");
  if (m_isPKCS12)
    CheckPKCS12(options.certificateFile);
  else
    CheckPEM(options);
}

void HTTPClientCertificate::CheckPEM(const HTTPClientOptions& options) const {
  const X509Certificate certificate = ReadCertificate(m_certificate);
  if (!certificate)
    Reject(HTTPSetting::kCertificate,
           L"The file " + Quoted(options.certificateFile) +
               L" is not a client certificate: give one in PEM or PKCS#12 form");
  const String keyFile = m_key.empty() ? options.certificateFile : options.keyFile;
  const String name = L"The private key in the file " + Quoted(keyFile);
  PasswordCall call{m_password};
  const Bio bio = Reader(Key());
  const ::Key key(PEM_read_bio_PrivateKey(bio.get(), nullptr, &PasswordCall::Answer, &call));
  if (!key && call.wasNeeded)
    Reject(HTTPSetting::kKeyPassword,
           name + (m_password.empty() ? kMissingPassword : kWrongPassword));
  if (!key && m_key.empty())
    Reject(HTTPSetting::kKey,
           L"The file " + Quoted(keyFile) +
               L" contains a certificate, but no private key: give the file of the key, too");
  if (!key)
    Reject(HTTPSetting::kKey,
           L"The file " + Quoted(keyFile) + L" is not a private key: give one in PEM form");
  if (X509_check_private_key(certificate.get(), key.get()) != 1)
    Reject(m_key.empty() ? HTTPSetting::kCertificate : HTTPSetting::kKey, name + kNotFitting);
}

void HTTPClientCertificate::CheckPKCS12(const String& file) const {
  const String name = L"The PKCS#12 file " + Quoted(file);
  const Bio bio = Reader(m_certificate);
  const PKCS12File content(d2i_PKCS12_bio(bio.get(), nullptr));
  if (!content) Reject(HTTPSetting::kCertificate, name + L" is damaged: create it again");
  EVP_PKEY* readKey = nullptr;
  X509* readCertificate = nullptr;
  const bool isRead =
      PKCS12_parse(content.get(), m_password.c_str(), &readKey, &readCertificate, nullptr) == 1;
  const ::Key key(readKey);
  const X509Certificate certificate(readCertificate);
  if (!isRead) {
    if (ERR_GET_REASON(ERR_peek_last_error()) == PKCS12_R_MAC_VERIFY_FAILURE)
      Reject(HTTPSetting::kKeyPassword,
             name + (m_password.empty() ? kMissingPassword : kWrongPassword));
    Reject(
        HTTPSetting::kCertificate,
        name +
            L" cannot be read; it may use an old encryption: create it again with a current tool");
  }
  if (!key || !certificate)
    Reject(HTTPSetting::kCertificate,
           name + L" has no certificate with a private key: export it with its key");
}

String HTTPClientWrapper::CertificateProblem(const HTTPClientOptions& options,
                                             HTTPSetting& setting) {
  try {
    const HTTPClientCertificate certificate(options);
    return {};
  } catch (const HTTPClientCertificateError& error) {
    setting = error.setting;
    String text;
    error.RetrieveErrorMessages(text);
    return text;
  }
}
