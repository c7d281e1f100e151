// Tests HTTPS: accepted certificates, and error texts for the others.
#include <curl/curl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/ssl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <future>
#include <memory>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/HTTPClientWrapper.h"
#include "support/Certificate.h"
#include "support/ChildProcess.h"
#include "support/TempDir.h"
#include "support/Text.h"
#include "support/WireServer.h"

namespace {

using support::Wide;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

void Reply(loopback::Connection& connection, const loopback::Request&) {
  connection.Send(Answer("<r/>"));
}

/// Returns the error text of a request to a server with this certificate; empty on success.
std::string ErrorOf(const Certificate& certificate, bool trusted, int requests = 1) {
  WireServer server(&Reply, certificate.Context());
  HTTPClientOptions options;
  if (trusted) options.caFile = Wide(certificate.Path());
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

TEST(TLS, TrustedCertificateIsAcceptedAndTheConnectionReused) {
  EXPECT_EQ(ErrorOf(Certificate("IP:127.0.0.1", kDay), true, 3), "");
}

TEST(TLS, OtherCertificatesAreRefusedWithAReason) {
  EXPECT_THAT(ErrorOf(Certificate("IP:127.0.0.1", kDay), false),
              AllOf(testing::StartsWith("https://127.0.0.1:"),
                    HasSubstr("the server's certificate is not trusted; "),
                    HasSubstr("self-signed certificate)"),
                    HasSubstr("add its authority to the file of trusted certificates"),
                    testing::Not(HasSubstr("canary"))));
  EXPECT_THAT(ErrorOf(Certificate("IP:127.0.0.1", -3600), true),
              AllOf(HasSubstr(": the server's certificate has expired; replace it, or check the "
                              "clock of this machine ("),
                    HasSubstr("certificate has expired)"), testing::Not(HasSubstr("trusted"))));
  EXPECT_THAT(
      ErrorOf(Certificate("IP:127.0.0.1", 2 * kDay, nullptr, kDay), true),
      AllOf(HasSubstr(": the server's certificate is not yet valid; "), HasSubstr("clock")));
  EXPECT_THAT(
      ErrorOf(Certificate("DNS:elsewhere.test", kDay), true),
      AllOf(HasSubstr(": the server's certificate is for another host name; use the name in the "
                      "certificate, or replace the certificate ("),
            HasSubstr("name matches target host name '127.0.0.1'"),
            testing::Not(HasSubstr("trusted"))));
}

/// A client that caches TLS sessions, which is libcurl's default.
class ResumingClient {
 public:
  ResumingClient(const std::string& url, const std::string& caFile) {
    curl_easy_setopt(m_easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(m_easy, CURLOPT_CAINFO, caFile.c_str());
    curl_easy_setopt(m_easy, CURLOPT_POSTFIELDS, "<q/>");
    curl_easy_setopt(
        m_easy, CURLOPT_WRITEFUNCTION,
        +[](char*, std::size_t, std::size_t count, void*) { return count; });
  }
  ~ResumingClient() { curl_easy_cleanup(m_easy); }
  ResumingClient(const ResumingClient&) = delete;
  ResumingClient& operator=(const ResumingClient&) = delete;
  bool Post() { return curl_easy_perform(m_easy) == CURLE_OK; }

 private:
  CURL* m_easy = curl_easy_init();
};

// A resumed session would skip the check of a certificate that has become invalid.
TEST(TLS, NoConnectionResumesASession) {
  constexpr std::size_t kRequests = 4;
  for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
    SCOPED_TRACE(version);
    const Certificate certificate("IP:127.0.0.1", kDay);
    SSL_CTX_set_max_proto_version(certificate.Context(), version);
    WireServer server(
        [](loopback::Connection& connection, const loopback::Request&) {
          connection.Send(Answer("<r/>", "200 OK", "Connection: close\r\n"));
          connection.Close();
        },
        certificate.Context());
    const std::string url = "https://" + server.Authority() + "/";
    HTTPClientOptions options;
    options.caFile = Wide(certificate.Path());
    HTTPClientWrapper client(Wide(url), L"", L"", 10, &options);
    for (std::size_t i = 0; i < kRequests; ++i) {
      NarrowString reply;
      String error;
      EXPECT_TRUE(client.ReadBytes("<q/>", reply, error));
    }
    EXPECT_EQ(server.Connections(), kRequests);
    EXPECT_EQ(server.ResumedConnections(), 0u);
    // The server resumes sessions if the client asks for it.
    ResumingClient other(url, certificate.Path());
    for (std::size_t i = 0; i < kRequests; ++i) EXPECT_TRUE(other.Post());
    EXPECT_EQ(server.ResumedConnections(), kRequests - 1);
  }
}

TEST(TLS, ConnectionClosedWithoutNoticeIsReplaced) {
  const Certificate certificate("IP:127.0.0.1", kDay);
  WireServer server(
      [](loopback::Connection& connection, const loopback::Request& request) {
        Reply(connection, request);
        connection.Close();
      },
      certificate.Context());
  HTTPClientOptions options;
  options.caFile = Wide(certificate.Path());
  HTTPClientWrapper client(Wide("https://" + server.Authority() + "/"), L"", L"", 10, &options);
  for (int i = 0; i < 20; ++i) {
    NarrowString reply;
    String error;
    EXPECT_TRUE(client.ReadBytes("<q/>", reply, error))
        << i << ": " << BaseStringUtil::StringToStdString(error, 65001).view();
  }
}

volatile std::sig_atomic_t g_pipeSignals = 0;
pthread_t g_client;

TEST(TLS, DisconnectedServerRaisesNoSignal) {
  g_client = pthread_self();  // the server may receive its own
  const auto former = std::signal(SIGPIPE, [](int) {
    if (pthread_equal(pthread_self(), g_client)) g_pipeSignals = g_pipeSignals + 1;
  });
  const Certificate certificate("IP:127.0.0.1", kDay);
  std::promise<void> received;
  std::promise<void> reset;
  WireServer server(
      [&](loopback::Connection& connection, const loopback::Request& request) {
        Reply(connection, request);
        received.get_future().wait();
        connection.Reset();
        reset.set_value();
      },
      certificate.Context());
  HTTPClientOptions options;
  options.caFile = Wide(certificate.Path());
  const std::string url = "https://" + server.Authority() + "/";
  {
    HTTPClientWrapper client(String(std::wstring(url.begin(), url.end())), L"", L"", 10, &options);
    NarrowString reply;
    String error;
    EXPECT_TRUE(client.ReadBytes("<q/>", reply, error));
    received.set_value();
    reset.get_future().wait();
    // The client sends its closing message to a server that is gone.
  }
  EXPECT_EQ(g_pipeSignals, 0);
  std::signal(SIGPIPE, former);
}

TEST(TLS, ClientDeletedInAForkedChildStaysUsableInTheParent) {
  const Certificate certificate("IP:127.0.0.1", kDay);
  WireServer server(&Reply, certificate.Context());
  HTTPClientOptions options;
  options.caFile = Wide(certificate.Path());
  auto client = std::make_unique<HTTPClientWrapper>(Wide("https://" + server.Authority() + "/"),
                                                    L"", L"", 10, &options);
  NarrowString reply;
  String error;
  ASSERT_TRUE(client->ReadBytes("<q/>", reply, error));
  const pid_t child = fork();
  if (child == 0) {
    alarm(10);
    client.reset();
    _exit(0);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(client->ReadBytes("<q/>", reply, error));
}

std::string PostError(const std::string& url) {
  HTTPClientWrapper client(Wide(url), L"", L"", 10, nullptr);
  NarrowString reply;
  String error;
  EXPECT_FALSE(client.ReadBytes("<q/>", reply, error));
  return std::string(BaseStringUtil::StringToStdString(error, 65001).view());
}

TEST(TLS, WrongSchemeNamesTheOther) {
  // Such a server answers before it has parsed anything.
  const WireServer plain(Answer("<r/>", "400 Bad Request"), WireServer::Greets{});
  const std::string url = "https://" + plain.Authority() + "/";
  EXPECT_THAT(PostError(url),
              AllOf(testing::StartsWith(url + ": the server does not use TLS on this port; use "
                                              "http://, or the port for https ("),
                    testing::EndsWith("wrong version number)")));

  const Certificate certificate("IP:127.0.0.1", kDay);
  const WireServer tls(&Reply, certificate.Context());
  EXPECT_THAT(PostError("http://" + tls.Authority() + "/"),
              HasSubstr("; if the port is one for https, use https://"));
  // Some servers explain it in a reply.
  const WireServer explaining(Answer("The plain HTTP request was sent to HTTPS port", "400 Bad"));
  EXPECT_THAT(PostError("http://" + explaining.Authority() + "/"),
              HasSubstr("; if the port is one for https, use https://"));
}

TEST(TLS, UnreadableCertificateFileHasItsOwnError) {
  HTTPClientOptions options;
  options.caFile = L"/proc/no-such-file";
  const Certificate certificate("IP:127.0.0.1", kDay);
  WireServer server(&Reply, certificate.Context());
  const std::string url = "https://" + server.Authority() + "/";
  HTTPClientWrapper client(String(std::wstring(url.begin(), url.end())), L"", L"", 10, &options);
  NarrowString reply;
  String error;
  EXPECT_FALSE(client.ReadBytes("<q/>", reply, error));
  EXPECT_THAT(support::Narrow(error),
              AllOf(HasSubstr("the file of trusted certificates cannot be read"),
                    HasSubstr("the package ca-certificates")));
}

// System configuration may allow old TLS versions.

/// A file for OPENSSL_CONF that allows everything OpenSSL supports.
const std::string& LaxConfiguration() {
  static const support::TempDir folder;
  static const std::string path = [] {
    std::string name = folder.Path() / "openssl.cnf";
    std::ofstream(name) << "openssl_conf = all\n[all]\nssl_conf = ssl\n[ssl]\n"
                           "system_default = lax\n[lax]\nMinProtocol = TLSv1\n"
                           "CipherString = ALL:@SECLEVEL=0\n";
    return name;
  }();
  return path;
}

/// The error text of a request to a server, or through a proxy, that supports no newer version.
std::string ErrorWithOldest(int version, bool isProxy) {
  const Certificate certificate("IP:127.0.0.1", kDay);
  SSL_CTX_set_security_level(certificate.Context(), 0);
  SSL_CTX_set_cipher_list(certificate.Context(), "ALL:@SECLEVEL=0");
  SSL_CTX_set_min_proto_version(certificate.Context(), TLS1_VERSION);
  SSL_CTX_set_max_proto_version(certificate.Context(), version);
  WireServer server(&Reply, certificate.Context());
  const std::string url = "https://" + server.Authority();
  HTTPClientOptions options;
  options.caFile = Wide(certificate.Path());
  if (isProxy) options.proxy = Wide(url);
  HTTPClientWrapper client(Wide(isProxy ? "http://service.test/" : url), L"", L"", 10, &options);
  NarrowString reply;
  String error;
  client.ReadBytes("<q/>", reply, error);
  // Without the client's minimum version, this connection succeeds.
  ResumingClient other(url, certificate.Path());
  EXPECT_TRUE(other.Post()) << "the server speaks no TLS at all";
  return std::string(BaseStringUtil::StringToStdString(error, 65001).view());
}

TEST(TLS, RequiresVersion12WithAnySystemConfiguration) {
  const support::ChildResult result = support::RunTestInChild(
      "TLS.DISABLED_RequiresVersion12", {{"OPENSSL_CONF", LaxConfiguration()}});
  EXPECT_EQ(result.exitStatus, 0) << result.out << result.err;
}

TEST(TLS, DISABLED_RequiresVersion12) {
  for (const bool isProxy : {false, true}) {
    for (const int version : {TLS1_VERSION, TLS1_1_VERSION}) {
      EXPECT_THAT(ErrorWithOldest(version, isProxy),
                  AllOf(HasSubstr(isProxy ? "the TLS handshake with the proxy https://127.0.0.1:"
                                          : "the TLS handshake with the server failed; "),
                        HasSubstr("TLS 1.2 or later")));
    }
    for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION})
      EXPECT_EQ(ErrorWithOldest(version, isProxy), "");
  }
}

}  // namespace
