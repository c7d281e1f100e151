// The command check with servers that ask for a log-in, and with proxies: the step that fails, and
// what to do.
#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <thread>

#include "Servers.h"
#include "SilentKDC.h"
#include "commands/ConnectionSteps.h"

namespace login {
namespace {

using testing::HasSubstr;
using View = Realm::View;

enum class TicketOf { kNobody, kAnn, kAnnExpired };

struct CheckCase {
  const char* name;
  std::string (*url)();
  const char* user;  // null: none
  std::string password;
  TicketOf ticket;
  View view;
  std::string (*proxy)();  // null: none
  const char* failed;
  const char* found;
  const char* advice;
};

template <int index>
std::string Folder() {
  constexpr const char* kFolders[] = {
      "negotiate", "negotiate-or-basic", "old-key", "wrong-key", "only-bob", "basic", "digest",
      "open"};
  return Servers::Get().Gateway(kFolders[index]);
}
const auto kNegotiate = &Folder<0>;
const auto kNegotiateOrBasic = &Folder<1>;
const auto kOldKey = &Folder<2>;
const auto kWrongKey = &Folder<3>;
const auto kOnlyBob = &Folder<4>;
const auto kBasic = &Folder<5>;
const auto kDigest = &Folder<6>;
const auto kOpen = &Folder<7>;

std::string ByAddress() { return Servers::Get().Gateway("negotiate", "127.0.0.1"); }
std::string NTLMKept() { return Servers::Get().PasswordServer("/ntlm"); }
std::string NTLMClosing() { return Servers::Get().PasswordServer("/ntlm-closing"); }
std::string SHA256() { return Servers::Get().PasswordServer("/digest"); }
std::string TLS() { return "https://" + Servers::Get().tls.Authority() + "/"; }
/// The proxies allow another port only.
std::string OtherPort() {
  return "https://localhost:" + std::to_string(Servers::Get().provider.Port()) + "/";
}

std::string ProxyAt(const char* host, const std::string& credentials = "") {
  return "http://" + credentials + "localhost:" + std::to_string(Servers::Get().web.Port(host)) +
         "/";
}
std::string OpenProxy() { return ProxyAt("PROXY"); }
std::string BasicProxy() { return ProxyAt("BASIC_PROXY"); }
std::string WrongBasicProxy() { return ProxyAt("BASIC_PROXY", "proxy-ann:canary-wrong@"); }
std::string WrongDigestProxy() { return ProxyAt("DIGEST_PROXY", "proxy-ann:canary-wrong@"); }
std::string TicketProxy() { return ProxyAt("NEGOTIATE_PROXY"); }
std::string TLSToPlainProxy() { return "https" + ProxyAt("PROXY").substr(4); }
std::string SOCKSToHTTP() { return "socks5h" + ProxyAt("PROXY").substr(4); }
std::string ClosedProxy() { return "http://127.0.0.1:1/"; }
std::string ClosedSOCKS() { return "socks5h://127.0.0.1:1/"; }

const char kUserOrPassword[] = "the server rejected the user name or the password";
const char kCheckUser[] = "check user name and password";

const std::vector<CheckCase> kChecks = {
    {"NoTicket", kNegotiate, nullptr, "", TicketOf::kNobody, View::kCorrect, nullptr, "log-in",
     "there is no Kerberos ticket", "run kinit"},
    {"NoTicketButPassword", kNegotiateOrBasic, nullptr, "", TicketOf::kNobody, View::kCorrect,
     nullptr, "log-in", "there is no Kerberos ticket", "run kinit, or use --user NAME"},
    {"ExpiredTicket", kNegotiate, nullptr, "", TicketOf::kAnnExpired, View::kCorrect, nullptr,
     "log-in", "the Kerberos ticket has expired", "run kinit again"},
    {"UnknownService", ByAddress, nullptr, "", TicketOf::kAnn, View::kCorrect, nullptr, "log-in",
     "does not know the service HTTP/127.0.0.1", "check the host name"},
    {"ClockSkew", kNegotiate, nullptr, "", TicketOf::kAnn, View::kFastClock, nullptr, "log-in",
     "differ too much", "set the wrong clock"},
    {"OtherRealm", kNegotiate, nullptr, "", TicketOf::kAnn, View::kOtherRealm, nullptr, "log-in",
     "does not know the realm", "domain_realm"},
    {"KDCIsDown", kNegotiate, nullptr, "", TicketOf::kAnn, View::kKDCIsDown, nullptr, "log-in",
     "no Kerberos server (KDC)", "the realm's kdc in /etc/krb5.conf"},
    {"NoKDC", kNegotiate, nullptr, "", TicketOf::kAnn, View::kNoKDC, nullptr, "log-in",
     "no Kerberos server (KDC)", "the realm's kdc in /etc/krb5.conf"},
    {"OldKey", kOldKey, nullptr, "", TicketOf::kAnn, View::kCorrect, nullptr, "log-in",
     "cannot decrypt the Kerberos ticket", "keytab"},
    {"WrongKey", kWrongKey, nullptr, "", TicketOf::kAnn, View::kCorrect, nullptr, "log-in",
     "cannot decrypt the Kerberos ticket", "keytab"},
    {"MayNotLogIn", kOnlyBob, nullptr, "", TicketOf::kAnn, View::kCorrect, nullptr, "log-in",
     "the server rejected the Kerberos ticket", "check with klist"},
    {"PasswordForTicket", kNegotiate, "bob", "canary", TicketOf::kAnn, View::kCorrect, nullptr,
     "log-in", "no way to log in that can be used here", "log in with a Kerberos ticket"},
    {"NoUserForBasic", kBasic, nullptr, "", TicketOf::kNobody, View::kCorrect, nullptr, "log-in",
     "the server requires a log-in", "use --user NAME"},
    {"WrongBasic", kBasic, "ann", "canary-wrong", TicketOf::kNobody, View::kCorrect, nullptr,
     "log-in", kUserOrPassword, kCheckUser},
    {"WrongDigest", kDigest, "ann", "canary-wrong", TicketOf::kNobody, View::kCorrect, nullptr,
     "log-in", kUserOrPassword, kCheckUser},
    {"WrongDigestSHA256", SHA256, "ann", "canary-wrong", TicketOf::kNobody, View::kCorrect, nullptr,
     "log-in", kUserOrPassword, kCheckUser},
    {"WrongNTLM", NTLMKept, "ann", "canary-wrong", TicketOf::kNobody, View::kCorrect, nullptr,
     "log-in", kUserOrPassword, kCheckUser},
    {"NTLMClosing", NTLMClosing, "ann", "canary-ann", TicketOf::kNobody, View::kCorrect, nullptr,
     "log-in", "closed in the middle of the log-in", "keep connections open"},
    {"ColonInBasic", kBasic, "ann:lee", "canary-colon", TicketOf::kNobody, View::kCorrect, nullptr,
     "log-in", "HTTP 401", "use another user name"},
    // Proxies.
    {"ProxyWithoutUser", kOpen, "ann", "canary", TicketOf::kNobody, View::kCorrect, BasicProxy,
     "proxy", "HTTP 407", "put the proxy's user name and password into its URL"},
    {"ProxyWithWrongPassword", kOpen, "ann", "canary", TicketOf::kNobody, View::kCorrect,
     WrongBasicProxy, "proxy", "the proxy rejected the user name", "in the proxy's URL"},
    {"TunnelWithWrongPassword", TLS, "ann", "canary", TicketOf::kNobody, View::kCorrect,
     WrongDigestProxy, "proxy", "the proxy rejected the user name", "in the proxy's URL"},
    {"ProxyWithoutTicket", kOpen, nullptr, "", TicketOf::kNobody, View::kCorrect, TicketProxy,
     "proxy", "there is no Kerberos ticket", "run kinit"},
    {"TunnelWithoutTicket", TLS, nullptr, "", TicketOf::kNobody, View::kCorrect, TicketProxy,
     "proxy", "there is no Kerberos ticket", "run kinit"},
    {"TunnelRefused", OtherPort, nullptr, "", TicketOf::kNobody, View::kCorrect, OpenProxy, "proxy",
     "the proxy refuses the connection: HTTP 403 Forbidden", "ask the"},
    {"TLSToAPlainProxy", kOpen, nullptr, "", TicketOf::kNobody, View::kCorrect, TLSToPlainProxy,
     "proxy", "does not use TLS on this port", "check the proxy setting"},
    {"SOCKSToAnHTTPProxy", kOpen, nullptr, "", TicketOf::kNobody, View::kCorrect, SOCKSToHTTP,
     "proxy", "no connection through the proxy", "check the proxy setting"},
    {"NoProxyThere", kOpen, nullptr, "", TicketOf::kNobody, View::kCorrect, ClosedProxy, "proxy",
     "cannot connect to the proxy", "check the proxy setting"},
    {"NoSOCKSProxyThere", kOpen, nullptr, "", TicketOf::kNobody, View::kCorrect, ClosedSOCKS,
     "proxy", "cannot connect to the proxy", "check the proxy setting"},
};

class Check : public LogIn, public testing::WithParamInterface<CheckCase> {
 protected:
  static std::map<std::string, std::string> Variables(const CheckCase& test) {
    const Realm& realm = Servers::Get().realm;
    std::string cache = Servers::Get().folder.Path() / "no-cache";
    if (test.ticket == TicketOf::kAnn) cache = realm.LogIn("ann");
    if (test.ticket == TicketOf::kAnnExpired) {
      cache = realm.LogIn("ann", "1s");
      std::this_thread::sleep_for(std::chrono::milliseconds(2100));
    }
    auto variables = realm.Client(test.view, cache);
    if (!test.password.empty()) variables["XMLA_IMPORT_PASSWORD"] = test.password;
    variables["MORVEN_BI_XMLA_HTTP_TIMEOUT"] = "2";
    if (test.proxy)  // not an option, whose value other users can read
      for (const char* const name : {"http_proxy", "https_proxy"}) variables[name] = test.proxy();
    return variables;
  }
};

/// The steps before the failed one are ok, and those after it are skipped because of it.
TEST_P(Check, FailsAtTheRightStep) {
  const CheckCase& test = GetParam();
  tool::Arguments arguments{"--url", test.url(), "--format", "json", "check"};
  if (test.user) arguments.insert(arguments.end(), {"--user", test.user});
  const tool::Outcome outcome = RunTool(arguments, Variables(test));
  EXPECT_EQ(outcome.status, 1) << outcome.err;
  const tool::Json document = outcome.Document();
  std::size_t index = 0;
  bool isAfter = false;
  for (const tool::Json& step : document["steps"]) {
    if (std::string(kCheckSteps[index]) == "variables") ++index;  // of another kind
    ASSERT_EQ(step["step"], kCheckSteps[index++]);
    SCOPED_TRACE(step.dump());
    if (step["step"] == test.failed) {
      EXPECT_EQ(step["status"], "failed");
      EXPECT_THAT(step["found"].get<std::string>(), HasSubstr(test.found));
      EXPECT_THAT(step["advice"].get<std::string>(), HasSubstr(test.advice));
      isAfter = true;
    } else {
      EXPECT_EQ(step["status"], isAfter ? "skipped" : "ok");
      if (!isAfter) continue;
      EXPECT_EQ(step["found"], "needs the step \"" + std::string(test.failed) + "\"");
    }
  }
  EXPECT_TRUE(isAfter);
  EXPECT_EQ(index, std::size(kCheckSteps));
}

INSTANTIATE_TEST_SUITE_P(LogIn, Check, testing::ValuesIn(kChecks),
                         [](const auto& test) { return test.param.name; });

TEST_F(LogIn, CheckNamesTheLogInThatWaitsForAKDC) {
  const SilentKDC kdc;
  const Realm& realm = Servers::Get().realm;
  tool::Options options;
  options.environment = realm.ClientOf(kdc.Address(), realm.LogIn("ann"));
  options.out = options.err = tool::Stream::kTerminal;
  const tool::Outcome outcome = tool::RunToolWhile(
      {"--url", Servers::Get().GatewayToProvider("negotiate"), "check"},
      [&](pid_t process) {
        EXPECT_TRUE(kdc.Await(10'000));
        std::this_thread::sleep_for(std::chrono::milliseconds(700));
        kill(process, SIGINT);
      },
      options);
  EXPECT_EQ(outcome.status, 130);
  EXPECT_THAT(outcome.out, HasSubstr("ok       connection "));
  EXPECT_THAT(outcome.out, HasSubstr("skipped  log-in           interrupted in this step"));
  EXPECT_THAT(outcome.err, HasSubstr("logging in to localhost"));
  EXPECT_THAT(outcome.err, HasSubstr("interrupted in the step \"log-in\""));
}

}  // namespace
}  // namespace login
