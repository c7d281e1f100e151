// Servers that cannot be reached or must not be trusted, and proxies that refuse: the text, the
// exit status, and that all is well once the other side is.

#include <gmock/gmock.h>

#include <functional>
#include <memory>

#include "NetworkSupport.h"
#include "SampleProvider.h"
#include "generic/Certificate.h"
#include "generic/ScriptedServer.h"
#include "support/ScriptedServer.h"

namespace network {
namespace {

using testing::HasSubstr;
using Environment = std::vector<std::pair<std::string, std::string>>;

/// A reply to every request for data sources, and to those that look for the server's kind.
std::string DataSourcesAnswer(const ReceivedRequest& request) {
  const std::string type = support::RequestType(request.body);
  return Answer(support::RowsetReply(
      type == "DISCOVER_DATASOURCES"
          ? "<row><DataSourceName>NORTHQUAY</DataSourceName></row>"
          : "<row><PropertyName>ProviderName</PropertyName><Value>Server</Value></row>"
            "<row><PropertyName>ProviderVersion</PropertyName><Value>9.0</Value></row>"));
}

void Serve(ServedConnection& connection, const ReceivedRequest& request) {
  connection.Send(DataSourcesAnswer(request));
}

/// One peer that refuses, through the import interface and the tool; then `mend` puts it right.
void ExpectRefusal(const std::string& url, const std::string& says, const Environment& environment,
                   const std::function<void()>& mend, double seconds = 1) {
  SCOPED_TRACE(says);
  std::vector<std::unique_ptr<Variable>> variables;
  for (const auto& [name, value] : environment)
    variables.push_back(std::make_unique<Variable>(name.c_str(), value));
  Import import(url);
  const Outcome refused = import.DataSources();
  EXPECT_THAT(refused.errors, HasSubstr(says));
  EXPECT_THAT(refused.errors, testing::Not(HasSubstr("\n")));
  EXPECT_TRUE(refused.names.empty());
  EXPECT_LT(refused.seconds, seconds * Slack());
  ExpectOneErrorLine(url, says, seconds, environment);
  if (!mend) return;
  mend();
  const Outcome next = import.DataSources();
  EXPECT_EQ(next.errors, "");
  EXPECT_THAT(next.names, testing::ElementsAre("NORTHQUAY"));
  ExpectDataSources(url, environment);
}

TEST(NetworkPeers, ARefusedPortIsNamedAndUsedOnceSomebodyListens) {
  sample::Options options;
  { options.port = sample::Provider().Port(); }
  std::unique_ptr<sample::Provider> provider;
  ExpectRefusal("http://127.0.0.1:" + std::to_string(options.port) + "/analysis-services",
                "There is no connection to the service: Connection refused: http://127.0.0.1:", {},
                [&] { provider = std::make_unique<sample::Provider>(options); });
}

TEST(NetworkPeers, AnUnknownHostIsNamed) {
  // The time is that of the system's resolver.
  ExpectRefusal("http://no-such-host.invalid/xmla",
                "The host of the service is not known: http://no-such-host.invalid/xmla", {}, {},
                5);
}

// Certificates. SSL_CERT_FILE names those that are trusted.

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

TEST(NetworkPeers, OnlyAGoodCertificateIsTakenAndABadOneIsNamed) {
  const Certificate authority("DNS:authority.test", kDay);
  const Certificate otherAuthority("DNS:other-authority.test", kDay);
  const Certificate good("IP:127.0.0.1", kDay, &authority);
  for (const CertificateCase& test : kCertificates) {
    SCOPED_TRACE(test.name);
    const Certificate* issuer = test.authorityIsTrusted ? &authority : &otherAuthority;
    if (!test.signedByAuthority) issuer = nullptr;
    Certificate certificate(test.alternativeName, test.validSeconds, issuer);
    ::ScriptedServer server(&Serve, certificate.Context());
    ExpectRefusal("https://" + server.Authority() + "/xmla", test.says,
                  {{"SSL_CERT_FILE", authority.Path()}}, [&] { certificate.Become(good); });
  }
  Figure("untrusted certificates",
         Text(std::size(kCertificates), " kinds refused by name, the good one taken afterwards"));
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

/// Refuses at first and lets everything through once it is willing.
class Proxy {
 public:
  explicit Proxy(const char* refusal) : m_refusal(Answer("", refusal)) {}
  std::string Url() const { return "http://" + m_server.Authority(); }
  void BeWilling() { m_willing = true; }
  std::vector<ReceivedRequest> Requests() { return m_server.Requests(); }

 private:
  void Handle(ServedConnection& connection, const ReceivedRequest& request) {
    if (!m_willing)
      connection.Send(m_refusal);
    else if (request.head.starts_with("CONNECT "))
      Tunnel(connection, request.head.substr(8, request.head.find(' ', 8) - 8));
    else
      connection.Send(DataSourcesAnswer(request));
  }

  const std::string m_refusal;
  std::atomic<bool> m_willing{false};
  ::ScriptedServer m_server{
      [this](auto& connection, const auto& request) { Handle(connection, request); }};
};

TEST(NetworkPeers, AProxyThatRefusesIsNamedAndUsedOnceItIsWilling) {
  const Certificate good("IP:127.0.0.1", kDay);
  for (const ProxyCase& test : kProxies) {
    {
      Proxy proxy(test.answer);
      ExpectRefusal("http://service.test/xmla", std::string("HTTP ") + test.says,
                    {{"http_proxy", proxy.Url()}, {"no_proxy", ""}}, [&] { proxy.BeWilling(); });
    }
    Proxy proxy(test.answer);
    ::ScriptedServer service(&Serve, good.Context());
    ExpectRefusal("https://" + service.Authority() + "/xmla",
                  std::string("The proxy does not let the connection through: HTTP ") + test.says,
                  {{"https_proxy", proxy.Url()}, {"no_proxy", ""}, {"SSL_CERT_FILE", good.Path()}},
                  [&] { proxy.BeWilling(); });
    EXPECT_FALSE(service.Requests().empty());
  }
  std::string nobody;
  { nobody = ::ScriptedServer("").Authority(); }
  ExpectRefusal("http://service.test/xmla",
                "There is no connection to the service: Connection refused: ",
                {{"http_proxy", "http://" + nobody}, {"no_proxy", ""}}, {});
  ExpectRefusal("http://service.test/xmla", "The host of the proxy is not known: ",
                {{"http_proxy", "http://no-such-proxy.invalid"}, {"no_proxy", ""}}, {}, 5);
  Figure("proxies that refuse",
         "3 refusals of plain and of TLS connections, a proxy that is not there and "
         "an unknown one named");
}

}  // namespace
}  // namespace network
