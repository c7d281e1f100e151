// Tests client certificates: which files are accepted, the error texts for the others, and who gets
// them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/ssl.h>
#include <sys/stat.h>

#include <fstream>

#include "HTTPPosting.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/Secret.h"
#include "loopback-server/Connection.h"
#include "support/Certificate.h"
#include "support/MemorySearch.h"
#include "support/Sanitized.h"
#include "support/TempDir.h"
#include "support/WireServer.h"

namespace {

using testing::AllOf;
using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;

constexpr char kKeyPassword[] = "canary key";

/// A server that requires a client certificate, and a client of its authority.
class HTTPClientCertificate : public testing::Test {
 protected:
  HTTPClientCertificate() {
    m_service.AskForClient(m_authority, true);
    m_options.caFile = Wide(m_service.Path());
  }
  String File(const std::string& name, const std::string& content) const {
    const std::string path = m_folder.Path() / name;
    std::ofstream(path, std::ios::binary) << content;
    return Wide(path);
  }
  static std::string PEM(const Certificate& certificate) {
    return support::ReadFile(certificate.Path());
  }
  void Give(const std::string& certificate, const std::string& key = "",
            const wchar_t* password = L"") {
    m_options.certificateFile = File("certificate", certificate);
    m_options.keyFile = key.empty() ? String() : File("key", key);
    m_options.keyPassword = password;
  }
  /// The error text of a request, or of the client's constructor; empty on success.
  std::string Error() const {
    try {
      return PostOnce("https://" + m_server.Authority() + "/", 10, &m_options).error;
    } catch (const ErrorMessage& error) {
      String text;
      error.RetrieveErrorMessages(text);
      return "thrown: " + Narrow(text);
    }
  }

  const support::TempDir m_folder;
  const Certificate m_authority{"DNS:authority", kDay};
  const Certificate m_client{"DNS:client", kDay, &m_authority};
  Certificate m_service{"IP:127.0.0.1", kDay};
  HTTPClientOptions m_options;
  WireServer m_server{[](loopback::Connection& connection, const loopback::Request&) {
                        connection.Send(Answer("<r/>"));
                      },
                      m_service.Context()};
};

TEST_F(HTTPClientCertificate, IsAcceptedInEveryForm) {
  const std::string pem = PEM(m_client);
  const std::string plain = m_client.Key();
  const std::string encrypted = m_client.Key(kKeyPassword);
  const struct {
    const char* name;
    std::string certificate;
    std::string key;
    const wchar_t* password;
  } kCases[] = {
      {"two files", pem, plain, L""},
      {"one file", pem + plain, "", L""},
      {"key first", plain + pem, "", L""},
      {"encrypted key", pem, encrypted, L"canary key"},
      {"one file, encrypted key", pem + encrypted, "", L"canary key"},
      {"unneeded password", pem, plain, L"canary key"},
      {"PKCS#12", m_client.PKCS12(kKeyPassword), "", L"canary key"},
      {"PKCS#12 without password", m_client.PKCS12(""), "", L""},
  };
  for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
    SSL_CTX_set_max_proto_version(m_service.Context(), version);
    for (const auto& test : kCases) {
      Give(test.certificate, test.key, test.password);
      EXPECT_EQ(Error(), "") << test.name;
    }
  }
  EXPECT_EQ(m_service.Clients(), 2 * static_cast<int>(std::size(kCases)));
}

TEST_F(HTTPClientCertificate, UnusableFilesHaveTheirOwnErrors) {
  const std::string pem = PEM(m_client);
  const std::string encrypted = m_client.Key(kKeyPassword);
  const Certificate other("DNS:other", kDay);
  const std::string longText(2 << 20, 'x');
  const std::string pkcs12 = m_client.PKCS12(kKeyPassword);
  const struct {
    const char* name;
    std::string certificate;
    std::string key;
    const wchar_t* password;
    const char* error;
  } kCases[] = {
      {"text", "hello", "", L"", "/certificate\" is not a client certificate: give one in PEM or"},
      {"empty", "", "", L"", "/certificate\" is empty; it was given as the client certificate"},
      {"too long", longText, "", L"", "/certificate\": it is longer than 1048576 bytes"},
      {"no key", pem, "", L"", "contains a certificate, but no private key: give the file of"},
      {"key is none", pem, "hello", L"", "/key\" is not a private key: give one in PEM form"},
      {"key of another", pem, other.Key(), L"", "/key\" does not belong to the client certificate"},
      {"no password", pem, encrypted, L"", "/key\" is encrypted: give the password of the private"},
      {"wrong password", pem, encrypted, L"canary", "/key\" cannot be decrypted: its password is"},
      {"PKCS#12, no password", pkcs12, "", L"", "/certificate\" is encrypted: give the password"},
      {"PKCS#12, wrong password", pkcs12, "", L"canary", "/certificate\" cannot be decrypted: its"},
      {"PKCS#12, cut", pkcs12.substr(0, 100), "", L"canary key", "is damaged: create it again"},
      {"PKCS#12 and key", pkcs12, encrypted, L"canary key", "contains its own private key: do not"},
      {"line break", pem, encrypted, L"canary\n", "contains a control character, such as a line"},
  };
  for (const auto& test : kCases) {
    Give(test.certificate, test.key, test.password);
    const std::string error = Error();
    EXPECT_THAT(error, AllOf(HasSubstr("thrown: "), HasSubstr(test.error))) << test.name;
    EXPECT_THAT(error, Not(HasSubstr("canary"))) << test.name;
    EXPECT_THAT(error, Not(HasSubstr("BEGIN"))) << test.name;
  }
  EXPECT_EQ(m_server.Connections(), 0u);
}

TEST_F(HTTPClientCertificate, FilesThatCannotBeReadHaveTheirOwnErrors) {
  const std::string pipe = m_folder.Path() / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const struct {
    String file;
    const char* error;
  } kCases[] = {
      {L"/proc/no-such-file", "Cannot read the file \"/proc/no-such-file\": No such file"},
      {Wide(pipe), "it is not a regular file; it was given as the "},
      {L"/dev/zero", "it is not a regular file"},
      {L"/tmp", "it is not a regular file"},
      {L"/proc/no\nfile", "\"/proc/no file\": No such file"},
  };
  const String good = File("good", PEM(m_client) + m_client.Key());
  for (const auto& test : kCases) {
    m_options.certificateFile = test.file;
    m_options.keyFile = L"";
    EXPECT_THAT(Error(), AllOf(HasSubstr(test.error), HasSubstr("as the client certificate")));
    m_options.certificateFile = good;
    m_options.keyFile = test.file;
    EXPECT_THAT(Error(), AllOf(HasSubstr(test.error), HasSubstr("as the private key")));
  }
  m_options.certificateFile = L"";
  m_options.keyFile = good;
  EXPECT_THAT(Error(), HasSubstr("was given without a client certificate"));
  m_options.keyFile = L"";
  m_options.keyPassword = L"canary";
  EXPECT_THAT(Error(), AllOf(HasSubstr("without a client certificate"), Not(HasSubstr("canary"))));
}

/// With TLS 1.3, the server checks the certificate after the handshake.
TEST_F(HTTPClientCertificate, RefusalsOfTheServerHaveTheirOwnErrors) {
  const Certificate stranger("DNS:stranger", kDay);
  const Certificate expired("DNS:expired", -3600, &m_authority);
  const struct {
    const Certificate* client;
    const char* error;
  } kCases[] = {
      {nullptr, ": the server requires a client certificate; give one, "},
      {&stranger, "the server rejected the client certificate; use one from an authority that"},
      {&expired, "the server rejected the client certificate; "},
  };
  for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
    SSL_CTX_set_max_proto_version(m_service.Context(), version);
    for (const auto& test : kCases) {
      SCOPED_TRACE(test.error);
      m_options.certificateFile = L"";
      if (test.client) Give(PEM(*test.client) + test.client->Key());
      // With TLS 1.3, the alert is lost if the connection ends before the request was sent.
      EXPECT_THAT(Error(), AnyOf(HasSubstr(test.error),
                                 HasSubstr("most likely, the server rejected it; use one from")))
          << version;
    }
  }
  EXPECT_TRUE(m_server.Requests().empty());
}

/// The server's reset overtakes its alert. A server without a demand for a certificate loses the
/// connection in the same way.
TEST_F(HTTPClientCertificate, LostConnectionsAreARejectionThatIsNeverRepeated) {
  Certificate other("IP:127.0.0.1", kDay);
  const WireServer::Handler lose = [](loopback::Connection& connection, const loopback::Request&) {
    connection.Reset();
  };
  const WireServer asking(lose, m_service.Context());
  const WireServer notAsking(lose, other.Context());
  m_options.caFile = File("authorities", PEM(m_service) + PEM(other));
  m_options.maxRetries = 1;
  Give(PEM(m_client) + m_client.Key());
  for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
    SSL_CTX_set_max_proto_version(m_service.Context(), version);
    EXPECT_THAT(PostOnce("https://" + asking.Authority() + "/", 10, &m_options).error,
                AllOf(HasSubstr("/: the connection ended after the client certificate was sent: "
                                "most likely, the server rejected it; use one from"),
                      Not(HasSubstr("tried"))));
  }
  EXPECT_EQ(asking.Requests().size(), 2u);
  EXPECT_THAT(PostOnce("https://" + notAsking.Authority() + "/", 10, &m_options).error,
              AllOf(HasSubstr("; try again"), HasSubstr("; tried 2 times")));
  EXPECT_EQ(notAsking.Requests().size(), 2u);
}

TEST_F(HTTPClientCertificate, IsNotSentToAProxy) {
  Certificate proxyCertificate("IP:127.0.0.1", kDay);
  proxyCertificate.AskForClient(m_authority, false);
  const WireServer proxy(
      [](loopback::Connection& connection, const loopback::Request& request) {
        const std::string target = request.head.substr(0, request.head.find("\r\n"));
        if (!target.starts_with("CONNECT ")) return connection.Send(Answer("<r/>")), void();
        loopback::Tunnel(connection, target.substr(8, target.find(' ', 8) - 8));
      },
      proxyCertificate.Context());
  m_options.caFile = File("authorities", PEM(m_service) + PEM(proxyCertificate));
  m_options.proxy = Wide("https://" + proxy.Authority());
  Give(PEM(m_client) + m_client.Key());
  EXPECT_EQ(Error(), "");
  EXPECT_EQ(m_service.Clients(), 1);
  EXPECT_EQ(PostOnce("http://service.test/", 10, &m_options).error, "");
  EXPECT_EQ(proxy.Connections(), 2u);
  EXPECT_EQ(proxyCertificate.Clients(), 0);
}

TEST_F(HTTPClientCertificate, IsNotSentToTheTargetOfARedirect) {
  Certificate other("IP:127.0.0.1", kDay);
  other.AskForClient(m_authority, false);
  const WireServer target([](loopback::Connection& connection,
                             const loopback::Request&) { connection.Send(Answer("<r/>")); },
                          other.Context());
  Certificate moved("IP:127.0.0.1", kDay);
  moved.AskForClient(m_authority, true);
  const std::string location = "Location: https://" + target.Authority() + "/\r\n";
  const WireServer server(
      [&](loopback::Connection& connection, const loopback::Request&) {
        connection.Send(Answer("", "307 Moved", location));
      },
      moved.Context());
  m_options.caFile = File("authorities", PEM(moved) + PEM(other));
  m_options.bearerToken = L"canary";
  Give(PEM(m_client) + m_client.Key());
  EXPECT_THAT(PostOnce("https://" + server.Authority() + "/", 10, &m_options).error,
              HasSubstr("HTTP 307 Temporary Redirect, points to "));
  EXPECT_EQ(moved.Clients(), 1);
  EXPECT_EQ(target.Connections(), 0u);
}

TEST_F(HTTPClientCertificate, OnlyLibcurlKeepsThePassword) {
  if (support::kIsSanitized) GTEST_SKIP() << "a sanitizer's memory is too large to search";
  const support::HiddenPassword hidden(6);
  const String password = hidden.Between(L"", L"");
  {
    const Secret<NarrowString> bytes(BaseStringUtil::ToUTF8(password));
    Give(PEM(m_client), m_client.Key(std::string(bytes.view())));
  }
  m_options.keyPassword = password;
  const int before = hidden.Copies(1);
  {
    const HTTPClientWrapper client(Wide("https://" + m_server.Authority() + "/"), L"", L"", 10,
                                   &m_options);
    EXPECT_EQ(hidden.Copies(1), before + 1) << "libcurl's own";
    EXPECT_EQ(hidden.WideCopies(), 1) << "the host's own is one";
  }
}

}  // namespace
