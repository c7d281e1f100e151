// How the HTTP client logs in to a service and to a proxy: what it sends, and what it never sends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>

#include "HTTPPosting.h"
#include "ScriptedServer.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/HTTPClientWrapper.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const std::string kPage = "<html/>";

struct LogIn {
  std::string offer;     // header lines of the refusal
  std::string accepted;  // how an accepted Authorization begins
};

ScriptedServer::Handler Demanding(const LogIn& logIn) {
  return [logIn](ServedConnection& connection, const ReceivedRequest& request) {
    const std::string given = request.Header("authorization");
    if (!logIn.accepted.empty() && given.compare(0, logIn.accepted.size(), logIn.accepted) == 0)
      connection.Send(Answer("<r/>"));
    else
      connection.Send(Answer(kPage, "401 Unauthorized", logIn.offer));
  };
}

const std::string kBasicOffer = "WWW-Authenticate: Basic realm=\"r\"\r\n";
const std::string kDigestOffer =
    "WWW-Authenticate: Digest realm=\"r\", nonce=\"n\", qop=\"auth\", algorithm=MD5\r\n";
const std::string kBasicOfCanary = "Basic dTpjYW5hcnkvOkA=";  // u:canary/:@

TEST(HTTPAuthentication, SendsNothingBeforeItIsAskedAndThenKeepsToTheScheme) {
  ScriptedServer server(Demanding({kBasicOffer, kBasicOfCanary}));
  HTTPClientWrapper client(Wide("http://" + server.Authority() + "/"), L"u", L"canary/:@", 10,
                           nullptr);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(Post(client).ok);
  const auto requests = server.Requests();
  ASSERT_EQ(requests.size(), 4u);
  EXPECT_EQ(requests[0].Header("authorization"), "");
  EXPECT_EQ(requests[1].Header("authorization"), kBasicOfCanary);
  EXPECT_EQ(server.Connections(), 1u);
}

TEST(HTTPAuthentication, TakesCredentialsOutOfTheURL) {
  ScriptedServer server(Demanding({kBasicOffer, kBasicOfCanary}));
  HTTPClientWrapper client(Wide("http://u:canary%2F%3A%40@" + server.Authority() + "/"), L"", L"",
                           10, nullptr);
  EXPECT_TRUE(Post(client).ok);
  EXPECT_THAT(server.Requests().at(1).head, Not(HasSubstr("canary")));
}

TEST(HTTPAuthentication, TakesTheStrongerOfWhatIsOffered) {
  ScriptedServer server(Demanding({kBasicOffer + kDigestOffer, "Digest username=\"u\""}));
  HTTPClientWrapper client(Wide("http://" + server.Authority() + "/"), L"u", L"p", 10, nullptr);
  EXPECT_TRUE(Post(client).ok);
  EXPECT_TRUE(Post(client).ok);
  for (const ReceivedRequest& request : server.Requests())
    EXPECT_THAT(request.Header("authorization"), Not(StartsWith("Basic")));
}

TEST(HTTPAuthentication, FallsBackFromNegotiateWithoutATicket) {
  ScriptedServer server(
      Demanding({"WWW-Authenticate: Negotiate\r\n" + kBasicOffer, kBasicOfCanary}));
  HTTPClientWrapper client(Wide("http://" + server.Authority() + "/"), L"u", L"canary/:@", 10,
                           nullptr);
  EXPECT_TRUE(Post(client).ok);
}

TEST(HTTPAuthentication, FallsBackFromNegotiateToTheNextStrongest) {
  ScriptedServer server(Demanding(
      {"WWW-Authenticate: Negotiate\r\n" + kBasicOffer + kDigestOffer, "Digest username=\"u\""}));
  HTTPClientWrapper client(Wide("http://" + server.Authority() + "/"), L"u", L"canary", 10,
                           nullptr);
  EXPECT_TRUE(Post(client).ok);
  for (const ReceivedRequest& request : server.Requests())
    EXPECT_THAT(request.Header("authorization"), Not(StartsWith("Basic")));
}

TEST(HTTPAuthentication, RefusedPasswordIsNotSentAgainByAWeakerScheme) {
  ScriptedServer server(Demanding({kDigestOffer + kBasicOffer, ""}));
  HTTPClientWrapper client(Wide("http://" + server.Authority() + "/"), L"u", L"canary", 10,
                           nullptr);
  const Outcome outcome = Post(client);
  EXPECT_THAT(outcome.error,
              AllOf(StartsWith("HTTP 401 Unauthorized, log-in offered: Digest, Basic: "),
                    HasSubstr("check user name and password"), Not(HasSubstr("canary"))));
  EXPECT_LE(server.Requests().size(), 3u);
  for (const ReceivedRequest& request : server.Requests())
    EXPECT_THAT(request.Header("authorization"), Not(StartsWith("Basic")));
}

TEST(HTTPAuthentication, SurvivesAChangeOfScheme) {
  std::atomic<bool> changed{false};
  ScriptedServer server([&](ServedConnection& connection, const ReceivedRequest& request) {
    Demanding(changed ? LogIn{kDigestOffer, "Digest"} : LogIn{kBasicOffer, "Basic"})(connection,
                                                                                     request);
  });
  HTTPClientWrapper client(Wide("http://" + server.Authority() + "/"), L"u", L"p", 10, nullptr);
  EXPECT_TRUE(Post(client).ok);
  changed = true;
  EXPECT_TRUE(Post(client).ok);
}

TEST(HTTPAuthentication, TakesANewNonce) {
  std::atomic<char> nonce{'1'};
  ScriptedServer server([&](ServedConnection& connection, const ReceivedRequest& request) {
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
  nonce = '2';  // as after a restart of the server
  EXPECT_TRUE(Post(client).ok);
  EXPECT_TRUE(Post(client).ok);
  EXPECT_EQ(server.Requests().size(), 5u);
}

TEST(HTTPAuthentication, NeverSendsCredentialsWhereARedirectPoints) {
  ScriptedServer other(Answer("<r/>"));
  ScriptedServer server(Answer("", "307 Moved", "Location: http://" + other.Authority() + "/\r\n"));
  HTTPClientWrapper client(Wide("http://" + server.Authority() + "/"), L"u", L"p", 10, nullptr);
  EXPECT_THAT(Post(client).error, HasSubstr("points to http://" + other.Authority() + "/"));
  EXPECT_EQ(other.Connections(), 0u);
}

}  // namespace
