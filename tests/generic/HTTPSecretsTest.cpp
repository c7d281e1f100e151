// The HTTP client keeps no copies of credentials in memory, except those of libcurl.
#include <gtest/gtest.h>

#include <cstdlib>

#include "HTTPPosting.h"
#include "Utility/Generic/Secret.h"
#include "Utility/Generic/SystemUtility.h"
#include "support/MemorySearch.h"
#include "support/Sanitized.h"

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
