// Tests what an observer learns about a connection, and at which step an exchange failed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include <fstream>

#include "HTTPPosting.h"
#include "loopback-server/Connection.h"
#include "support/Certificate.h"
#include "support/ReservedPort.h"
#include "support/Settings.h"
#include "support/TempDir.h"
#include "support/WireServer.h"

namespace {

using testing::AllOf;
using testing::AnyOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class StepRecorder : public HTTPExchangeObserver {
 public:
  StepRecorder() { m_settings.exchangeObserver = this; }
  void OnBegin(const HTTPExchangeStart&) override { steps.clear(); }
  void OnStep(HTTPStep step, const HTTPConnectionDetails& connection) override {
    steps.push_back(step);
    details = connection;
  }
  void OnExchange(const HTTPExchangeInfo& info) override { last = info; }
  HTTPExchangeInfo last;
  std::vector<HTTPStep> steps;    // of the last exchange
  HTTPConnectionDetails details;  // when the last of them began

 private:
  support::Settings m_settings;
};

HTTPClientOptions WithDetails() {
  HTTPClientOptions options;
  options.wantsConnectionDetails = true;
  return options;
}

void Reply(loopback::Connection& connection, const loopback::Request&) {
  connection.Send(Answer("<r/>"));
}

TEST(HTTPDetails, DescribeAPlainConnectionAndItsResponse) {
  const WireServer server(Answer(Gzip("<r/>"), "200 OK",
                                 "Server: Test/1.0 \x1B[31m\r\nContent-Type: text/xml\r\n"
                                 "Content-Encoding: gzip\r\n"));
  StepRecorder recorder;
  const HTTPClientOptions options = WithDetails();
  HTTPClientWrapper client(Wide("http://localhost:" + server.Port() + "/"), L"", L"", 10, &options);
  ASSERT_TRUE(Post(client).ok);
  const HTTPConnectionDetails first = recorder.last.connection;
  EXPECT_FALSE(first.isReused);
  EXPECT_EQ(Narrow(first.address), server.Authority());
  EXPECT_EQ(Narrow(first.proxy), "");
  EXPECT_GT(first.resolveSeconds, 0);
  EXPECT_GT(first.connectSeconds, 0);
  EXPECT_LE(first.resolveSeconds + first.connectSeconds, recorder.last.connectSeconds + 0.001);
  EXPECT_EQ(first.tlsSeconds, 0);
  EXPECT_EQ(Narrow(first.tlsProtocol + first.certificateSubject + first.certificateIssuer), "");
  EXPECT_FALSE(first.certificateDays);
  EXPECT_EQ(Narrow(first.offeredSchemes + first.usedScheme), "");
  EXPECT_THAT(Narrow(first.server), StartsWith("Test/1.0"));
  EXPECT_EQ(Narrow(first.contentType), "text/xml");
  EXPECT_EQ(Narrow(first.contentEncoding), "gzip");
  EXPECT_EQ(recorder.last.failedStep, HTTPStep::kNone);

  ASSERT_TRUE(Post(client).ok);
  const HTTPConnectionDetails second = recorder.last.connection;
  EXPECT_TRUE(second.isReused);
  EXPECT_EQ(Narrow(second.address), server.Authority());
  EXPECT_EQ(second.resolveSeconds + second.connectSeconds, 0);
  EXPECT_EQ(Narrow(second.contentEncoding), "gzip");
}

TEST(HTTPDetails, AreEmptyUnlessWanted) {
  const WireServer server(Answer("<r/>", "200 OK", "Server: Test\r\n"));
  StepRecorder recorder;
  ASSERT_TRUE(PostOnce("http://" + server.Authority() + "/").ok);
  EXPECT_EQ(Narrow(recorder.last.connection.address + recorder.last.connection.server), "");
}

TEST(HTTPSteps, AreReportedAsTheyBegin) {
  using enum HTTPStep;
  Certificate certificate("IP:127.0.0.1", kDay);
  Certificate asking("IP:127.0.0.1", kDay);
  asking.AskForClient(certificate, false);
  const WireServer plain(&Reply);
  const WireServer tls(&Reply, certificate.Context());
  const WireServer askingServer(&Reply, asking.Context());
  const WireServer proxy(&AnswerOrTunnel);
  const WireServer locked([](loopback::Connection& connection, const loopback::Request& request) {
    const bool isLoggedIn = request.Header("authorization").starts_with("Basic ");
    connection.Send(isLoggedIn ? Answer("<r/>")
                               : Answer("", "401 No", "WWW-Authenticate: Basic realm=\"r\"\r\n"));
  });
  const struct {
    const char* name;
    std::string url;
    std::string caFile;
    std::string proxy;
    std::vector<HTTPStep> first;
  } kCases[] = {
      {"http", "http://" + plain.Authority(), "", "", {kNameResolution, kConnection, kResponse}},
      {"https",
       "https://" + tls.Authority(),
       certificate.Path(),
       "",
       {kNameResolution, kConnection, kTLS, kResponse}},
      {"client certificate",
       "https://" + askingServer.Authority(),
       asking.Path(),
       "",
       {kNameResolution, kConnection, kTLS, kResponse}},
      {"http through a proxy",
       "http://" + plain.Authority(),
       "",
       proxy.Authority(),
       {kNameResolution, kProxy, kResponse}},
      {"tunnel",
       "https://" + tls.Authority(),
       certificate.Path(),
       proxy.Authority(),
       {kNameResolution, kProxy, kTLS, kResponse}},
      {"log-in",
       "http://ann:canary@" + locked.Authority(),
       "",
       "",
       {kNameResolution, kConnection, kResponse, kConnection, kLogIn}},
  };
  for (const auto& test : kCases)
    for (const bool hasDetails : {false, true}) {
      SCOPED_TRACE(test.name);
      StepRecorder recorder;
      HTTPClientOptions options;
      options.wantsConnectionDetails = hasDetails;
      options.caFile = Wide(test.caFile);
      options.proxy = Wide(test.proxy);
      HTTPClientWrapper client(Wide(test.url + "/"), L"", L"", 10, &options);
      ASSERT_TRUE(Post(client).ok) << Narrow(recorder.last.error);
      EXPECT_EQ(recorder.steps, test.first);
      EXPECT_EQ(recorder.details.address.empty(), !hasDetails);
      const bool isHTTPS = test.url.starts_with("https:");
      EXPECT_EQ(!recorder.details.certificateSubject.empty(), hasDetails && isHTTPS);
      ASSERT_TRUE(Post(client).ok);
      EXPECT_EQ(recorder.steps, std::vector<HTTPStep>{kResponse});
    }
}

/// A server can reject the client certificate after the handshake. Until then, TLS is in progress.
TEST(HTTPSteps, TLSMayEndWithTheReply) {
  Certificate certificate("IP:127.0.0.1", kDay);
  certificate.AskForClient(certificate, true);
  const WireServer server(&Reply, certificate.Context());
  StepRecorder recorder;
  HTTPClientOptions options = WithDetails();
  options.caFile = Wide(certificate.Path());
  EXPECT_FALSE(PostOnce("https://" + server.Authority() + "/", 10, &options).ok);
  EXPECT_EQ(recorder.steps.back(), HTTPStep::kTLS);
  EXPECT_EQ(recorder.last.failedStep, HTTPStep::kTLS);
}

TEST(HTTPDetails, LongTextsOfTheServerAreTruncated) {
  const std::string value(100'000, 'x');
  const WireServer server(Answer(
      "<r/>", "200 OK", "Server: " + value + "\r\nContent-Type: text/xml; x=" + value + "\r\n"));
  StepRecorder recorder;
  const HTTPClientOptions options = WithDetails();
  ASSERT_TRUE(PostOnce("http://" + server.Authority() + "/", 10, &options).ok);
  EXPECT_LE(recorder.last.connection.server.size(), 600u);
  EXPECT_LE(recorder.last.connection.contentType.size(), 600u);
}

TEST(HTTPDetails, DescribeTLSDirectlyAndThroughProxies) {
  const Certificate authority("DNS:the authority", kDay);
  const Certificate service("IP:127.0.0.1", 10 * kDay + 3600, &authority);
  const Certificate proxyCertificate("IP:127.0.0.1", 99 * kDay);
  SSL_CTX_set_max_proto_version(service.Context(), TLS1_2_VERSION);
  const WireServer server(&Reply, service.Context());
  const WireServer plainProxy(&AnswerOrTunnel);
  const WireServer tlsProxy(&AnswerOrTunnel, proxyCertificate.Context());
  const support::TempDir folder;
  const std::string authorities = folder.Path() / "authorities.pem";
  std::ofstream(authorities) << support::ReadFile(authority.Path())
                             << support::ReadFile(proxyCertificate.Path());
  const struct {
    std::string proxy;
    std::string shown;
    std::string address;
  } kCases[] = {
      {"", "", server.Authority()},
      {"canary:canary@" + plainProxy.Authority(), "http://" + plainProxy.Authority(),
       plainProxy.Authority()},
      {"https://canary:canary@" + tlsProxy.Authority(), "https://" + tlsProxy.Authority(),
       tlsProxy.Authority()},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.proxy);
    StepRecorder recorder;
    HTTPClientOptions options = WithDetails();
    options.caFile = Wide(authorities);
    options.proxy = Wide(test.proxy);
    HTTPClientWrapper client(Wide("https://" + server.Authority() + "/"), L"", L"", 10, &options);
    const Outcome outcome = Post(client);
    ASSERT_TRUE(outcome.ok) << outcome.error;
    const HTTPConnectionDetails details = recorder.last.connection;
    EXPECT_EQ(Narrow(details.proxy), test.shown);
    EXPECT_EQ(Narrow(details.address), test.address);
    EXPECT_EQ(Narrow(details.tlsProtocol), "TLSv1.2");
    EXPECT_GT(details.tlsSeconds, 0);
    EXPECT_THAT(Narrow(details.certificateSubject), HasSubstr("IP:127.0.0.1"));
    EXPECT_THAT(Narrow(details.certificateIssuer), HasSubstr("the authority"));
    EXPECT_EQ(details.certificateDays, 10);
    ASSERT_TRUE(Post(client).ok);
    EXPECT_TRUE(recorder.last.connection.isReused);
    EXPECT_EQ(Narrow(recorder.last.connection.proxy), test.shown);
    EXPECT_EQ(Narrow(recorder.last.connection.tlsProtocol), "");
  }
}

/// The certificate of a proxy is not that of the service.
TEST(HTTPDetails, PlainServiceBehindATLSProxyHasNoTLS) {
  const Certificate certificate("IP:127.0.0.1", kDay);
  const WireServer proxy(&AnswerOrTunnel, certificate.Context());
  StepRecorder recorder;
  HTTPClientOptions options = WithDetails();
  options.caFile = Wide(certificate.Path());
  options.proxy = Wide("https://" + proxy.Authority());
  ASSERT_TRUE(PostOnce("http://service.test/", 10, &options).ok);
  EXPECT_EQ(Narrow(recorder.last.connection.proxy), "https://" + proxy.Authority());
  EXPECT_EQ(Narrow(recorder.last.connection.tlsProtocol), "");
  EXPECT_EQ(Narrow(recorder.last.connection.certificateSubject), "");
}

TEST(HTTPDetails, ProxyThatIsNotUsedIsNotNamed) {
  const WireServer server(&Reply);
  const WireServer proxy(&AnswerOrTunnel);
  setenv("no_proxy", "127.0.0.1", 1);
  StepRecorder recorder;
  HTTPClientOptions options = WithDetails();
  options.proxy = Wide("http://" + proxy.Authority());
  EXPECT_TRUE(PostOnce("http://" + server.Authority() + "/", 10, &options).ok);
  EXPECT_EQ(Narrow(recorder.last.connection.proxy), "");
  EXPECT_EQ(Narrow(recorder.last.connection.address), server.Authority());
  const support::ReservedPort closed;
  PostOnce("http://" + closed.Authority() + "/", 10, &options);
  EXPECT_EQ(recorder.last.failedStep, HTTPStep::kConnection);
  unsetenv("no_proxy");
}

TEST(HTTPDetails, NameTheLogIn) {
  const struct {
    const char* offer;  // headers of the refusal
    const char* user;
    const wchar_t* token;
    const char* offered;
    const char* used;
    bool ok;
  } kCases[] = {
      {"WWW-Authenticate: Basic realm=\"r\"\r\n", "u:p@", L"", "Basic", "Basic", true},
      {"WWW-Authenticate: NTLM\r\nWWW-Authenticate: Digest realm=\"r\", nonce=\"n\"\r\n", "u:p@",
       L"", "NTLM, Digest", "Digest", true},
      {"WWW-Authenticate: Basic realm=\"r\"\r\n", "", L"", "Basic", "", false},
      {"WWW-Authenticate: Bearer\r\n", "", L"canary", "", "Bearer", true},
  };
  for (const auto& test : kCases) {
    const WireServer server(
        [&](loopback::Connection& connection, const loopback::Request& request) {
          connection.Send(request.Header("authorization").empty()
                              ? Answer("", "401 Unauthorized", test.offer)
                              : Answer("<r/>"));
        });
    StepRecorder recorder;
    HTTPClientOptions options = WithDetails();
    options.bearerToken = test.token;
    const Outcome outcome =
        PostOnce("http://" + std::string(test.user) + server.Authority() + "/", 10, &options);
    EXPECT_EQ(outcome.ok, test.ok) << outcome.error;
    const HTTPConnectionDetails& details = recorder.last.connection;
    EXPECT_EQ(Narrow(details.offeredSchemes), test.offered);
    EXPECT_EQ(Narrow(details.usedScheme), test.used);
    // The last request used the connection of the first one, which belongs to this exchange.
    EXPECT_FALSE(details.isReused);
    EXPECT_GT(details.connectSeconds, 0);
  }
}

TEST(HTTPFailedStep, IsTheOneThatFailed) {
  const support::ReservedPort port;
  const std::string closed = port.Authority();
  const Certificate certificate("IP:127.0.0.1", kDay);
  const WireServer tls(&Reply, certificate.Context());
  const WireServer tlsProxy(&AnswerOrTunnel, certificate.Context());
  const WireServer proxy(&AnswerOrTunnel);
  const WireServer refusing(Answer("", "403 No"));
  const WireServer demanding(Answer("", "407 No", "Proxy-Authenticate: Basic realm=\"r\"\r\n"));
  const WireServer logIn(Answer("", "401 No", "WWW-Authenticate: Basic realm=\"r\"\r\n"));
  const WireServer missing(Answer("", "404 No"));
  const WireServer page(Answer("<html/>"));
  const WireServer cut("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n");
  const WireServer noHTTP("SSH-2.0\r\n\r\n");
  const WireServer greeting(Answer("no", "400 Bad"), WireServer::Greets{});
  const WireServer closing(
      [](loopback::Connection& connection, const loopback::Request&) { connection.Close(); });
  const std::string http = "http://";
  const std::string https = "https://";
  const struct {
    const char* name;
    std::string url;
    std::string proxy;
    HTTPStep step;
  } kCases[] = {
      {"URL", "http://h_[1]/", "", HTTPStep::kAddress},
      {"host", "http://no-such-host.invalid/", "", HTTPStep::kNameResolution},
      {"port", http + closed, "", HTTPStep::kConnection},
      {"proxy host", "http://s.test/", "http://no-such-host.invalid/", HTTPStep::kProxy},
      {"proxy port", "http://s.test/", http + closed, HTTPStep::kProxy},
      {"proxy port, tunnel", "https://s.test/", http + closed, HTTPStep::kProxy},
      {"proxy refuses", "https://s.test/", http + refusing.Authority(), HTTPStep::kProxy},
      {"proxy log-in without a proxy", http + demanding.Authority(), "", HTTPStep::kResponse},
      {"proxy log-in", "http://s.test/", http + demanding.Authority(), HTTPStep::kProxy},
      {"tunnel log-in", "https://s.test/", http + demanding.Authority(), HTTPStep::kProxy},
      {"proxy certificate", "http://s.test/", https + tlsProxy.Authority(), HTTPStep::kProxy},
      {"proxy certificate, tunnel", "https://s.test/", https + tlsProxy.Authority(),
       HTTPStep::kProxy},
      {"proxy without TLS", "http://s.test/", https + greeting.Authority(), HTTPStep::kProxy},
      {"certificate", https + tls.Authority(), "", HTTPStep::kTLS},
      {"certificate by proxy", https + tls.Authority(), http + proxy.Authority(), HTTPStep::kTLS},
      {"no TLS", https + greeting.Authority(), "", HTTPStep::kTLS},
      {"log-in", http + logIn.Authority(), "", HTTPStep::kLogIn},
      {"status", http + missing.Authority(), "", HTTPStep::kResponse},
      {"status by proxy", "http://s.test/", http + missing.Authority(), HTTPStep::kResponse},
      {"web page", http + page.Authority(), "", HTTPStep::kProtocol},
      {"no HTTP", http + noHTTP.Authority(), "", HTTPStep::kResponse},
      {"closed", http + closing.Authority(), "", HTTPStep::kResponse},
      {"silent", http + cut.Authority(), "", HTTPStep::kResponse},
  };
  for (const bool wantsDetails : {false, true})
    for (const auto& test : kCases) {
      StepRecorder recorder;
      HTTPClientOptions options;
      options.wantsConnectionDetails = wantsDetails;
      options.proxy = Wide(test.proxy);
      const bool isSilent = std::string(test.name) == "silent";
      if (isSilent && wantsDetails) continue;
      const Outcome outcome = PostOnce(test.url, isSilent ? 1 : 10, &options);
      EXPECT_FALSE(recorder.last.ok) << test.name;
      EXPECT_EQ(static_cast<int>(recorder.last.failedStep), static_cast<int>(test.step))
          << test.name << ": " << outcome.error;
      if (wantsDetails && test.step == HTTPStep::kConnection) {
        EXPECT_EQ(Narrow(recorder.last.connection.address), closed) << "the one that was tried";
      }
    }
}

/// The texts fit settings of the environment and of the options.
TEST(HTTPFailure, TextsDoNotNameTheEnvironment) {
  const support::ReservedPort port;
  const std::string closed = port.Authority();
  const Certificate certificate("IP:127.0.0.1", kDay);
  const WireServer tls(&Reply, certificate.Context());
  const struct {
    std::string url;
    const char* proxy;
    const wchar_t* caFile;
    const char* text;
  } kCases[] = {
      {"http://" + closed + "/", "", L"", "and that the service is running"},
      {"http://s.test/", "http://no-such-host.invalid", L"", "; check the proxy setting"},
      {"https://" + tls.Authority() + "/", "", L"", "the file of trusted certificates"},
      {"https://" + tls.Authority() + "/", "", L"/proc/none", "check its name, its contents"},
  };
  for (const auto& test : kCases) {
    HTTPClientOptions options;
    options.proxy = Wide(test.proxy);
    options.caFile = test.caFile;
    EXPECT_THAT(PostOnce(test.url, 10, &options).error,
                AllOf(HasSubstr(test.text), Not(HasSubstr("environment")),
                      Not(HasSubstr("SSL_CERT_FILE"))));
  }
}

}  // namespace
