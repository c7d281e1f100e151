// Counts copies of the password in memory at each stage of an import object's life.

#include <gmock/gmock.h>

#include <algorithm>
#include <memory>

#include "Import/OTXMLAImportEntry.h"
#include "NetworkSupport.h"
#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/Secret.h"
#include "support/MemorySearch.h"
#include "support/Sanitized.h"
#include "support/ScriptedServer.h"
#include "support/Settings.h"
#include "support/TempDir.h"
#include "support/Text.h"
#include "support/WireServer.h"

namespace reliability {
namespace {

using support::HiddenPassword;

/// Requests authentication, then answers without rows.
WireServer::Handler Asking(const std::string& scheme) {
  return [scheme](loopback::Connection& connection, const loopback::Request& request) {
    connection.Send(request.Header("authorization").empty()
                        ? Answer("", "401 Unauthorized", "WWW-Authenticate: " + scheme + "\r\n")
                        : Answer(support::RowsetReply("")));
  };
}

struct Way {
  const char* name;
  const char* scheme;
  bool isInURL;
};
constexpr Way kWays[] = {
    {"password, Basic", "Basic realm=\"r\"", false},
    {"password, Digest", "Digest realm=\"r\", nonce=\"n\", qop=\"auth\"", false},
    {"URL, Basic", "Basic realm=\"r\"", true},
};

/// URL and credentials; the texts that a host passes to the library.
struct Texts {
  Texts(const Way& way, const HiddenPassword& hidden, const std::string& authority)
      : url(way.isInURL
                ? hidden.Between(L"http://ann:", support::Wide("@" + authority + "/").c_str())
                : support::Wide("http://" + authority + "/")),
        user(way.isInURL ? L"" : L"ann"),
        password(way.isInURL ? String() : hidden.Between(L"", L"")) {}

  Secret<String> url;
  String user;
  Secret<String> password;
};

/// The library shares the characters of the host's text, and finally holds no copy. One-byte copies
/// belong to libcurl, which does not overwrite them.
TEST(SecretsInMemory, OfAnImportAreErasedAtItsEnd) {
  if (support::kIsSanitized) GTEST_SKIP() << "a sanitizer's memory is too large to search";
  const support::TempDir logs;
  const support::LogInto settings(logs.Path());
  int number = 1;
  int ofLibcurl = 0;
  for (const Way& way : kWays) {
    SCOPED_TRACE(way.name);
    WireServer server(Asking(way.scheme));
    const HiddenPassword former(number++);
    const HiddenPassword hidden(number++);
    std::unique_ptr<OTXMLAImportAPI> import(OTXMLACreateImport());
    const auto connect = [&](const HiddenPassword& password) {
      const Texts texts(way, password, server.Authority());
      import->SetupConnInfo(texts.url, texts.user, texts.password,
                            ServerInfo::kAnalysisServices2005, ServerInfo::kCLIXMLA);
    };
    const auto readNames = [&] {
      VXStringVector names;
      String errors;
      String warnings;
      import->GetDataSourceNames(names, errors, warnings);
      EXPECT_EQ(support::Narrow(errors), "");
    };
    connect(former);
    readNames();
    EXPECT_EQ(former.WideCopies(), 1) << "before it is replaced";
    connect(hidden);
    EXPECT_EQ(former.WideCopies(), 0) << "replaced";
    EXPECT_EQ(hidden.WideCopies(), 1) << "connected";
    EXPECT_EQ(hidden.Copies(1), 1) << "connected";
    readNames();
    EXPECT_EQ(hidden.WideCopies(), 1) << "after an operation";
    const int whileAtWork = hidden.Copies(1);
    import.reset();
    EXPECT_EQ(hidden.WideCopies(), 0) << "deleted";
    ofLibcurl = std::max({ofLibcurl, whileAtWork, hidden.Copies(1)});
  }
  network::Figure("copies of the password in memory",
                  "1 while an import object lives, 0 when it is deleted; of libcurl 1 when "
                  "connected, then up to " +
                      std::to_string(ofLibcurl));
}

/// For characters other than ASCII, a client keeps the password in the forms that schemes need.
TEST(SecretsInMemory, OfAClientInSeveralFormsAreErasedAtItsEnd) {
  if (support::kIsSanitized) GTEST_SKIP() << "a sanitizer's memory is too large to search";
  const HiddenPassword hidden(200);
  {
    const Secret<String> password(hidden.Between(L"", L""));
    const HTTPClientWrapper client(L"http://127.0.0.1:1/", L"j\u00FCrgen", password, 1, nullptr);
    EXPECT_EQ(hidden.WideCopies(), 1);
    EXPECT_EQ(hidden.Copies(1), 3);
  }
  EXPECT_EQ(hidden.WideCopies(), 0);
  EXPECT_LE(hidden.Copies(1), 1) << "other than libcurl's";
}

TEST(SecretsInMemory, OfAnIdentificationStayOnlyWithTheHost) {
  if (support::kIsSanitized) GTEST_SKIP() << "a sanitizer's memory is too large to search";
  int number = 100;
  for (const Way& way : kWays) {
    SCOPED_TRACE(way.name);
    WireServer server(Asking(way.scheme));
    const HiddenPassword hidden(number++);
    const Texts texts(way, hidden, server.Authority());
    OTXMLAProviderIdentity identity;
    String errors;
    EXPECT_TRUE(OTXMLAIdentifyProvider(texts.url, texts.user, texts.password, ServerInfo::kCLIXMLA,
                                       identity, errors));
    EXPECT_EQ(hidden.WideCopies(), 1);
  }
}

}  // namespace
}  // namespace reliability
