// Log-in, proxies, TLS and retries on the additional connections of read-ahead: an import with
// several requests at a time gives the same document as one with one.
#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>

#include "DiscoverService.h"
#include "Servers.h"
#include "loopback-server/Server.h"
#include "support/ReservedPort.h"
#include "support/TempDir.h"

namespace login {
namespace {

using testing::HasSubstr;

/// One member of the cube is a fault. It is the only request that fails.
const char kOnlyTheFault[] = " used, 1 failed and sent again, 0 not used\n";

/// Passes connections on to a port of this machine, and counts them. While there are fewer than
/// `awaited`, replies are slow, so that a client that reads ahead has the time to connect.
class Relay {
 public:
  Relay(int port, std::size_t awaited) : m_port(port), m_awaited(awaited) {}

  int Port() const { return m_server.Port(); }
  std::size_t Connections() const { return m_server.Connections(); }

 private:
  void Wait() const {
    for (int i = 0; i < 50 && Connections() < m_awaited; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }

  const int m_port;
  const std::size_t m_awaited;
  loopback::Server m_server{loopback::Handler(),
                            {.openStream = [this](int socket) -> std::unique_ptr<loopback::Stream> {
                              loopback::Connection client(dup(socket));
                              loopback::Connection service(loopback::ConnectToLoopback(m_port));
                              loopback::PassOn(client, service, [this] { Wait(); });
                              return nullptr;
                            }}};
};

int PortOf(const std::string& url) { return std::stoi(url.substr(url.find(':', 7) + 1)); }

/// The URL with another port.
std::string WithPort(std::string url, int port) {
  const std::size_t begin = url.find(':', 7) + 1;
  return url.replace(begin, url.find('/', begin) - begin, std::to_string(port));
}

/// The sample provider over TLS.
class TLSProvider {
 public:
  explicit TLSProvider(bool requiresCertificate) {
    if (requiresCertificate) m_certificate.AskForClient(m_authority, true);
    std::ofstream(m_folder.Path() / "key.pem") << m_client.Key();
  }

  std::string Url() const { return "https://" + m_server.Authority() + "/"; }
  tool::Arguments Trust() const { return {"--ca-file", m_authority.Path()}; }
  tool::Arguments TrustAndCertificate() const {
    return {"--ca-file", m_authority.Path(),         "--cert", m_client.Path(),
            "--key",     m_folder.Path() / "key.pem"};
  }

 private:
  const support::TempDir m_folder;
  const Certificate m_authority{"DNS:authority", kDay};
  const Certificate m_client{"DNS:client", kDay, &m_authority};
  Certificate m_certificate{"IP:127.0.0.1", kDay, &m_authority};
  WireServer m_server{
      [](loopback::Connection& connection, const loopback::Request& request) {
        connection.Send(Answer(sample::Answer(sample::Kind::kAnalysisServices, request.body).body));
      },
      m_certificate.Context()};
};

/// The sample provider; every tenth request fails in another way.
class FailingProvider {
 public:
  std::string Url() const { return "http://" + m_server.Authority() + "/"; }
  int Failures() const { return m_failures; }

 private:
  void Serve(loopback::Connection& connection, const loopback::Request& request) {
    const int number = ++m_count;
    if (number % 10 != 0)
      return void(connection.Send(
          Answer(sample::Answer(sample::Kind::kAnalysisServices, request.body).body)));
    switch (++m_failures % 3) {
      case 0:
        return connection.Reset();
      case 1:
        return void(
            connection.Send(Answer("busy", 503, "Content-Type: text/plain\r\nRetry-After: 0\r\n")));
      default:
        connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n<r>");
        return connection.Close();
    }
  }

  std::atomic<int> m_count{0};
  std::atomic<int> m_failures{0};
  loopback::Server m_server{
      [this](loopback::Connection& connection, const loopback::Request& request) {
        Serve(connection, request);
      }};
};

/// A SOCKS proxy that requires a log-in.
class SocksProxy {
 public:
  SocksProxy() {
    const auto isReady = [this] {
      try {
        const loopback::Connection connection(loopback::ConnectToLoopback(Port()));
        return true;
      } catch (const std::runtime_error&) {
        return false;
      }
    };
    if (!m_process.Await(isReady)) throw std::runtime_error("the SOCKS proxy does not start");
  }
  int Port() const { return m_port.Port(); }

 private:
  const support::TempDir m_folder;
  const support::ReservedPort m_port;
  ServerProcess m_process{{"/usr/bin/microsocks", "-i", "127.0.0.1", "-p", std::to_string(Port()),
                           "-u", "proxy-ann", "-P", "canary-proxy"},
                          {},
                          m_folder.Path() / "output"};
};

struct AheadCase {
  const char* name;
  /// The service, or the proxy in front of it.
  std::string (*url)();
  tool::Arguments (*options)();
  const char* password;  // null: none
  /// The scheme and the log-in of a proxy to which `url` leads; null: `url` is the service.
  const char* proxy = nullptr;
  /// The service behind that proxy.
  std::string (*service)() = nullptr;
  bool isFailing = false;  // so that requests are sent again
};

tool::Arguments Nothing() { return {}; }
tool::Arguments Ann() { return {"--user", "ann"}; }
std::string NegotiateService() { return Servers::Get().GatewayToProvider("negotiate"); }
std::string BasicService() { return Servers::Get().GatewayToProvider("basic"); }
std::string DigestService() { return Servers::Get().GatewayToProvider("digest"); }
std::string DigestSHA256Service() { return Servers::Get().PasswordServer("/digest-provider"); }
std::string NTLMService() { return Servers::Get().PasswordServer("/ntlm-provider"); }

const TLSProvider& PlainTLS() {
  static const TLSProvider provider(false);
  return provider;
}
const TLSProvider& TLSWithClients() {
  static const TLSProvider provider(true);
  return provider;
}
FailingProvider& Failing() {
  static FailingProvider provider;
  return provider;
}
std::string ProxyUrl(const char* host) {
  return "http://localhost:" + std::to_string(Servers::Get().web.Port(host)) + "/";
}
std::string SocksUrl() {
  static const SocksProxy proxy;
  return "socks5h://127.0.0.1:" + std::to_string(proxy.Port()) + "/";
}

const std::vector<AheadCase> kAheadCases = {
    {"Kerberos", NegotiateService, Nothing, nullptr},
    {"NTLM", NTLMService, Ann, "canary-ann"},
    {"Digest", DigestService, Ann, "canary-ann"},
    {"DigestSHA256", DigestSHA256Service, Ann, "canary-ann"},
    {"Basic", BasicService, Ann, "canary-ann"},
    {"TLSWithAPrivateAuthority", [] { return PlainTLS().Url(); }, [] { return PlainTLS().Trust(); },
     nullptr},
    {"ClientCertificate", [] { return TLSWithClients().Url(); },
     [] { return TLSWithClients().TrustAndCertificate(); }, nullptr},
    {"ProxyWithBasic", [] { return ProxyUrl("BASIC_PROXY"); }, Ann, "canary-ann",
     "http://proxy-ann:canary-proxy@", BasicService},
    {"ProxyWithDigest", [] { return ProxyUrl("DIGEST_PROXY"); }, Ann, "canary-ann",
     "http://proxy-ann:canary-proxy@", DigestService},
    {"ProxyWithKerberos", [] { return ProxyUrl("NEGOTIATE_PROXY"); }, Nothing, nullptr, "http://",
     NegotiateService},
    {"SocksProxy", SocksUrl, Ann, "canary-ann", "socks5h://proxy-ann:canary-proxy@", BasicService},
    {"Retries", [] { return Failing().Url(); },
     []() -> tool::Arguments {
       return {"--retry", "5"};
     },
     nullptr, nullptr, nullptr, true},
};

class ReadAhead : public LogIn, public testing::WithParamInterface<AheadCase> {
 protected:
  void SetUp() override {
    LogIn::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    const Realm& realm = Servers::Get().realm;
    m_environment = realm.Client(Realm::View::kCorrect, realm.LogIn("ann"));
    if (GetParam().password) m_environment["XMLA_IMPORT_PASSWORD"] = GetParam().password;
  }

  /// Reads a cube, and sets the number of connections that this took. With several jobs, replies
  /// are slow until there are more connections than `connections` was before.
  tool::Outcome Read(const char* jobs, std::size_t& connections) {
    const AheadCase& test = GetParam();
    const std::string target = test.url();
    const bool readsAhead = std::string_view(jobs) != "1";
    const Relay relay(PortOf(target.substr(target.find("//") - 5)),
                      readsAhead ? connections + 1 : 0);
    tool::Arguments arguments = test.options();
    if (test.proxy) {
      const std::string host =
          target.find("localhost") != std::string::npos ? "localhost" : "127.0.0.1";
      arguments.insert(arguments.end(),
                       {"--url", test.service(), "--proxy",
                        test.proxy + host + ":" + std::to_string(relay.Port()) + "/"});
    } else {
      arguments.insert(arguments.end(), {"--url", WithPort(target, relay.Port())});
    }
    arguments.insert(arguments.end(),
                     {"--format", "json", "--verbose", "cube", "--source", "NORTHQUAY", "--catalog",
                      "Larkspur Retail", "--cube", "Sales", "--jobs", jobs});
    tool::Outcome outcome = RunTool(arguments, m_environment);
    connections = relay.Connections();
    return outcome;
  }

 private:
  std::map<std::string, std::string> m_environment;
};

TEST_P(ReadAhead, GivesTheSameDocument) {
  std::size_t connections = 0;
  const tool::Outcome one = Read("1", connections);
  ASSERT_EQ(one.status, 0) << one.err;
  ASSERT_GT(one.Document()["hierarchies"].size(), 5u);
  const std::size_t before = connections;
  const tool::Outcome many = Read("8", connections);
  EXPECT_EQ(many.status, 0) << many.err;
  EXPECT_EQ(many.out, one.out);
  EXPECT_THAT(many.err, HasSubstr("read ahead: "));
  EXPECT_GT(connections, before) << many.err;
  if (GetParam().isFailing) {
    EXPECT_GT(Failing().Failures(), 6);
  } else {
    EXPECT_THAT(many.err, HasSubstr(kOnlyTheFault));
  }
}

INSTANTIATE_TEST_SUITE_P(LogIn, ReadAhead, testing::ValuesIn(kAheadCases),
                         [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace login
