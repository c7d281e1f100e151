// Tests the HTTP client's authentication with services and proxies: what it sends, and what it
// never sends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>
#include <tuple>
#include <vector>

#include "HTTPPosting.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/HTTPClientWrapper.h"
#include "support/KerberosTicket.h"
#include "support/LoopbackSocket.h"
#include "support/Settings.h"
#include "support/WireServer.h"

namespace {

using testing::AllOf;
using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const std::string kEmptyPage = "<html/>";

struct LogIn {
  std::string offer;     // headers of the refusal
  std::string accepted;  // start of the accepted Authorization header
};

WireServer::Handler Demanding(const LogIn& logIn) {
  return [logIn](loopback::Connection& connection, const loopback::Request& request) {
    const std::string given = request.Header("authorization");
    if (!logIn.accepted.empty() && given.compare(0, logIn.accepted.size(), logIn.accepted) == 0)
      connection.Send(Answer("<r/>"));
    else
      connection.Send(Answer(kEmptyPage, "401 Unauthorized", logIn.offer));
  };
}

const std::string kBasicOffer = "WWW-Authenticate: Basic realm=\"r\"\r\n";
const std::string kDigestOffer =
    "WWW-Authenticate: Digest realm=\"r\", nonce=\"n\", qop=\"auth\", algorithm=MD5\r\n";
const std::string kBasicOfCanary = "Basic dTpjYW5hcnkvOkA=";  // u:canary/:@

TEST(HTTPAuthentication, SendsNothingBeforeAChallengeAndKeepsTheScheme) {
  WireServer server(Demanding({kBasicOffer, kBasicOfCanary}));
  HTTPClientWrapper client(Wide("http://" + server.Authority() + "/"), L"u", L"canary/:@", 10,
                           nullptr);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(Post(client).ok);
  const auto requests = server.Requests();
  ASSERT_EQ(requests.size(), 4u);
  EXPECT_EQ(requests[0].Header("authorization"), "");
  EXPECT_EQ(requests[1].Header("authorization"), kBasicOfCanary);
  EXPECT_EQ(server.Connections(), 2u) << "the first log-in uses a new one";
}

TEST(HTTPAuthentication, RemovesCredentialsFromTheURL) {
  WireServer server(Demanding({kBasicOffer, kBasicOfCanary}));
  HTTPClientWrapper client(Wide("http://u:canary%2F%3A%40@" + server.Authority() + "/"), L"", L"",
                           10, nullptr);
  EXPECT_TRUE(Post(client).ok);
  EXPECT_THAT(server.Requests().at(1).head, Not(HasSubstr("canary")));
}

TEST(HTTPAuthentication, PrefersTheStrongestOfferedScheme) {
  WireServer server(Demanding({kBasicOffer + kDigestOffer, "Digest username=\"u\""}));
  HTTPClientWrapper client(Wide("http://" + server.Authority() + "/"), L"u", L"p", 10, nullptr);
  EXPECT_TRUE(Post(client).ok);
  EXPECT_TRUE(Post(client).ok);
  for (const loopback::Request& request : server.Requests())
    EXPECT_THAT(request.Header("authorization"), Not(StartsWith("Basic")));
}

TEST(HTTPAuthentication, FallsBackFromNegotiateWithoutATicket) {
  WireServer server(Demanding({"WWW-Authenticate: Negotiate\r\n" + kBasicOffer, kBasicOfCanary}));
  HTTPClientWrapper client(Wide("http://" + server.Authority() + "/"), L"u", L"canary/:@", 10,
                           nullptr);
  EXPECT_TRUE(Post(client).ok);
}

TEST(HTTPAuthentication, FallsBackFromNegotiateToTheNextStrongest) {
  WireServer server(Demanding(
      {"WWW-Authenticate: Negotiate\r\n" + kBasicOffer + kDigestOffer, "Digest username=\"u\""}));
  HTTPClientWrapper client(Wide("http://" + server.Authority() + "/"), L"u", L"canary", 10,
                           nullptr);
  EXPECT_TRUE(Post(client).ok);
  for (const loopback::Request& request : server.Requests())
    EXPECT_THAT(request.Header("authorization"), Not(StartsWith("Basic")));
}

TEST(HTTPAuthentication, RefusedPasswordIsNotSentByAWeakerScheme) {
  WireServer server(Demanding({kDigestOffer + kBasicOffer, ""}));
  HTTPClientWrapper client(Wide("http://" + server.Authority() + "/"), L"u", L"canary", 10,
                           nullptr);
  const Outcome outcome = Post(client);
  EXPECT_THAT(
      outcome.error,
      AllOf(HasSubstr("HTTP 401 Unauthorized: the server rejected the user name or the password; "),
            HasSubstr("(it offers Digest, Basic)"), HasSubstr("check user name and password"),
            Not(HasSubstr("canary"))));
  EXPECT_LE(server.Requests().size(), 3u);
  for (const loopback::Request& request : server.Requests())
    EXPECT_THAT(request.Header("authorization"), Not(StartsWith("Basic")));
}

TEST(HTTPAuthentication, HandlesAChangeOfScheme) {
  std::atomic<bool> changed{false};
  WireServer server([&](loopback::Connection& connection, const loopback::Request& request) {
    Demanding(changed ? LogIn{kDigestOffer, "Digest"} : LogIn{kBasicOffer, "Basic"})(connection,
                                                                                     request);
  });
  HTTPClientWrapper client(Wide("http://" + server.Authority() + "/"), L"u", L"p", 10, nullptr);
  EXPECT_TRUE(Post(client).ok);
  changed = true;
  EXPECT_TRUE(Post(client).ok);
}

TEST(HTTPAuthentication, AcceptsANewNonce) {
  std::atomic<char> nonce{'1'};
  WireServer server([&](loopback::Connection& connection, const loopback::Request& request) {
    const std::string current = std::string("nonce=\"") + nonce.load() + "\"";
    if (request.Header("authorization").find(current) != std::string::npos)
      connection.Send(Answer("<r/>"));
    else
      connection.Send(
          Answer("", "401 Unauthorized",
                 "WWW-Authenticate: Digest realm=\"r\", qop=\"auth\", " + current + "\r\n"));
  });
  HTTPClientWrapper client(Wide("http://" + server.Authority() + "/"), L"u", L"p", 10, nullptr);
  EXPECT_TRUE(Post(client).ok);
  for (const char next : {'2', '3', '4'}) {
    nonce = next;  // as after a restart of the server
    EXPECT_TRUE(Post(client).ok);
    EXPECT_TRUE(Post(client).ok);
  }
  // For each nonce, the password is sent at most once more than needed.
  EXPECT_EQ(server.Requests().size(), 2u + 3 * 4);
}

TEST(HTTPAuthentication, NextRequestTriesAgainAfterARefusal) {
  std::atomic<bool> isWilling{false};
  WireServer server([&](loopback::Connection& connection, const loopback::Request& request) {
    Demanding({kDigestOffer + kBasicOffer, isWilling ? "Digest username=\"u\"" : ""})(connection,
                                                                                      request);
  });
  HTTPClientWrapper client(Wide("http://" + server.Authority() + "/"), L"u", L"p", 10, nullptr);
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(Post(client).ok);
  isWilling = true;
  EXPECT_TRUE(Post(client).ok);
}

TEST(HTTPAuthentication, NeverSendsCredentialsToARedirectTarget) {
  WireServer other(Answer("<r/>"));
  WireServer server(Answer("", "307 Moved", "Location: http://" + other.Authority() + "/\r\n"));
  HTTPClientWrapper client(Wide("http://" + server.Authority() + "/"), L"u", L"p", 10, nullptr);
  EXPECT_THAT(Post(client).error, HasSubstr("points to http://" + other.Authority() + "/"));
  EXPECT_EQ(other.Connections(), 0u);
}

// Sequences of authentication: the schemes that a peer offers in each refusal, and what the client
// sends. A Kerberos ticket of another user is available throughout.

/// Headers of a refusal, one letter per scheme: N(egotiate), D(igest), T (NTLM), B(asic), X
/// (unknown).
std::string Offer(const std::string& letters, const std::string& header) {
  std::string lines;
  for (const char letter : letters) {
    lines += header + ": ";
    lines += letter == 'N'   ? "Negotiate"
             : letter == 'D' ? "Digest realm=\"r\", nonce=\"n\", qop=\"auth\", algorithm=MD5"
             : letter == 'T' ? "NTLM"
             : letter == 'B' ? "Basic realm=\"r\""
                             : "Unknown";
    lines += "\r\n";
  }
  return lines;
}

/// The letter of a valid Authorization header; "-" if there is none.
char Letter(const std::string& given) {
  if (given.empty()) return '-';
  if (given == "Basic dTpw") return 'B';  // u:p
  if (given.starts_with("Digest username=\"u\", realm=\"r\", nonce=\"n\", uri=\"/\"")) return 'D';
  // A ticket is a SPNEGO or Kerberos token; NTLM tokens begin with "NTLMSSP".
  if (given.starts_with("Negotiate YI")) return 'N';
  if (given.starts_with("NTLM TlRMTVNTUAAB")) return 'T';
  return '?';
}

struct LogInCase {
  const char* name;
  unsigned int schemes;
  bool hasUser;
  /// Response to each request: letters refuse and offer these schemes, "" accepts. The last one
  /// repeats. A bar starts the client's next exchange.
  std::vector<const char*> answers;
  const char* sent;  // one letter per request
  const char* says = nullptr;
  const char* sentToProxy =
      nullptr;  // if different from a service: a password is preferred for proxies
};

constexpr unsigned int kAll = kAuthPasswordSchemes | kAuthNegotiate;
constexpr unsigned int kPasswordSchemes = kAuthPasswordSchemes;

const std::vector<LogInCase> kLogIns = {
    {"NothingIsAsked", kAll, true, {""}, "-"},
    {"NoUser", kPasswordSchemes, false, {"NDTB"}, "-"},
    {"NoUserUnknown", kAll, false, {"X"}, "-"},
    {"NoUserAsProcess", kAll, false, {"NDTB", ""}, "-N"},
    {"NoUserAsProcessRefused", kAuthNegotiate, false, {"NDTB"}, "-N"},
    {"NoUserPasswordsOnly", kAll, false, {"DTB"}, "-"},
    {"UserIsNotTheProcess", kPasswordSchemes, true, {"N"}, "-"},
    {"UserBasic", kPasswordSchemes, true, {"NB", ""}, "-B"},
    {"UserDigest", kPasswordSchemes, true, {"NBTD", ""}, "-D"},
    {"UserNTLM", kPasswordSchemes, true, {"BT", "T"}, "-TT"},  // each without the password
    {"UserAsProcessOnRequest", kAll, true, {"NDB", ""}, "-N", nullptr, "-D"},
    {"UserAsProcessAlone", kAuthNegotiate, true, {"NDB", ""}, "-N"},
    {"UserThenPassword", kAll, true, {"NDB", "NDB", ""}, "-ND", nullptr, "-D"},
    {"OnlyAllowed", kAuthDigest, true, {"B"}, "-"},
    {"WrongPassword", kPasswordSchemes, true, {"B"}, "-B"},
    {"WrongPasswordDigest", kPasswordSchemes, true, {"DB"}, "-D"},
    {"WeakerOfferAtOnce",
     kPasswordSchemes,
     true,
     {"DB", "B"},
     "-D",
     "not sent with a weaker scheme"},
    {"WeakerOfferAfterARefusal",
     kPasswordSchemes,
     true,
     {"DB", "D", "|", "B"},
     "-D-",
     "weaker scheme"},
    {"WeakerOfferAfterALogIn", kPasswordSchemes, true, {"D", "", "|", "B"}, "-DD", "weaker scheme"},
    {"WeakerOfferLongAfter",
     kPasswordSchemes,
     true,
     {"D", "", "|", "", "|", "", "|", "B"},
     "-DDDD",
     "weaker scheme"},
    {"WeakerOfferAfterNTLM",
     kPasswordSchemes,
     true,
     {"T", "T", "T", "|", "B"},
     "-TT-",
     "weaker scheme"},
    {"WeakerOfferAfterTheProcess",
     kAuthNegotiate | kAuthBasic,
     true,
     {"N", "", "|", "B"},
     "-NN",
     "weaker scheme",
     "-"},
    {"StrongerOffer", kPasswordSchemes, true, {"B", "", "|", "D", ""}, "-BBD"},
    {"KeptScheme", kPasswordSchemes, true, {"B", "", "|", "", "|", ""}, "-BBB"},
};

class HTTPLogInSequence : public testing::TestWithParam<std::tuple<LogInCase, bool>> {};

TEST_P(HTTPLogInSequence, SendsExactlyTheseSchemes) {
  const LogInCase& test = std::get<0>(GetParam());
  const bool isProxy = std::get<1>(GetParam());
  const KerberosTicket ticket;
  std::mutex mutex;
  std::string sent;
  std::size_t next = 0;
  WireServer server([&](loopback::Connection& connection, const loopback::Request& request) {
    const std::lock_guard lock(mutex);
    const std::string header = isProxy ? "proxy-authorization" : "authorization";
    sent += Letter(request.Header(header));
    EXPECT_EQ(request.Header(isProxy ? "authorization" : "proxy-authorization"), "");
    const std::string answer = test.answers[next];
    if (next + 1 < test.answers.size()) ++next;
    connection.Send(answer.empty() ? Answer("<r/>")
                    : isProxy      ? Answer("", "407 No", Offer(answer, "Proxy-Authenticate"))
                                   : Answer("", "401 No", Offer(answer, "WWW-Authenticate")));
  });
  HTTPClientOptions options;
  options.authSchemes = test.schemes;
  const std::string host = "localhost:" + server.Port();
  if (isProxy) options.proxy = Wide("http://" + std::string(test.hasUser ? "u:p@" : "") + host);
  HTTPClientWrapper client(Wide(isProxy ? "http://service.test/" : "http://" + host + "/"),
                           test.hasUser && !isProxy ? L"u" : L"", L"p", 10, &options);
  const auto isNextExchange = [&] {
    const std::lock_guard lock(mutex);
    const bool isBar = std::string(test.answers[next]) == "|";
    if (isBar) ++next;
    return isBar;
  };
  Outcome outcome;
  do outcome = Post(client);
  while (isNextExchange());
  const std::lock_guard lock(mutex);
  const bool isOther = isProxy && test.sentToProxy;
  EXPECT_EQ(sent, isOther ? test.sentToProxy : test.sent) << outcome.error;
  if (test.says && !isOther) {
    EXPECT_THAT(outcome.error, HasSubstr(test.says));
  }
}

INSTANTIATE_TEST_SUITE_P(HTTP, HTTPLogInSequence,
                         testing::Combine(testing::ValuesIn(kLogIns), testing::Bool()),
                         [](const auto& test) {
                           return std::string(std::get<0>(test.param).name) +
                                  (std::get<1>(test.param) ? "WithAProxy" : "");
                         });

/// The Kerberos library's reason is only in libcurl's messages.
TEST(HTTPNegotiate, FailureNamesTheReasonOfKerberos) {
  const KerberosTicket configuration;
  setenv("KRB5CCNAME", "FILE:/proc/no-such-cache", 1);
  for (const bool isProxy : {false, true}) {
    SCOPED_TRACE(isProxy);
    WireServer server(isProxy ? Answer("", "407 No", "Proxy-Authenticate: Negotiate\r\n")
                              : Answer("", "401 No", "WWW-Authenticate: Negotiate\r\n"));
    HTTPClientOptions options;
    options.authSchemes = kAuthNegotiate;
    const std::string url = "http://localhost:" + server.Port() + "/";
    if (isProxy) options.proxy = Wide(url);
    const std::string error = PostOnce(isProxy ? "http://service.test/" : url, 10, &options).error;
    EXPECT_THAT(error, HasSubstr("(it offers Negotiate; gss_init_sec_context() failed: "));
    EXPECT_THAT(error, AnyOf(HasSubstr("No credentials were supplied"), HasSubstr("ache")));
    EXPECT_THAT(error, Not(HasSubstr("\n")));
    // If Negotiate is not allowed, the error does not contain a Kerberos text.
    options.authSchemes = kAuthBasic;
    EXPECT_THAT(PostOnce(isProxy ? "http://service.test/" : url, 10, &options).error,
                Not(HasSubstr("gss_")));
  }
}

/// Two clients of one service or proxy share what they know about its authentication.
class HTTPLogInMemoryOfClients : public testing::TestWithParam<bool> {
 protected:
  HTTPLogInMemoryOfClients() {
    m_options.logInMemory = std::make_shared<HTTPLogInMemory>();
    if (GetParam()) m_options.proxy = Wide("http://u:p@" + m_server.Authority());
  }
  std::unique_ptr<HTTPClientWrapper> Client() {
    return std::make_unique<HTTPClientWrapper>(
        Wide(GetParam() ? "http://service.test/" : "http://" + m_server.Authority() + "/"),
        GetParam() ? L"" : L"u", L"p", 10, &m_options);
  }
  /// The schemes that the peer offers from now on.
  void Offer(const std::string& letters) { m_offer = letters; }
  /// The schemes of the requests so far; "-" for none.
  std::string Sent() {
    std::string sent;
    for (const loopback::Request& request : m_server.Requests())
      sent += Letter(request.Header(GetParam() ? "proxy-authorization" : "authorization"));
    return sent;
  }

 private:
  std::string m_offer;
  HTTPClientOptions m_options;
  WireServer m_server{[this](loopback::Connection& connection, const loopback::Request& request) {
    const bool isProxy = GetParam();
    const std::string given = request.Header(isProxy ? "proxy-authorization" : "authorization");
    if (!given.empty() && given.front() == (m_offer == "D" ? 'D' : 'B'))
      connection.Send(Answer("<r/>"));
    else if (isProxy)
      connection.Send(Answer("", "407 No", ::Offer(m_offer, "Proxy-Authenticate")));
    else
      connection.Send(Answer("", "401 No", ::Offer(m_offer, "WWW-Authenticate")));
  }};
};

TEST_P(HTTPLogInMemoryOfClients, PreventsAWeakerSchemeInTheSecondClient) {
  Offer("D");
  EXPECT_TRUE(Post(*Client()).ok);
  Offer("B");
  const Outcome outcome = Post(*Client());
  EXPECT_FALSE(outcome.ok);
  EXPECT_THAT(outcome.error,
              HasSubstr("the password is not sent with a weaker scheme than before"));
  EXPECT_EQ(Sent(), "-D-");
  Offer("D");
  EXPECT_TRUE(Post(*Client()).ok);
  EXPECT_EQ(Sent(), "-D--D");
}

TEST_P(HTTPLogInMemoryOfClients, PreventsAWeakerSchemeInAnEarlierClient) {
  const auto earlier = Client();
  Offer("B");
  EXPECT_TRUE(Post(*earlier).ok);
  Offer("D");
  EXPECT_TRUE(Post(*Client()).ok);
  Offer("B");
  EXPECT_FALSE(Post(*earlier).ok);
  EXPECT_EQ(Sent(), "-B-D-");
}

INSTANTIATE_TEST_SUITE_P(HTTP, HTTPLogInMemoryOfClients, testing::Bool(), [](const auto& test) {
  return test.param ? "WithAProxy" : "WithAService";
});

/// The authentication methods that a client offers to a SOCKS proxy, as bytes. 0.0.0.0 leads to the
/// loopback interface, but is not recognised as loopback.
std::string OfferedToSOCKS(unsigned int schemes, bool hasUser, const char* host = "127.0.0.1",
                           bool isBasicAllowed = true) {
  support::LoopbackSocket listening;
  listening.Listen(1);
  std::string offered;
  std::thread proxy([&] {
    const int client = ::accept4(listening.Descriptor(), nullptr, nullptr, SOCK_CLOEXEC);
    char bytes[16] = {};
    const ssize_t count = ::recv(client, bytes, sizeof bytes, 0);
    if (count > 2 && bytes[0] == 5) offered.assign(bytes + 2, static_cast<std::size_t>(count - 2));
    ::close(client);
  });
  HTTPClientOptions options;
  options.authSchemes = schemes;
  options.allowBasicOverPlainHttp = isBasicAllowed;
  options.proxy = Wide(std::string("socks5h://") + (hasUser ? "u:p@" : "") + host + ":" +
                       std::to_string(listening.Port()));
  HTTPClientWrapper client(L"http://service.test/", L"", L"", 10, &options);
  Post(client);
  proxy.join();
  return offered;
}

TEST(HTTPLogInToSOCKS, UsesTheProcesssTicketOnlyIfAllowed) {
  const std::string kNone(1, '\0');
  const std::string kProcess = "\1";
  const std::string kUser = "\2";
  EXPECT_EQ(OfferedToSOCKS(kPasswordSchemes, false), kNone);
  EXPECT_EQ(OfferedToSOCKS(kPasswordSchemes, true), kNone + kUser);
  // The password is sent to the proxy unchanged.
  EXPECT_EQ(OfferedToSOCKS(kAuthDigest | kAuthNTLM, true), kNone);
  EXPECT_EQ(OfferedToSOCKS(kPasswordSchemes, true, "127.0.0.1", false), kNone + kUser);
  EXPECT_EQ(OfferedToSOCKS(kPasswordSchemes, true, "0.0.0.0", true), kNone + kUser);
  EXPECT_EQ(OfferedToSOCKS(kPasswordSchemes, true, "0.0.0.0", false), kNone);
  EXPECT_THAT(OfferedToSOCKS(kAuthNegotiate, false), HasSubstr(kProcess));
  EXPECT_THAT(OfferedToSOCKS(kAll, true), Not(HasSubstr(kProcess)));
}

// Control characters in credentials could start another header or request.

TEST(HTTPCredentials, ControlCharactersAreRefused) {
  const KerberosTicket ticket;
  WireServer server(Answer("<r/>"));
  const std::string host = server.Authority() + "/";
  const struct {
    std::string url;
    String user;
    String password;
    std::string proxy;
    const char* says;
  } kCases[] = {
      {"http://" + host, L"ann\r\nX: y", L"p", "", "The user name contains a control character"},
      {"http://" + host, String(L"ann\0b", 5), L"p", "", "The user name contains a control"},
      {"http://" + host, L"DOMAIN\n\\ann", L"p", "", "The user name contains a control"},
      {"http://" + host, L"ann\x7F", L"p", "", "The user name contains a control character"},
      {"http://" + host, L"ann", L"p\r", "", "The password contains a control character"},
      {"http://" + host, L"ann", L"\t", "", "The password contains a control character"},
      {"http://ann%0d%0aX:p@" + host, L"", L"", "", "The user name contains a control character"},
      {"http://ann:p%0A@" + host, L"", L"", "", "The password contains a control character"},
      {"http://ann:p%00@" + host, L"", L"", "", "The password contains a control character"},
      {"http://ann\r\n:p@" + host, L"", L"", "", "The user name contains a control character"},
      {"http://" + host + "a\r\nX: y", L"", L"", "", ": the URL of the service cannot be used"},
      {"http://" + host, L"", L"", "http://a%0db:p@h", "The proxy's user name contains"},
      {"http://" + host, L"", L"", "a:p%0d@h:1", "The proxy's password contains"},
      {"http://" + host, L"", L"", "http://h\n", "The proxy's URL contains"},
  };
  for (const auto& test : kCases)
    for (const unsigned int schemes : {0u, unsigned{kAuthBasic}, unsigned{kAuthDigest},
                                       unsigned{kAuthNTLM}, unsigned{kAuthNegotiate}, kAll}) {
      HTTPClientOptions options;
      options.authSchemes = schemes;
      options.proxy = Wide(test.proxy);
      try {
        HTTPClientWrapper client(Wide(test.url), test.user, test.password, 10, &options);
        ADD_FAILURE() << test.says << ": " << test.url;
      } catch (const ErrorMessage& error) {
        String text;
        error.RetrieveErrorMessages(text);
        EXPECT_THAT(Narrow(text), AllOf(HasSubstr(test.says), Not(HasSubstr("\n"))));
      }
    }
  EXPECT_EQ(server.Connections(), 0u);
}

TEST(HTTPCredentials, OtherSpecialCharactersStayInTheirHeader) {
  WireServer server(Answer("", "401 No", kDigestOffer));
  HTTPClientWrapper client(Wide("http://" + server.Authority() + "/"), L"a\"b\\c, d=e\x85", L"p",
                           10, nullptr);
  EXPECT_FALSE(Post(client).ok);
  EXPECT_THAT(server.Requests().at(1).Header("authorization"),
              StartsWith("Digest username=\"a\\\"b\\\\c, d=e\xC2\x85\", realm=\"r\""));
}

// Basic over plain HTTP to another machine exposes the password to the network.

class LastExchange : public HTTPExchangeObserver {
 public:
  LastExchange() { m_settings.exchangeObserver = this; }
  void OnExchange(const HTTPExchangeInfo& info) override { basicInClear = info.basicInClear; }
  bool basicInClear = false;

 private:
  support::Settings m_settings;
};

struct ClearCase {
  const char* name;
  const char* offer;    // a letter
  const char* service;  // a URL; "here" stands for the server's host
  const char* proxy;    // a URL, or none
  bool isInClear;       // sent, when allowed
};

class HTTPBasic : public testing::TestWithParam<ClearCase> {};

TEST_P(HTTPBasic, OverPlainHttpToAnotherMachineIsReportedAndCanBeForbidden) {
  const ClearCase& test = GetParam();
  const bool isProxys = test.proxy && std::string(test.proxy).find('@') != std::string::npos;
  WireServer server([&](loopback::Connection& connection, const loopback::Request& request) {
    const bool isKnown = request.head.find("uthorization: ") != std::string::npos;
    connection.Send(isKnown    ? Answer("<r/>")
                    : isProxys ? Answer("", "407 No", Offer(test.offer, "Proxy-Authenticate"))
                               : Answer("", "401 No", Offer(test.offer, "WWW-Authenticate")));
  });
  const auto filled = [&](std::string url) {
    const std::string host = "here";
    if (const std::size_t place = url.find(host); place != std::string::npos)
      url.replace(place, host.size(), server.Authority());
    return Wide(url);
  };
  for (const bool isAllowed : {true, false}) {
    LastExchange last;
    HTTPClientOptions options;
    options.allowBasicOverPlainHttp = isAllowed;
    options.proxy = test.proxy ? filled(test.proxy) : String();
    HTTPClientWrapper client(filled(test.service), isProxys ? L"" : L"u", L"p", 10, &options);
    const Outcome outcome = Post(client);
    EXPECT_EQ(outcome.ok, isAllowed || !test.isInClear) << outcome.error;
    EXPECT_EQ(last.basicInClear, isAllowed && test.isInClear);
    if (!outcome.ok) {
      EXPECT_THAT(outcome.error, HasSubstr("allowBasicOverPlainHttp"));
    }
    Post(client);
    EXPECT_EQ(last.basicInClear, isAllowed && test.isInClear);
  }
}

INSTANTIATE_TEST_SUITE_P(
    HTTP, HTTPBasic,
    testing::ValuesIn(std::vector<ClearCase>{
        {"ToThisMachine", "B", "http://here/", nullptr, false},
        {"ByAProxyToAnotherMachine", "B", "http://service.test/", "http://here", true},
        {"DigestToAnotherMachine", "D", "http://service.test/", "http://here", false},
        {"ToANameLikeThisMachine", "B", "http://127.0.0.1.test/", "http://here", true},
        {"ToTheProxyOfThisMachine", "B", "http://service.test/", "http://u:p@here", false},
    }),
    [](const auto& test) { return test.param.name; });

}  // namespace
