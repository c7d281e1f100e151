// Unreachable servers, untrusted certificates, refused credentials and refusing proxies: the error
// text, the exit status, and success after the fault is removed.

#include <gmock/gmock.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <list>
#include <memory>
#include <thread>

#include "NetworkPeersSupport.h"
#include "NetworkSupport.h"
#include "SampleProvider.h"
#include "support/Certificate.h"
#include "support/ChildProcess.h"
#include "support/FullListener.h"
#include "support/ReservedPort.h"
#include "support/ScriptedServer.h"
#include "support/TempDir.h"
#include "support/WireServer.h"

namespace network {
namespace {

using testing::HasSubstr;
using Environment = std::vector<std::pair<std::string, std::string>>;

/// Answers data source requests, and the requests that identify the kind of server.
std::string DataSourcesAnswer(const loopback::Request& request) {
  const std::string type = support::RequestType(request.body);
  return Answer(support::RowsetReply(
      type == "DISCOVER_DATASOURCES"
          ? "<row><DataSourceName>NORTHQUAY</DataSourceName></row>"
          : "<row><PropertyName>ProviderName</PropertyName><Value>Server</Value></row>"
            "<row><PropertyName>ProviderVersion</PropertyName><Value>9.0</Value></row>"));
}

void Serve(loopback::Connection& connection, const loopback::Request& request) {
  connection.Send(DataSourcesAnswer(request));
}

/// A peer that refuses, used through the import interface and the tool. Then `mend` removes the
/// fault.
void ExpectRefusal(const std::string& url, const std::string& says, const Environment& environment,
                   const std::function<void()>& mend, double seconds = 1, double atLeast = 0) {
  SCOPED_TRACE(says);
  std::vector<std::unique_ptr<Variable>> variables;
  for (const auto& [name, value] : environment) {
    const char* const present = std::getenv(name.c_str());
    // Cases that run in parallel each have their own state.
    if (!present || value != present)
      variables.push_back(std::make_unique<Variable>(name.c_str(), value));
  }
  Import import(url);
  const Outcome refused = import.DataSources();
  EXPECT_THAT(refused.errors, HasSubstr(says));
  EXPECT_THAT(refused.errors, testing::Not(HasSubstr("\n")));
  EXPECT_TRUE(refused.names.empty());
  EXPECT_LT(refused.seconds, seconds * Slack());
  EXPECT_GE(refused.seconds, atLeast);
  ExpectOneErrorLine(url, says, seconds, environment);
  if (!mend) return;
  mend();
  const Outcome next = import.DataSources();
  EXPECT_EQ(next.errors, "");
  EXPECT_THAT(next.names, testing::ElementsAre("NORTHQUAY"));
  ExpectDataSources(url, environment);
}

TEST(NetworkPeers, RefusedPortIsNamedAndUsedWhenAServerListens) {
  const support::ReservedPort port;
  sample::Options options;
  options.port = port.Port();
  std::unique_ptr<sample::Provider> provider;
  ExpectRefusal("http://" + port.Authority() + "/analysis-services",
                "cannot connect to the service: Connection refused; check host", {},
                [&] { provider = std::make_unique<sample::Provider>(options); });
  Figure("a closed port", "named; used after a server has opened it");
}

TEST(NetworkPeers, UnknownHostIsNamed) {
  // The resolver determines the time.
  ExpectRefusal("http://no-such-host.invalid/xmla",
                "http://no-such-host.invalid/xmla: the host name of the service cannot be resolved",
                {}, {}, 5);
  Figure("an unknown host", "named");
}

// The library reads the time-out once, when it is loaded.
TEST_IN_CHILD(NetworkPeers, ConnectionAttemptEndsAtTheTimeOut,
              {{"MORVEN_BI_XMLA_HTTP_TIMEOUT", "1"}}) {
  const Certificate good("IP:127.0.0.1", kDay);
  const Certificate proxied("DNS:service.test", kDay);
  WireServer service(&Serve, proxied.Context());
  std::atomic<bool> isProxyWilling{false};
  WireServer proxy([&](loopback::Connection& connection, const loopback::Request&) {
    if (isProxyWilling)
      loopback::Tunnel(connection, service.Authority());
    else
      connection.AwaitPeerGone();
  });
  const support::TempDir folder;
  const std::string trusted = folder.Path() / "trusted.pem";
  std::ofstream(trusted) << support::ReadFile(good.Path()) << support::ReadFile(proxied.Path());
  const Environment environment = {{"SSL_CERT_FILE", trusted},
                                   {"https_proxy", "http://" + proxy.Authority()},
                                   {"no_proxy", "127.0.0.1"}};
  std::list<Variable> variables;
  for (const auto& [name, value] : environment) variables.emplace_back(name.c_str(), value);
  const auto expect = [&](const std::string& url, const std::function<void()>& mend,
                          const std::string& what = "no connection to the service") {
    ExpectRefusal(url, url + ": " + what + " within 1 second;", environment, mend, 2, 0.99);
  };
  // Each case mostly waits.
  std::vector<std::jthread> cases;
  const support::ReservedPort port;
  std::unique_ptr<WireServer> listening;
  cases.emplace_back([&] {
    SCOPED_TRACE("neither accepted nor refused");
    auto listener = std::make_unique<support::FullListener>(port.Port());
    expect("http://" + port.Authority() + "/xmla", [&] {
      listener.reset();
      listening = std::make_unique<WireServer>(&Serve, nullptr, port.Port());
    });
  });
  SilentHandshake handshake(good.Context());
  WireServer server(&Serve, good.Context());
  cases.emplace_back([&] {
    SCOPED_TRACE("silent in the handshake");
    expect(
        "https://" + server.Authority() + "/xmla", [&] { handshake.Continue(); },
        "the TLS handshake with the server has not ended");
  });
  cases.emplace_back([&] {
    SCOPED_TRACE("a silent proxy");
    expect(
        "https://service.test:" + service.Port() + "/xmla", [&] { isProxyWilling = true; },
        "no connection through the proxy http://" + proxy.Authority());
    EXPECT_FALSE(service.Requests().empty());
  });
  cases.clear();
  Figure("connections that are never established",
         "a full queue, a silent handshake and a silent proxy given up after the time-out, used "
         "once they answered");
}

// Certificates. SSL_CERT_FILE names the trusted ones.

struct CertificateCase {
  const char* name;
  const char* says;
  const char* alternativeName = "IP:127.0.0.1";
  long validSeconds = kDay;
  bool signedByAuthority = true;
  bool authorityIsTrusted = true;
};

constexpr CertificateCase kCertificates[] = {
    {"expired", "certificate has expired", "IP:127.0.0.1", -3600},
    {"self-signed", "self-signed certificate", "IP:127.0.0.1", kDay, false},
    {"of another host", "name matches target host name '127.0.0.1'", "DNS:elsewhere.test"},
    {"of an unknown authority", "unable to get local issuer certificate", "IP:127.0.0.1", kDay,
     true, false},
};

TEST(NetworkPeers, OnlyAValidCertificateIsAcceptedAndABadOneIsNamed) {
  const Certificate authority("DNS:authority.test", kDay);
  const Certificate otherAuthority("DNS:other-authority.test", kDay);
  const Certificate good("IP:127.0.0.1", kDay, &authority);
  for (const CertificateCase& test : kCertificates) {
    SCOPED_TRACE(test.name);
    const Certificate* issuer = test.authorityIsTrusted ? &authority : &otherAuthority;
    if (!test.signedByAuthority) issuer = nullptr;
    Certificate certificate(test.alternativeName, test.validSeconds, issuer);
    WireServer server(&Serve, certificate.Context());
    ExpectRefusal("https://" + server.Authority() + "/xmla", test.says,
                  {{"SSL_CERT_FILE", authority.Path()}}, [&] { certificate.Become(good); });
  }
  Figure("untrusted certificates",
         Text(std::size(kCertificates), " kinds refused by name, the good one taken afterwards"));
}

TEST(NetworkPeers, EveryConnectionChecksTheCertificate) {
  const Certificate authority("DNS:authority.test", kDay);
  const Certificate good("IP:127.0.0.1", kDay, &authority);
  const Certificate expired("IP:127.0.0.1", -3600, &authority);
  Certificate certificate("IP:127.0.0.1", kDay, &authority);
  WireServer server(
      [](loopback::Connection& connection, const loopback::Request& request) {
        const std::string answer = DataSourcesAnswer(request);
        connection.Send("HTTP/1.1 200 OK\r\nConnection: close\r\n" + answer.substr(17));
        connection.Close();
      },
      certificate.Context());
  const Variable trusted("SSL_CERT_FILE", authority.Path());
  Import import("https://" + server.Authority() + "/xmla");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(import.DataSources().errors, "");
  certificate.Become(expired);
  EXPECT_THAT(import.DataSources().errors, HasSubstr("certificate has expired"));
  certificate.Become(good);
  EXPECT_EQ(import.DataSources().errors, "");
  EXPECT_GE(server.Connections(), 5u);
  EXPECT_EQ(server.ResumedConnections(), 0u);
}

// Authentication.

struct LogInCase {
  const char* name;
  const char* offer;
  const char* says;
};

constexpr LogInCase kLogIns[] = {
    {"Basic", "WWW-Authenticate: Basic realm=\"r\"\r\n", "Basic)"},
    {"Digest", "WWW-Authenticate: Digest realm=\"r\", nonce=\"n\", qop=\"auth\"\r\n", "Digest)"},
    {"both",
     "WWW-Authenticate: Digest realm=\"r\", nonce=\"n\", qop=\"auth\"\r\n"
     "WWW-Authenticate: Basic realm=\"r\"\r\n",
     "Digest, Basic)"},
    {"Digest, each time with a new nonce",
     "WWW-Authenticate: Digest realm=\"r\", nonce=\"%\", qop=\"auth\", stale=true\r\n", "Digest)"},
};

TEST(NetworkPeers, RefusedAuthenticationIsNamedAndCanSucceedLater) {
  for (const LogInCase& test : kLogIns) {
    SCOPED_TRACE(test.name);
    std::atomic<bool> isWilling{false};
    std::atomic<int> logIns{0};
    std::atomic<int> requests{0};
    WireServer server([&](loopback::Connection& connection, const loopback::Request& request) {
      const std::string given = request.Header("authorization");
      const bool isLogIn =
          given == "Basic YW5uOnNlY3JldA==" ||  // ann:secret
          (given.starts_with("Digest username=\"ann\"") && given.find("response=") < given.size());
      if (isLogIn) ++logIns;
      if (isLogIn && isWilling) {
        Serve(connection, request);
        return;
      }
      std::string offer = test.offer;
      if (const std::size_t place = offer.find('%'); place != std::string::npos)
        offer.replace(place, 1, std::to_string(++requests));
      connection.Send(Answer("", "401 Unauthorized", offer));
    });
    int refused = 0;
    ExpectRefusal("http://ann:secret@" + server.Authority() + "/xmla",
                  std::string("(it offers ") + test.says, {}, [&] {
                    refused = logIns;
                    EXPECT_LE(server.Requests().size(), 2 * 8u);
                    isWilling = true;
                  });
    EXPECT_GE(refused, 2);  // one of the import, one of the tool
  }
  Figure("authentication that is always refused",
         Text(std::size(kLogIns), " kinds named in time, admitted afterwards"));
}

// Proxies.

struct ProxyCase {
  const char* answer;  // to the first requests
  const char* says;
};

constexpr ProxyCase kProxies[] = {
    {"407 Proxy Authentication Required", "407 Proxy Authentication Required"},
    {"403 Forbidden", "403 Forbidden"},
    {"502 Bad Gateway", "502 Bad Gateway"},
};

/// Refuses at first, then passes everything through once told to.
class Proxy {
 public:
  explicit Proxy(const char* refusal) : m_refusal(Answer("", refusal)) {}
  std::string Url() const { return "http://" + m_server.Authority(); }
  void Continue() { m_willing = true; }
  std::vector<loopback::Request> Requests() { return m_server.Requests(); }

 private:
  void Handle(loopback::Connection& connection, const loopback::Request& request) {
    if (!m_willing)
      connection.Send(m_refusal);
    else if (request.head.starts_with("CONNECT "))
      loopback::Tunnel(connection, request.head.substr(8, request.head.find(' ', 8) - 8));
    else
      connection.Send(DataSourcesAnswer(request));
  }

  const std::string m_refusal;
  std::atomic<bool> m_willing{false};
  WireServer m_server{
      [this](auto& connection, const auto& request) { Handle(connection, request); }};
};

TEST(NetworkPeers, RefusingProxyIsNamedAndCanSucceedLater) {
  const Certificate good("IP:127.0.0.1", kDay);
  for (const ProxyCase& test : kProxies) {
    {
      Proxy proxy(test.answer);
      ExpectRefusal("http://service.test/xmla", std::string("HTTP ") + test.says,
                    {{"http_proxy", proxy.Url()}, {"no_proxy", ""}}, [&] { proxy.Continue(); });
    }
    Proxy proxy(test.answer);
    WireServer service(&Serve, good.Context());
    ExpectRefusal("https://" + service.Authority() + "/xmla",
                  std::string("the proxy refuses the connection: HTTP ") + test.says,
                  {{"https_proxy", proxy.Url()}, {"no_proxy", ""}, {"SSL_CERT_FILE", good.Path()}},
                  [&] { proxy.Continue(); });
    EXPECT_FALSE(service.Requests().empty());
  }
  const support::ReservedPort closed;
  const std::string closedProxy = "http://" + closed.Authority();
  ExpectRefusal("http://service.test/xmla",
                "cannot connect to the proxy " + closedProxy + ": Connection refused; ",
                {{"http_proxy", closedProxy}, {"no_proxy", ""}}, {});
  ExpectRefusal("http://service.test/xmla",
                "the host name of the proxy http://no-such-proxy.invalid cannot be resolved; ",
                {{"http_proxy", "http://no-such-proxy.invalid"}, {"no_proxy", ""}}, {}, 5);
  Figure("proxies that refuse",
         "3 refusals of plain and of TLS connections, a proxy that is not there and "
         "an unknown one named");
}

}  // namespace
}  // namespace network
