// The HTTP client keeps no copies of credentials in memory, except those of libcurl.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "HTTPPosting.h"
#include "Utility/Generic/Secret.h"
#include "Utility/Generic/SystemUtility.h"
#include "support/MemorySearch.h"
#include "support/Sanitized.h"
#include "support/Settings.h"
#include "support/WireServer.h"

namespace {

using support::HiddenPassword;

TEST(HTTPSecrets, OnlyLibcurlKeepsCopies) {
  if (support::kIsSanitized) GTEST_SKIP() << "a sanitizer's memory is too large to search";
  const HiddenPassword hidden(0);
  ASSERT_EQ(hidden.Copies(1), 0);
  const String password = hidden.Between(L"", L"");
  ASSERT_EQ(hidden.WideCopies(), 1);
  {
    const HTTPClientWrapper client(L"http://127.0.0.1:1/", L"ann", password, 1, nullptr);
    EXPECT_EQ(hidden.Copies(1), 1);
    EXPECT_EQ(hidden.WideCopies(), 1) << "the host's own is one";
  }
  EXPECT_EQ(password.size(), std::size_t{HiddenPassword::kLength});
  EXPECT_EQ(password[0], static_cast<wchar_t>(hidden.Character(0))) << "the host's own stays";
}

TEST(HTTPSecrets, OnlyLibcurlKeepsCopiesFromTheURL) {
  if (support::kIsSanitized) GTEST_SKIP() << "a sanitizer's memory is too large to search";
  const HiddenPassword hidden(1);
  const String url = hidden.Between(L"http://ann:", L"@127.0.0.1:1/");
  const HTTPClientWrapper client(url, L"", L"", 1, nullptr);
  EXPECT_EQ(hidden.Copies(1), 1);
  EXPECT_EQ(hidden.WideCopies(), 1) << "the host's own is one";
}

/// Proxies with and without a scheme in their URL.
TEST(HTTPSecrets, OnlyLibcurlKeepsCopiesFromTheProxy) {
  if (support::kIsSanitized) GTEST_SKIP() << "a sanitizer's memory is too large to search";
  int number = 2;
  for (const wchar_t* const before : {L"http://ann:", L"ann:"}) {
    SCOPED_TRACE(Narrow(before));
    const HiddenPassword hidden(number++);
    HTTPClientOptions options;
    options.proxy = hidden.Between(before, L"@127.0.0.1:1/");
    const HTTPClientWrapper client(L"http://127.0.0.1:1/", L"", L"", 1, &options);
    EXPECT_EQ(hidden.Copies(1), 1);
    EXPECT_EQ(hidden.WideCopies(), 1) << "the host's own is one";
  }
}

TEST(HTTPSecrets, OnlyLibcurlKeepsCopiesFromAProxyOfTheEnvironment) {
  if (support::kIsSanitized) GTEST_SKIP() << "a sanitizer's memory is too large to search";
  const HiddenPassword hidden(4);
  const HTTPClientOptions options;
  {
    Secret<String> proxy(hidden.Between(L"http://ann:", L"@127.0.0.1:1/"));
    const Secret<NarrowString> bytes(
        BaseStringUtil::StringToStdString(proxy, BaseStringUtil::kCodePageUTF8));
    setenv("http_proxy", bytes.c_str(), 1);
  }
  ASSERT_EQ(hidden.Copies(1), 1) << "the environment's own";
  {
    Secret<String> proxy;
    ASSERT_TRUE(SystemUtility::Getenv(L"http_proxy", proxy));
    EXPECT_EQ(hidden.Copies(1), 1);
    EXPECT_EQ(hidden.WideCopies(), 1);
  }
  const HTTPClientWrapper client(L"http://127.0.0.1:1/", L"", L"", 1, &options);
  EXPECT_EQ(hidden.Copies(1), 2) << "the environment's own is one";
  EXPECT_EQ(hidden.WideCopies(), 0);
  unsetenv("http_proxy");
}

/// The URL without credentials must use a new buffer; the old one is freed.
TEST(HTTPSecrets, ParsedURLKeepsThemOnlyInItsParts) {
  if (support::kIsSanitized) GTEST_SKIP() << "a sanitizer's memory is too large to search";
  const HiddenPassword hidden(5);
  String url = hidden.Between(L"http://ann:", L"@127.0.0.1:1/");
  String user;
  String password;
  ASSERT_TRUE(HTTPClientWrapper::TakeCredentials(url, user, password));
  EXPECT_EQ(hidden.WideCopies(), 1) << "the password";
  EXPECT_EQ(hidden.Copies(1), 0);
  password.Erase();
  EXPECT_EQ(hidden.WideCopies(), 0);
}

// A server that repeats secrets.

constexpr char kToken[] = "canary.T0ken-_~+/==";
constexpr char kPassword[] = "canary &p";

/// All texts of an exchange.
class Texts : public HTTPExchangeObserver {
 public:
  Texts() { m_settings.exchangeObserver = this; }
  void OnRetry(const HTTPRetry& retry) override { all += Narrow(retry.error) + '\n'; }
  void OnExchange(const HTTPExchangeInfo& info) override {
    const HTTPConnectionDetails& details = info.connection;
    for (const String& text :
         {info.error, details.server, details.contentType, details.contentEncoding,
          details.offeredSchemes, details.usedScheme, details.proxy, details.address})
      all += Narrow(text) + '\n';
  }
  std::string all;

 private:
  support::Settings m_settings;
};

TEST(HTTPRepeatedSecrets, AreNotShown) {
  const std::string jwt = "eyJcanary" + std::string(400, 'a') + "canary" + std::string(400, 'b');
  const struct {
    const char* user;
    std::string token;
    const char* proxyUser;
    std::string response;
    std::string shown;
  } kCases[] = {
      {"", kToken, "",
       Answer(
           "", "401 No",
           std::string("WWW-Authenticate: Bearer error_description=\"bad ") + kToken + "!\"\r\n"),
       "(bad ...!)"},
      {"", kToken, "",
       Answer("", "307 Moved", std::string("Location: /?access_token=") + kToken + "&x\r\n"),
       "/?access_token=...&x"},
      {"", kToken, "", Answer("", "307 Moved", "Location: /?t=canary.T0ken-_~%2B%2F%3D%3D&x\r\n"),
       "/?t=...&x"},
      {"", kToken, "", Answer(std::string("bad: ") + kToken + " " + kToken + "."),
       "\"bad: ... ....\""},
      {"", kToken, "", Answer(std::string("<html><title>") + kToken + "</title></html>"),
       "\"...\""},
      {"", jwt, "", Answer("Bearer " + jwt), "\"Bearer ....."},
      {"", jwt, "", Answer("", "307 Moved", "Location: /?t=" + jwt + "\r\n"), "/?t=...; use"},
      {"", kToken, "",
       Answer("<r/>", "503 Busy", std::string("Server: s ") + kToken + "\r\nRetry-After: 0\r\n"),
       "\ns ...\n"},
      {"ann:canary%20%26p@", "", "", Answer(std::string("no: ") + kPassword), "\"no: ...\""},
      {"ann:canary%20%26p@", "", "", Answer("no: canary%20%26p"), "\"no: ...\""},
      {"ann:canary%20%26p@", "", "", Answer("no: YW5uOmNhbmFyeSAmcA=="), "\"no: ...==\""},
      {"ann:canary%20%26p@", "", "",
       Answer("", "401 No",
              std::string("WWW-Authenticate: Basic\r\nContent-Type: ") + kPassword + "\r\n"),
       "\n...\n"},
      {"", "", "ann:canary%20%26p@", Answer(std::string("no: ") + kPassword), "\"no: ...\""},
      {"ann:can@", "", "", Answer("can: too short"), "\"can: too short\""},
  };
  for (const auto& test : kCases) {
    const WireServer server(test.response);
    Texts texts;
    HTTPClientOptions options;
    options.bearerToken = Wide(test.token);
    options.wantsConnectionDetails = true;
    if (*test.proxyUser)
      options.proxy = Wide(std::string("http://") + test.proxyUser + server.Authority());
    const std::string url = std::string("http://") + test.user + server.Authority() + "/";
    const Outcome outcome = PostOnce(url, 10, &options);
    texts.all += outcome.error;
    EXPECT_THAT(texts.all, testing::HasSubstr(test.shown));
    EXPECT_THAT(texts.all, testing::Not(testing::HasSubstr("canary")));
    EXPECT_THAT(texts.all, testing::Not(testing::HasSubstr("YW5uOmNh")));
  }
}

/// A secret that is a word of our own texts stays there, because a gap would show which word it is.
TEST(HTTPRepeatedSecrets, OwnTextsAreNotChanged) {
  const WireServer server(Answer("", "503 Busy", "Retry-After: 0\r\n"));
  Texts texts;
  HTTPClientOptions options;
  options.maxRetries = 1;
  options.bearerToken = L"Unavailable";
  PostOnce("http://" + server.Authority() + "/", 10, &options);
  EXPECT_THAT(texts.all, testing::HasSubstr("HTTP 503 Service Unavailable; try again later\n"));
  EXPECT_THAT(texts.all, testing::HasSubstr("Service Unavailable; try again later; tried 2 times"));
}

TEST(Erasing, KeepsCharactersSharedWithAnotherText) {
  String text = L"secret";
  const String shared = text;
  text.Erase();
  EXPECT_TRUE(text.empty());
  EXPECT_TRUE(shared == L"secret");
}

TEST(Erasing, AcceptsATextThatSharesWithThePreviousOne) {
  String text = L"secret";
  ReplaceSecret(text, text);
  EXPECT_TRUE(text == L"secret");
}

}  // namespace
