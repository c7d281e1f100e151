// https: which certificates are taken, and what is said of the others.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <cstdio>
#include <memory>

#include "ScriptedServer.h"
#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/HTTPClientWrapper.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

/// A self-signed certificate and a server context that uses it.
class Certificate {
 public:
  Certificate(const char* alternativeName, long validSeconds)
      : m_key(EVP_EC_gen("P-256")),
        m_certificate(X509_new()),
        m_context(SSL_CTX_new(TLS_server_method())) {
    X509_set_version(m_certificate, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(m_certificate), 1);
    X509_gmtime_adj(X509_getm_notBefore(m_certificate), -7200);
    X509_gmtime_adj(X509_getm_notAfter(m_certificate), validSeconds);
    X509_set_pubkey(m_certificate, m_key);
    X509_NAME* const name = X509_get_subject_name(m_certificate);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>("test"), -1, -1, 0);
    X509_set_issuer_name(m_certificate, name);
    X509_EXTENSION* const names =
        X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, alternativeName);
    X509_add_ext(m_certificate, names, -1);
    X509_EXTENSION_free(names);
    X509_sign(m_certificate, m_key, EVP_sha256());
    SSL_CTX_use_certificate(m_context, m_certificate);
    SSL_CTX_use_PrivateKey(m_context, m_key);
    m_path = testing::TempDir() + "/xmla-host-" + std::to_string(getpid()) + ".pem";
    std::FILE* const file = std::fopen(m_path.c_str(), "w");
    PEM_write_X509(file, m_certificate);
    std::fclose(file);
  }
  ~Certificate() {
    std::remove(m_path.c_str());
    SSL_CTX_free(m_context);
    X509_free(m_certificate);
    EVP_PKEY_free(m_key);
  }
  Certificate(const Certificate&) = delete;
  Certificate& operator=(const Certificate&) = delete;

  SSL_CTX* Context() const { return m_context; }
  String Path() const { return String(std::wstring(m_path.begin(), m_path.end())); }

 private:
  EVP_PKEY* m_key;
  X509* m_certificate;
  SSL_CTX* m_context;
  std::string m_path;
};

constexpr long kDay = 86400;

void Reply(ServedConnection& connection, const ReceivedRequest&) {
  connection.Send(Answer("<r/>"));
}

/// The error text of a request to a server with the certificate, or an empty text.
std::string ErrorOf(const Certificate& certificate, bool trusted, int requests = 1) {
  ScriptedServer server(&Reply, certificate.Context());
  HTTPClientOptions options;
  if (trusted) options.caFile = certificate.Path();
  const std::string url = "https://u:canary@" + server.Authority() + "/";
  HTTPClientWrapper client(String(std::wstring(url.begin(), url.end())), L"", L"", 10, &options);
  String error;
  for (int i = 0; i < requests; ++i) {
    NarrowString reply;
    const bool ok = client.ReadBytes("<q/>", reply, error);
    EXPECT_EQ(ok, error.empty());
  }
  EXPECT_EQ(server.Connections(), 1u);
  EXPECT_EQ(server.Requests().empty(), !error.empty());
  return std::string(BaseStringUtil::StringToStdString(error, 65001).view());
}

TEST(TLS, TrustedCertificateIsTakenAndTheConnectionKept) {
  EXPECT_EQ(ErrorOf(Certificate("IP:127.0.0.1", kDay), true, 3), "");
}

TEST(TLS, OtherCertificatesAreRefusedWithTheReason) {
  EXPECT_THAT(ErrorOf(Certificate("IP:127.0.0.1", kDay), false),
              AllOf(StartsWith("The server's certificate is not trusted: "),
                    HasSubstr("self-signed certificate: https://127.0.0.1:"),
                    HasSubstr("SSL_CERT_FILE"), testing::Not(HasSubstr("canary"))));
  EXPECT_THAT(ErrorOf(Certificate("IP:127.0.0.1", -3600), true),
              HasSubstr("certificate has expired"));
  EXPECT_THAT(ErrorOf(Certificate("DNS:elsewhere.test", kDay), true),
              HasSubstr("name matches target host name '127.0.0.1'"));
}

TEST(TLS, ServerWithoutTLSIsToldApart) {
  // Such a server answers before it has understood anything.
  ScriptedServer server(Answer("<r/>", "400 Bad Request"), ScriptedServer::Greets{});
  const std::string url = "https://" + server.Authority() + "/";
  HTTPClientWrapper client(String(std::wstring(url.begin(), url.end())), L"", L"", 10, nullptr);
  NarrowString reply;
  String error;
  EXPECT_FALSE(client.ReadBytes("<q/>", reply, error));
  EXPECT_NE(error.find(L"The server does not speak TLS as it should"), String::npos);
  EXPECT_NE(error.find(L"check that the port is one for https"), String::npos);
}

TEST(TLS, UnreadableFileOfCertificatesIsNamedAsSuch) {
  HTTPClientOptions options;
  options.caFile = L"/proc/no-such-file";
  const Certificate certificate("IP:127.0.0.1", kDay);
  ScriptedServer server(&Reply, certificate.Context());
  const std::string url = "https://" + server.Authority() + "/";
  HTTPClientWrapper client(String(std::wstring(url.begin(), url.end())), L"", L"", 10, &options);
  NarrowString reply;
  String error;
  EXPECT_FALSE(client.ReadBytes("<q/>", reply, error));
  EXPECT_NE(error.find(L"The file of trusted certificates cannot be read"), String::npos);
}

}  // namespace
