// Log-in with user and password: Basic, Digest and NTLM.
#include <gmock/gmock.h>

#include <regex>

#include "Servers.h"

namespace login {
namespace {

using testing::AllOf;
using testing::HasSubstr;

/// A way to log in: the server's URL and the only scheme that it offers.
struct Way {
  const char* name;
  std::string (*url)();
  unsigned int scheme;
};

std::string Basic() { return Servers::Get().Gateway("basic"); }
std::string Digest() { return Servers::Get().Gateway("digest"); }
std::string DigestSHA256() { return Servers::Get().PasswordServer("/digest"); }
std::string NTLM() { return Servers::Get().PasswordServer("/ntlm"); }

const std::vector<Way> kWays = {{"Basic", Basic, kAuthBasic},
                                {"Digest", Digest, kAuthDigest},
                                {"DigestSHA256", DigestSHA256, kAuthDigest},
                                {"NTLM", NTLM, kAuthNTLM}};

class Password : public LogIn, public testing::WithParamInterface<Way> {
 protected:
  /// True if the way can carry the user's name.
  bool CanSend(const std::string& user) const {
    // In files of httpd, a colon ends the name; in NTLM, a backslash ends the domain.
    const bool isFileOfHttpd = GetParam().url == Basic || GetParam().url == Digest;
    return user.find(isFileOfHttpd ? ':' : '\\') == std::string::npos ||
           GetParam().url == DigestSHA256;
  }
};

TEST_P(Password, EveryUserLogsIn) {
  for (const auto& [user, password] : TheUsers()) {
    SCOPED_TRACE(user);
    Client client(GetParam().url(), {.user = user, .password = password});
    for (int request = 0; request < 2 && CanSend(user); ++request) {
      const Posted posted = client.Post();
      EXPECT_TRUE(posted.ok) << posted.error;
    }
  }
}

TEST_P(Password, AWrongPasswordIsRejected) {
  for (const auto& [user, password] : TheUsers()) {
    if (!CanSend(user)) continue;
    SCOPED_TRACE(user);
    for (const std::string& wrong : {password + "x", std::string()}) {
      const Posted posted = PostOnce(GetParam().url(), {.user = user, .password = wrong});
      EXPECT_THAT(posted.error,
                  HasSubstr("HTTP 401 Unauthorized: the server rejected the user name or the "
                            "password; check user name and password (it offers "));
    }
  }
}

TEST_P(Password, AnUnknownUserIsRejected) {
  EXPECT_THAT(PostOnce(GetParam().url(), {.user = "nobody", .password = "canary"}).error,
              HasSubstr("the server rejected the user name or the password"));
}

TEST_P(Password, IsNotSentIfItsSchemeIsNotAllowed) {
  const Given given{.user = "ann",
                    .password = TheUsers().at("ann"),
                    .schemes = kAuthPasswordSchemes & ~GetParam().scheme};
  EXPECT_THAT(PostOnce(GetParam().url(), given).error,
              AllOf(HasSubstr(": the server offers "),
                    HasSubstr(" are allowed; allow one of the schemes that it offers")));
}

TEST_P(Password, AWrongOneIsAnErrorOfTheTool) {
  const tool::Outcome outcome = RunTool(
      {"--url", GetParam().url(), "--user", "ann", "--target", "tessera", "--verbose", "sources"},
      {{"XMLA_IMPORT_PASSWORD", "canary-wrong"}});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err,
              HasSubstr("the server rejected the user name or the password; check user name and "
                        "password (it offers "));
}

INSTANTIATE_TEST_SUITE_P(LogIn, Password, testing::ValuesIn(kWays),
                         [](const auto& test) { return test.param.name; });

TEST_F(LogIn, ToolImportsWithAPasswordAndLogsNoSecret) {
  const Servers& servers = Servers::Get();
  const support::TempDir logs;
  for (const char* const folder : {"basic", "digest"}) {
    const tool::Outcome outcome = RunTool({"--url", servers.GatewayToProvider(folder), "--user",
                                           "umlaut", "--log", logs.Path(), "--verbose", "import"},
                                          {{"XMLA_IMPORT_PASSWORD", TheUsers().at("umlaut")}});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
  }
  EXPECT_FALSE(logs.Files().empty());
  for (const auto& file : logs.Files()) ExpectNoSecret(FileText(file));
}

// Names and passwords that a scheme cannot send are not sent at all.

struct Unsendable {
  const char* offer;
  const char* user;
  const char* password;
  bool isProxy;
  const char* says;
};

const std::vector<Unsendable> kUnsendable = {
    {"Basic realm=\"r\"", "ann:lee", "canary", false,
     "; Basic cannot send a user name with a colon: use another user name, or ask the "
     "administrator for another way to log in (it offers Basic)"},
    {"Basic realm=\"r\"", "ann%3Alee", "canary", true,
     "; Basic cannot send a user name with a colon"},
    {"NTLM", "анна", "canary", false,
     "; NTLM can send only characters of ISO 8859-1 (Latin-1): use another user name or password, "
     "or ask the administrator for another way to log in (it offers NTLM)"},
    {"NTLM", "ann", "canary-€", false, "; NTLM can send only characters of ISO 8859-1"},
    {"NTLM", "j%C3%BCrgen", "canary", true, "; NTLM can send only ASCII characters to a proxy"},
};

TEST_F(LogIn, UnsendableNamesAndPasswordsAreNotSent) {
  for (const Unsendable& test : kUnsendable) {
    SCOPED_TRACE(test.says);
    const std::string header = test.isProxy ? "Proxy-Authenticate: " : "WWW-Authenticate: ";
    WireServer server(Answer("", test.isProxy ? "407 No" : "401 No", header + test.offer + "\r\n"));
    Given given;
    if (test.isProxy) {
      given.proxy =
          std::string("http://") + test.user + ":" + test.password + "@" + server.Authority();
    } else {
      given.user = test.user;
      given.password = test.password;
    }
    const Posted posted = PostOnce("http://" + server.Authority() + "/", given);
    EXPECT_THAT(posted.error, HasSubstr(test.says));
    EXPECT_EQ(server.Requests().size(), 1u);
  }
}

/// The value of an attribute in the password server's reply.
std::string Attribute(const std::string& reply, const std::string& name) {
  std::smatch match;
  return std::regex_search(reply, match, std::regex(name + "=\"([^\"]*)\"")) ? match.str(1) : "";
}

struct Domain {
  const char* user;
  const char* domain;  // that the server gets; null: rejected
};

TEST_F(LogIn, NTLMUsersMayHaveADomain) {
  const Domain kDomains[] = {
      {"ann", ""}, {"CORP\\ann", "CORP"}, {"CORP/ann", "CORP"}, {"OTHER\\ann", nullptr}};
  for (const Domain& test : kDomains) {
    SCOPED_TRACE(test.user);
    const Posted posted = PostOnce(NTLM(), {.user = test.user, .password = TheUsers().at("ann")});
    EXPECT_EQ(posted.ok, test.domain != nullptr) << posted.error;
    if (!test.domain) continue;
    EXPECT_EQ(Attribute(posted.reply, "user"), "ann");
    EXPECT_EQ(Attribute(posted.reply, "domain"), test.domain);
  }
}

TEST_F(LogIn, NTLMLogsInOncePerConnection) {
  Client client(NTLM(), {.user = "ann", .password = TheUsers().at("ann")});
  const std::string first = client.Post().reply;
  for (int request = 0; request < 3; ++request) {
    const std::string next = client.Post().reply;
    EXPECT_EQ(Attribute(next, "connection"), Attribute(first, "connection"));
    EXPECT_EQ(Attribute(next, "handshakes"), Attribute(first, "handshakes"));
  }
  EXPECT_NE(Attribute(first, "handshakes"), "");
}

TEST_F(LogIn, NTLMLogsInAgainOnANewConnection) {
  Client client(Servers::Get().PasswordServer("/ntlm-once"),
                {.user = "ann", .password = TheUsers().at("ann")});
  std::string former;
  for (int request = 0; request < 8; ++request) {
    const Posted posted = client.Post();
    EXPECT_TRUE(posted.ok) << posted.error;
    EXPECT_NE(Attribute(posted.reply, "connection"), former);
    former = Attribute(posted.reply, "connection");
  }
}

TEST_F(LogIn, NTLMFailsIfTheConnectionEndsBetweenTheRounds) {
  for (const char* const path : {"/ntlm-closing", "/ntlm-gone"}) {
    SCOPED_TRACE(path);
    const Posted posted = PostOnce(Servers::Get().PasswordServer(path),
                                   {.user = "ann", .password = TheUsers().at("ann")});
    EXPECT_FALSE(posted.ok);
    EXPECT_THAT(posted.error,
                HasSubstr("HTTP 401 Unauthorized: the connection was closed in the middle of the "
                          "log-in; ask the administrator of the server, or of a gateway before it, "
                          "to keep connections open, which NTLM requires (it offers NTLM)"));
  }
}

}  // namespace
}  // namespace login
