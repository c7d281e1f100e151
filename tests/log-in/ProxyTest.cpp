// Forward proxies with and without a log-in, in front of services with and without one.
#include <gmock/gmock.h>

#include <map>
#include <optional>

#include "Encoding.h"
#include "Servers.h"

namespace login {
namespace {

using testing::AllOf;
using testing::Each;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

const char kProxyUser[] = "proxy-ann";

/// The URL of a proxy of httpd.conf, such as "BASIC_PROXY".
std::string Proxy(const std::string& host, const std::string& user = "",
                  const std::string& password = "") {
  const std::string address = "localhost:" + std::to_string(Servers::Get().web.Port(host)) + "/";
  return "http://" + (user.empty() ? "" : user + ":" + password + "@") + address;
}

std::string Encoded(const std::string& user, const std::string& password) {
  return Base64(user + ":" + password);
}

struct ProxyCase {
  const char* name;
  const char* host;
  const char* log;
  bool hasUser;
};

const std::vector<ProxyCase> kProxies = {
    {"Open", "PROXY", "proxy", false},
    {"Basic", "BASIC_PROXY", "basic-proxy", true},
    {"Digest", "DIGEST_PROXY", "digest-proxy", true},
    {"Negotiate", "NEGOTIATE_PROXY", "negotiate-proxy", false}};

class ProxyAccepts : public LogIn, public testing::WithParamInterface<ProxyCase> {
 protected:
  void SetUp() override {
    LogIn::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    const Realm& realm = Servers::Get().realm;
    m_environment.emplace(realm.Client(Realm::View::kCorrect, realm.LogIn("ann")));
  }

  Given GivenFor(const std::string& user) const {
    Given given{.schemes = kAuthPasswordSchemes | kAuthNegotiate};
    if (!user.empty()) {
      given.user = user;
      given.password = TheUsers().at(user);
      given.schemes = kAuthPasswordSchemes;
    }
    if (std::string(GetParam().host) == "NEGOTIATE_PROXY") given.schemes |= kAuthNegotiate;
    given.proxy = GetParam().hasUser ? Proxy(GetParam().host, kProxyUser, TheUsers().at(kProxyUser))
                                     : Proxy(GetParam().host);
    return given;
  }

 private:
  std::optional<Environment> m_environment;
};

TEST_P(ProxyAccepts, RequestsToAService) {
  Servers& servers = Servers::Get();
  const std::size_t before = servers.backend.Requests().size();
  Client client(servers.Gateway("basic"), GivenFor("ann"));
  for (int request = 0; request < 2; ++request) {
    const Posted posted = client.Post();
    EXPECT_TRUE(posted.ok) << posted.error;
  }
  // The service gets its own log-in and not that of the proxy.
  const auto requests = servers.backend.Requests();
  ASSERT_EQ(requests.size(), before + 2);
  for (std::size_t i = before; i < requests.size(); ++i) {
    EXPECT_EQ(requests[i].Header("x-user"), "ann");
    EXPECT_THAT(requests[i].Header("authorization"),
                HasSubstr(Encoded("ann", TheUsers().at("ann"))));
    EXPECT_EQ(requests[i].Header("proxy-authorization"), "");
  }
}

TEST_P(ProxyAccepts, TunnelsToAService) {
  Servers& servers = Servers::Get();
  Given given = GivenFor("ann");
  given.caFile = servers.certificate.Path();
  const std::size_t before = servers.tls.Requests().size();
  {
    Client client("https://" + servers.tls.Authority() + "/", given);
    for (int request = 0; request < 2; ++request) {
      const Posted posted = client.Post();
      EXPECT_TRUE(posted.ok) << posted.error;
    }
  }
  const auto requests = servers.tls.Requests();
  ASSERT_EQ(requests.size(), before + 2);
  for (std::size_t i = before; i < requests.size(); ++i)
    EXPECT_EQ(requests[i].Header("proxy-authorization"), "");
  // The log-in to the service stays inside the tunnel.
  const auto lines = servers.web.Log(GetParam().log, "CONNECT ", 1);
  EXPECT_THAT(lines, AllOf(testing::Not(testing::IsEmpty()),
                           Each(Not(HasSubstr(Encoded("ann", TheUsers().at("ann")))))));
}

class ProxyRefuses : public ProxyAccepts {};

TEST_P(ProxyRefuses, AWrongPassword) {
  Servers& servers = Servers::Get();
  const std::string proxy = Proxy(GetParam().host, kProxyUser, "canary-wrong");
  for (const std::string& url :
       {servers.Gateway("open"), "https://" + servers.tls.Authority() + "/"}) {
    const Posted posted = PostOnce(url, {.proxy = proxy});
    EXPECT_THAT(posted.error,
                HasSubstr("HTTP 407 Proxy Authentication Required: the proxy rejected the user "
                          "name or the password; check user name and password in the proxy's URL "
                          "(it offers "));
  }
}

TEST_P(ProxyRefuses, NoUser) {
  Servers& servers = Servers::Get();
  for (const std::string& url :
       {servers.Gateway("open"), "https://" + servers.tls.Authority() + "/"}) {
    const Posted posted = PostOnce(url, {.proxy = Proxy(GetParam().host)});
    EXPECT_THAT(posted.error, HasSubstr("HTTP 407 Proxy Authentication Required; put the proxy's "
                                        "user name and password into its URL (it offers "));
  }
}

INSTANTIATE_TEST_SUITE_P(LogIn, ProxyRefuses,
                         testing::ValuesIn(kProxies.begin() + 1, kProxies.begin() + 3),
                         [](const auto& test) { return test.param.name; });

TEST_F(LogIn, ProxyMayRequireAKerberosTicket) {
  Servers& servers = Servers::Get();
  const Environment environment(
      servers.realm.Client(Realm::View::kCorrect, servers.folder.Path() / "no-cache"));
  for (const std::string& url :
       {servers.Gateway("open"), "https://" + servers.tls.Authority() + "/"}) {
    const Posted posted =
        PostOnce(url, {.schemes = kAuthNegotiate, .proxy = Proxy("NEGOTIATE_PROXY")});
    EXPECT_THAT(posted.error, HasSubstr("HTTP 407 Proxy Authentication Required: there is no "
                                        "Kerberos ticket; run kinit (it offers Negotiate; "));
  }
}

TEST_F(LogIn, ToolUsesTheProxyOfTheEnvironment) {
  Servers& servers = Servers::Get();
  std::map<std::string, std::string> environment =
      servers.realm.Client(Realm::View::kCorrect, servers.realm.LogIn("ann"));
  environment["XMLA_IMPORT_PASSWORD"] = TheUsers().at("ann");
  const struct {
    const char* host;
    const char* password;  // of the proxy; null: no user
    const char* error;     // null: success
  } kCases[] = {
      {"PROXY", nullptr, nullptr},
      {"BASIC_PROXY", "canary-proxy", nullptr},
      {"DIGEST_PROXY", "canary-proxy", nullptr},
      {"BASIC_PROXY", "canary-wrong", "the proxy rejected the user name or the password"},
      {"DIGEST_PROXY", nullptr, "put the proxy's user name and password into its URL"},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.host);
    environment["http_proxy"] =
        test.password ? Proxy(test.host, kProxyUser, test.password) : Proxy(test.host);
    const tool::Outcome outcome = RunTool(
        {"--url", servers.GatewayToProvider("basic"), "--user", "ann", "sources"}, environment);
    EXPECT_EQ(outcome.status, test.error ? 1 : 0) << outcome.err;
    EXPECT_THAT(outcome.err, HasSubstr(test.error ? test.error : ""));
  }
}

TEST_F(LogIn, ToolUsesTheTicketForProxyAndService) {
  Servers& servers = Servers::Get();
  std::map<std::string, std::string> environment =
      servers.realm.Client(Realm::View::kCorrect, servers.realm.LogIn("ann"));
  environment["http_proxy"] = Proxy("NEGOTIATE_PROXY");
  const tool::Outcome outcome =
      RunTool({"--url", servers.GatewayToProvider("negotiate"), "sources"}, environment);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
}

TEST_F(LogIn, ProxyMayRefuseATunnel) {
  Servers& servers = Servers::Get();
  // The proxies allow one port.
  const Posted posted =
      PostOnce("https://localhost:" + std::to_string(servers.provider.Port()) + "/",
               {.user = "ann", .password = TheUsers().at("ann"), .proxy = Proxy("PROXY")});
  EXPECT_THAT(posted.error, HasSubstr("the proxy refuses the connection: HTTP 403 Forbidden; "));
  EXPECT_THAT(servers.web.Log("proxy", "CONNECT localhost", 1), Each(EndsWith("| - | -")));
}

// Which proxy is used: the option, or the environment.

struct Choice {
  const char* name;
  std::optional<std::string> option;
  std::map<std::string, std::string> environment;
  bool usesProxy;
};

TEST_F(LogIn, AnEmptyProxyAndNoProxyMeanNone) {
  Servers& servers = Servers::Get();
  const std::string proxy = Proxy("PROXY");
  const Choice kChoices[] = {
      {"TheEnvironments", std::nullopt, {{"http_proxy", proxy}}, true},
      {"AllProtocols", std::nullopt, {{"all_proxy", proxy}}, true},
      {"EmptyOption", "", {{"http_proxy", proxy}}, false},
      {"EmptyOptionForAll", "", {{"all_proxy", proxy}, {"ALL_PROXY", proxy}}, false},
      {"Option", proxy, {{"http_proxy", "http://127.0.0.1:1/"}}, true},
      {"ExemptHost", std::nullopt, {{"http_proxy", proxy}, {"no_proxy", "localhost"}}, false},
      {"AllExempt", std::nullopt, {{"http_proxy", proxy}, {"no_proxy", "*"}}, false},
      {"OtherHostExempt", std::nullopt, {{"http_proxy", proxy}, {"no_proxy", "other"}}, true},
      {"ExemptFromOption", proxy, {{"no_proxy", "localhost"}}, false},
      {"VariableOfCGI", std::nullopt, {{"HTTP_PROXY", proxy}}, false},
  };
  for (const Choice& test : kChoices) {
    SCOPED_TRACE(test.name);
    const Environment environment(test.environment);
    const std::string query = std::string("?") + test.name + ".";
    Given given;
    given.proxy = test.option;
    const Posted posted = PostOnce(servers.Gateway("open") + query, given);
    EXPECT_TRUE(posted.ok) << posted.error;
    EXPECT_EQ(servers.web.Log("service", query, 1).size(), 1u);
    // The proxy has written its line before the service's reply is complete, or writes none.
    EXPECT_EQ(servers.web.Log("proxy", query, test.usesProxy ? 1 : 0).size(),
              test.usesProxy ? 1u : 0u);
  }
}

INSTANTIATE_TEST_SUITE_P(LogIn, ProxyAccepts, testing::ValuesIn(kProxies),
                         [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace login
