// Tests bearer tokens: who gets them, which are accepted, and what the server says about them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "HTTPPosting.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/Secret.h"
#include "loopback-server/Connection.h"
#include "support/Certificate.h"
#include "support/MemorySearch.h"
#include "support/Sanitized.h"
#include "support/Settings.h"
#include "support/WireServer.h"

namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr char kSent[] = "Bearer canary.T0ken-_~+/==";

HTTPClientOptions WithToken(const String& token = L"canary.T0ken-_~+/==") {
  HTTPClientOptions options;
  options.bearerToken = token;
  return options;
}

/// The text that the constructor throws; empty if it throws none.
std::string Thrown(const std::string& url, const String& user, const String& password,
                   const HTTPClientOptions& options) {
  try {
    const HTTPClientWrapper client(Wide(url), user, password, 10, &options);
    return "";
  } catch (const ErrorMessage& error) {
    String text;
    error.RetrieveErrorMessages(text);
    return Narrow(text);
  }
}

TEST(HTTPBearer, IsSentWithEveryRequest) {
  const WireServer server(Answer("<r/>"));
  // Other schemes are not used.
  HTTPClientOptions options = WithToken();
  options.authSchemes = kAuthPasswordSchemes | kAuthNegotiate;
  HTTPClientWrapper client(Wide("http://" + server.Authority() + "/"), L"", L"", 10, &options);
  EXPECT_TRUE(Post(client).ok);
  EXPECT_TRUE(Post(client).ok);
  ASSERT_EQ(server.Requests().size(), 2u);
  for (const loopback::Request& request : server.Requests())
    EXPECT_EQ(request.Header("authorization"), kSent);
}

TEST(HTTPBearer, AreNotUsedTogetherWithAUser) {
  const char kError[] = "A token was given together with a user name or a password: give only one";
  EXPECT_THAT(Thrown("http://h/", L"ann", L"", WithToken()), StartsWith(kError));
  EXPECT_THAT(Thrown("http://h/", L"", L"p", WithToken()), StartsWith(kError));
  EXPECT_THAT(Thrown("http://ann:p@h/", L"", L"", WithToken()), StartsWith(kError));
  EXPECT_EQ(Thrown("http://h/", L"", L"", WithToken()), "");
}

TEST(HTTPBearer, InvalidCharactersAreRefused) {
  for (const wchar_t* const token :
       {L"canary x", L"canary\r\nX: y", L"canary\n", L"\tcanary", L"can=ary", L"=", L"canary\"",
        L"canary\xE9", L"canary,x", L"canary\x7F", L"Bearer canary", L"can:ary"}) {
    const std::string error = Thrown("http://h/", L"", L"", WithToken(token));
    EXPECT_THAT(error, AllOf(StartsWith("The token contains a character that a token cannot have"),
                             Not(HasSubstr("canary"))));
  }
  EXPECT_THAT(Thrown("http://h/", L"", L"", WithToken(String(L"canary\0x", 8))),
              StartsWith("The token contains a character"));
}

struct Said {
  const char* name;
  std::string status;
  std::string challenge;  // value of WWW-Authenticate
  const char* error;      // after the status line
};

class HTTPBearerChallenge : public testing::TestWithParam<Said> {};

TEST_P(HTTPBearerChallenge, IsExplained) {
  const Said& said = GetParam();
  const WireServer server(Answer("", said.status, "WWW-Authenticate: " + said.challenge + "\r\n"));
  const HTTPClientOptions options = WithToken();
  const std::string url = "http://" + server.Authority() + "/";
  const std::string error = PostOnce(url, 10, &options).error;
  EXPECT_THAT(error, AllOf(StartsWith(url + ": HTTP " + said.status), EndsWith(said.error)));
  EXPECT_THAT(error, Not(HasSubstr("canary")));
  EXPECT_EQ(server.Requests().size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(
    HTTP, HTTPBearerChallenge,
    testing::ValuesIn(std::vector<Said>{
        {"Expired", "401 Unauthorized",
         "Bearer realm=\"r\", error=\"invalid_token\", error_description=\"The token, \\\"a\\\", "
         "expired\"",
         "d: the server says that the token is invalid or expired; get a new token (The token, "
         "\"a\", expired)"},
        {"WithoutDescription", "401 Unauthorized", "bearer ERROR=invalid_token",
         "token is invalid or expired; get a new token (invalid_token)"},
        {"BehindAnotherScheme", "401 Unauthorized",
         "Basic realm=\"a, Bearer error=x\", Bearer error=\"invalid_token\"",
         "token is invalid or expired; get a new token (invalid_token)"},
        {"BeforeAnotherScheme", "401 Unauthorized",
         "Bearer error=\"invalid_token\", Digest error=\"other\", error_description=\"other\"",
         "token is invalid or expired; get a new token (invalid_token)"},
        {"Scope", "403 Forbidden", "Bearer error=\"insufficient_scope\", scope=\"cubes.read\"",
         "n: the server says that the token does not allow this; get a token with more rights "
         "(insufficient_scope; required scope: cubes.read)"},
        {"Request", "400 Bad Request", "Bearer error=\"invalid_request\"",
         "t: the server says that the request with the token is malformed; check that the token is "
         "meant for this service (invalid_request)"},
        {"OtherError", "401 Unauthorized", "Bearer error=\"strange\"",
         "d: the server rejected the token; get a new token (strange)"},
        {"NoError", "401 Unauthorized", "Bearer",
         "d: the server rejected the token; get a new token"},
        {"OtherScheme", "401 Unauthorized", "Basic realm=\"r\"",
         "d: the server rejected the token; get a new token"},
        {"NotAboutTheToken", "403 Forbidden", "Basic realm=\"r\"",
         "n; ask the server's administrator for the right to use the service"},
        {"RepeatsTheToken", "401 Unauthorized",
         "Bearer error=invalid_token, error_description=\"canary.T0ken-_~+/"
         "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx is bad\"",
         "get a new token (... is bad)"},
        {"Unclosed", "401 Unauthorized", "Bearer error=\"invalid_token",
         "token is invalid or expired; get a new token (invalid_token)"},
    }),
    [](const auto& test) { return test.param.name; });

TEST(HTTPBearer, LongTextsOfTheServerAreTruncated) {
  std::string words;
  while (words.size() < 100'000) words += "words ";
  const WireServer server(
      Answer("", "401 No", "WWW-Authenticate: Bearer error_description=\"" + words + "\"\r\n"));
  const HTTPClientOptions options = WithToken();
  EXPECT_LT(PostOnce("http://" + server.Authority() + "/", 10, &options).error.size(), 1000u);
}

TEST(HTTPBearer, AServerThatRequiresOneIsNamed) {
  const WireServer only(Answer("", "401 No", "WWW-Authenticate: Bearer realm=\"r\"\r\n"));
  const WireServer also(
      Answer("", "401 No", "WWW-Authenticate: Basic realm=\"r\"\r\nWWW-Authenticate: Bearer\r\n"));
  for (const char* const user : {"", "ann:p@"}) {
    EXPECT_THAT(PostOnce(std::string("http://") + user + only.Authority() + "/").error,
                EndsWith("HTTP 401 Unauthorized: the server requires a token; give one, instead of "
                         "user and password (it offers Bearer)"));
  }
  EXPECT_THAT(PostOnce("http://" + also.Authority() + "/").error,
              EndsWith("requires a log-in; give a user name and a password, or a token (it offers "
                       "Basic, Bearer)"));
}

TEST(HTTPBearer, IsNotSentInATunnelsRequest) {
  const Certificate certificate("IP:127.0.0.1", kDay);
  const WireServer server([](loopback::Connection& connection,
                             const loopback::Request&) { connection.Send(Answer("<r/>")); },
                          certificate.Context());
  const WireServer proxy(&AnswerOrTunnel);
  HTTPClientOptions options = WithToken();
  options.caFile = Wide(certificate.Path());
  options.proxy = Wide("http://pu:pp@" + proxy.Authority());
  EXPECT_TRUE(PostOnce("https://" + server.Authority() + "/", 10, &options).ok);
  ASSERT_EQ(server.Requests().size(), 1u);
  EXPECT_EQ(server.Requests()[0].Header("authorization"), kSent);
  ASSERT_GE(proxy.Requests().size(), 1u);
  for (const loopback::Request& request : proxy.Requests())
    EXPECT_THAT(request.head, Not(HasSubstr("canary")));
}

TEST(HTTPBearer, IsNotSentToARedirectTarget) {
  const WireServer other(Answer("<r/>"));
  const WireServer server(
      Answer("", "307 Moved", "Location: http://" + other.Authority() + "/\r\n"));
  const HTTPClientOptions options = WithToken();
  EXPECT_THAT(PostOnce("http://" + server.Authority() + "/", 10, &options).error,
              HasSubstr("points to http://" + other.Authority() + "/"));
  EXPECT_EQ(server.Requests().size(), 1u);
  EXPECT_EQ(other.Connections(), 0u);
}

class BearerExchange : public HTTPExchangeObserver {
 public:
  void OnExchange(const HTTPExchangeInfo& info) override { last = info; }
  HTTPExchangeInfo last;
};

/// 0.0.0.0 and ::ffff:127.0.0.1 lead to the loopback interface, but are not recognised as loopback.
TEST(HTTPBearer, PlainHTTPToAnotherMachineIsReportedOrRefused) {
  const WireServer server(&AnswerOrTunnel);
  const struct {
    const char* url;
    const char* proxy;
    bool isInClear;
  } kCases[] = {
      {"http://127.0.0.1", "", false},
      {"http://localhost", "", false},
      {"http://0.0.0.0", "", true},
      {"http://localhost", "http://127.0.0.1", false},
      {"http://localhost", "http://[::ffff:127.0.0.1]", true},
      {"http://service.test", "http://127.0.0.1", true},
  };
  BearerExchange recorder;
  support::Settings settings;
  settings.exchangeObserver = &recorder;
  std::size_t sent = 0;
  for (const auto& test : kCases)
    for (const bool isAllowed : {true, false}) {
      SCOPED_TRACE(std::string(test.url) + " by " + test.proxy + (isAllowed ? " allowed" : ""));
      HTTPClientOptions options = WithToken();
      options.allowBasicOverPlainHttp = isAllowed;
      const std::string port = ":" + server.Port();
      if (*test.proxy) options.proxy = Wide(test.proxy + port);
      const Outcome outcome = PostOnce(test.url + port + "/", 10, &options);
      EXPECT_EQ(recorder.last.basicInClear, isAllowed && test.isInClear);
      EXPECT_EQ(outcome.ok, isAllowed || !test.isInClear) << outcome.error;
      if (outcome.ok) {
        ++sent;
      } else {
        EXPECT_THAT(outcome.error,
                    EndsWith(": the token is not sent over plain http to another machine; use "
                             "https, or set allowBasicOverPlainHttp"));
        EXPECT_EQ(recorder.last.failedStep, HTTPStep::kLogIn);
      }
      EXPECT_EQ(server.Requests().size(), sent);
    }
}

TEST(HTTPBearer, OnlyLibcurlKeepsCopies) {
  if (support::kIsSanitized) GTEST_SKIP() << "a sanitizer's memory is too large to search";
  const support::HiddenPassword hidden(7);
  HTTPClientOptions options;
  options.bearerToken = hidden.Between(L"", L"");
  const HTTPClientWrapper client(L"http://127.0.0.1:1/", L"", L"", 1, &options);
  EXPECT_EQ(hidden.Copies(1), 1);
  EXPECT_EQ(hidden.WideCopies(), 1) << "the host's own is one";
}

}  // namespace
