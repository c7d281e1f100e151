// Log-in with Kerberos tickets, against a KDC and Apache httpd.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <pthread.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "Servers.h"
#include "support/Sanitized.h"

namespace {

thread_local int g_threadsStarted = 0;  // by this thread

}  // namespace

#if !defined(XMLA_ADDRESS_SANITIZER) && !defined(XMLA_THREAD_SANITIZER)
// Interposes the C library's function: the loader finds this definition first. A sanitizer needs
// its own.
extern "C" __attribute__((visibility("default"))) int pthread_create(
    pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*), void* argument) {
  using Function = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
  static const auto next = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "pthread_create"));
  ++g_threadsStarted;
  return next(thread, attributes, run, argument);
}
#endif

namespace login {
namespace {

using testing::AllOf;
using testing::Each;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

constexpr unsigned int kAll = kAuthNegotiate | kAuthPasswordSchemes;

enum class Ticket { kNone, kAnn, kExpired };

/// The path of a credentials cache.
std::string CacheOf(Ticket ticket) {
  const Realm& realm = Servers::Get().realm;
  switch (ticket) {
    case Ticket::kNone:
      break;
    case Ticket::kAnn:
      return realm.LogIn("ann");
    case Ticket::kExpired: {
      std::string cache = realm.LogIn("ann", "1s");
      std::this_thread::sleep_for(std::chrono::milliseconds(2100));
      return cache;
    }
  }
  return Servers::Get().folder.Path() / "no-cache";
}

using View = Realm::View;

struct Accepted {
  const char* name;
  const char* folder;
  Given given;
  const char* user;  // whom the web server has logged in
  const char* sent;  // the scheme of the accepted request
};

const std::vector<Accepted> kAccepted = {
    {"NoUser", "negotiate", {.schemes = kAuthNegotiate}, "ann@REALM.TEST", "Negotiate "},
    {"NoUserAndAllSchemes",
     "negotiate-or-basic",
     {.schemes = kAll},
     "ann@REALM.TEST",
     "Negotiate "},
    {"UserWithNegotiate",
     "negotiate-or-basic",
     {.user = "bob", .password = "canary-wrong", .schemes = kAuthNegotiate},
     "ann@REALM.TEST",
     "Negotiate "},
    {"UserWithTheTicketOfAnother",
     "negotiate-or-basic",
     {.user = "bob", .password = Realm::Password("bob")},
     "bob@REALM.TEST",
     "Basic "},
};

class KerberosAccepts : public LogIn, public testing::WithParamInterface<Accepted> {};

TEST_P(KerberosAccepts, TheTicketOfAnnOrAPassword) {
  const Accepted& test = GetParam();
  Servers& servers = Servers::Get();
  const Environment environment(servers.realm.Client(View::kCorrect, CacheOf(Ticket::kAnn)));
  Client client(servers.Gateway(test.folder), test.given);
  const std::size_t before = servers.backend.Requests().size();
  for (int request = 0; request < 3; ++request) {
    const Posted posted = client.Post();
    EXPECT_TRUE(posted.ok) << posted.error;
  }
  const auto requests = servers.backend.Requests();
  ASSERT_EQ(requests.size(), before + 3);
  for (std::size_t i = before; i < requests.size(); ++i)
    EXPECT_EQ(requests[i].Header("x-user"), test.user);
  EXPECT_THAT(requests[before].Header("authorization"), testing::StartsWith(test.sent));
}

INSTANTIATE_TEST_SUITE_P(LogIn, KerberosAccepts, testing::ValuesIn(kAccepted),
                         [](const auto& test) { return test.param.name; });

/// A ticket is asked for in a thread. One that is valid for long is not asked for with every
/// request, one that expires soon is.
TEST_F(LogIn, AKnownTicketIsNotAskedForAgainAtOnce) {
  if (support::kIsSanitized) GTEST_SKIP() << "threads cannot be counted";
  Servers& servers = Servers::Get();
  for (const bool isShort : {false, true}) {
    const std::string cache = servers.realm.LogIn("ann", isShort ? "6s" : "1h");
    const Environment environment(servers.realm.Client(View::kCorrect, cache));
    Client client(servers.Gateway("negotiate"), {.schemes = kAuthNegotiate});
    EXPECT_TRUE(client.Post().ok);
    g_threadsStarted = 0;
    for (int i = 0; i < 5; ++i) EXPECT_TRUE(client.Post().ok);
    EXPECT_EQ(g_threadsStarted, 0);
    if (!isShort) continue;
    std::this_thread::sleep_for(std::chrono::milliseconds(3100));  // half of its life
    EXPECT_TRUE(client.Post().ok);
    EXPECT_EQ(g_threadsStarted, 1);
  }
}

TEST_F(LogIn, AnotherPersonsTicketIsNotSentForAUser) {
  Servers& servers = Servers::Get();
  const Environment environment(servers.realm.Client(View::kCorrect, CacheOf(Ticket::kAnn)));
  // The server offers both, and rejects the password.
  const std::string url = servers.Gateway("negotiate-or-basic");
  const Posted posted = PostOnce(url + "?stranger", {.user = "bob", .password = "canary-wrong"});
  EXPECT_THAT(posted.error, HasSubstr("the server rejected the user name or the password"));
  const std::vector<std::string> lines = servers.web.Log("service", "?stranger", 2);
  EXPECT_EQ(lines.size(), 2u);
  EXPECT_THAT(lines, Each(Not(HasSubstr("| Negotiate"))));
}

struct Refused {
  const char* name;
  Ticket ticket;
  View view;
  const char* folder;
  const char* host;
  const char* says;     // after "HTTP 401 Unauthorized: "
  const char* details;  // of the Kerberos library
};

const char kNoTicket[] = "there is no Kerberos ticket; run kinit (";
const char kExpired[] = "the Kerberos ticket has expired; run kinit again (";
const char kUnknownService[] =
    "the Kerberos server (KDC) does not know the service HTTP/127.0.0.1; check the host name, or "
    "ask the administrator to register the service (setspn or kadmin) (";
const char kClock[] =
    "the clocks of this machine, the Kerberos server (KDC) and the service differ too much; set "
    "the wrong clock (";
const char kOtherRealm[] =
    "the Kerberos server (KDC) does not know the realm of the service; check host name and "
    "domain_realm in /etc/krb5.conf, or ask the administrator to set up trust between the realms (";
const char kNoKDC[] =
    "no Kerberos server (KDC) of the ticket's realm can be reached; check the network, and the "
    "realm's kdc in /etc/krb5.conf or the file named by KRB5_CONFIG (";
const char kKey[] =
    "the service cannot decrypt the Kerberos ticket; run kinit again, or ask the administrator to "
    "give the service its current key (keytab) (";
const char kRejected[] =
    "the server rejected the Kerberos ticket; check with klist whose ticket it is, and ask the "
    "administrator whether that user may log in (it offers Negotiate)";

const std::vector<Refused> kRefused = {
    {"NoTicket", Ticket::kNone, View::kCorrect, "negotiate", "localhost", kNoTicket,
     "No credentials were supplied"},
    {"ExpiredTicket", Ticket::kExpired, View::kCorrect, "negotiate", "localhost", kExpired,
     "Ticket expired"},
    {"UnknownService", Ticket::kAnn, View::kCorrect, "negotiate", "127.0.0.1", kUnknownService,
     "Server HTTP/127.0.0.1@REALM.TEST not found in Kerberos database"},
    {"ClockSkew", Ticket::kAnn, View::kFastClock, "negotiate", "localhost", kClock,
     "Clock skew too great"},
    {"OtherRealm", Ticket::kAnn, View::kOtherRealm, "negotiate", "localhost", kOtherRealm,
     "Server krbtgt/OTHER.TEST@REALM.TEST not found in Kerberos database"},
    {"KDCIsDown", Ticket::kAnn, View::kKDCIsDown, "negotiate", "localhost", kNoKDC,
     "Cannot contact any KDC for realm 'REALM.TEST'"},
    {"NoKDC", Ticket::kAnn, View::kNoKDC, "negotiate", "localhost", kNoKDC, "Cannot find KDC"},
    {"OldKey", Ticket::kAnn, View::kCorrect, "old-key", "localhost", kKey,
     "Key version is not available"},
    {"WrongKey", Ticket::kAnn, View::kCorrect, "wrong-key", "localhost", kKey,
     "Decrypt integrity check failed"},
    {"UserMayNotLogIn", Ticket::kAnn, View::kCorrect, "only-bob", "localhost", kRejected, ""},
};

class KerberosRefusal : public LogIn, public testing::WithParamInterface<Refused> {
 protected:
  std::string Url() const { return Servers::Get().Gateway(GetParam().folder, GetParam().host); }
  testing::Matcher<std::string> Says() const {
    return AllOf(HasSubstr(std::string("HTTP 401 Unauthorized: ") + GetParam().says),
                 HasSubstr("(it offers Negotiate"), HasSubstr(GetParam().details), EndsWith(")"));
  }
  std::map<std::string, std::string> Variables() const {
    return Servers::Get().realm.Client(GetParam().view, CacheOf(GetParam().ticket));
  }
};

TEST_P(KerberosRefusal, SaysWhatToDo) {
  const Environment environment(Variables());
  const Posted posted = PostOnce(Url(), {.schemes = kAuthNegotiate});
  EXPECT_FALSE(posted.ok);
  EXPECT_THAT(posted.error, Says());
}

TEST_P(KerberosRefusal, SaysItInTheTool) {
  const tool::Outcome outcome =
      RunTool({"--url", Url(), "--target", "tessera", "sources"}, Variables());
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_THAT(outcome.err, HasSubstr("HTTP 401 Unauthorized: " + std::string(GetParam().says)));
}

INSTANTIATE_TEST_SUITE_P(LogIn, KerberosRefusal, testing::ValuesIn(kRefused),
                         [](const auto& test) { return test.param.name; });

// Without a ticket, a password may be meant; with a password, a ticket.

TEST_F(LogIn, NoTicketSuggestsAUserIfThatWouldHelp) {
  Servers& servers = Servers::Get();
  const Environment environment(servers.realm.Client(View::kCorrect, CacheOf(Ticket::kNone)));
  const std::string url = servers.Gateway("negotiate-or-basic");
  EXPECT_THAT(
      PostOnce(url, {.schemes = kAll}).error,
      HasSubstr("there is no Kerberos ticket; run kinit, or give a user name and a password "
                "(it offers Negotiate, Basic; "));
  EXPECT_THAT(PostOnce(url, {.schemes = kAuthNegotiate}).error,
              HasSubstr("there is no Kerberos ticket; run kinit (it offers Negotiate, Basic; "));
  const tool::Outcome outcome =
      RunTool({"--url", servers.GatewayToProvider("negotiate-or-basic"), "sources"},
              servers.realm.Client(View::kCorrect, CacheOf(Ticket::kNone)));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err,
              HasSubstr("there is no Kerberos ticket; run kinit, or use --user NAME (it offers "));
}

TEST_F(LogIn, APasswordSuggestsATicketIfThatWouldHelp) {
  const Posted posted =
      PostOnce(Servers::Get().Gateway("negotiate"), {.user = "bob", .password = "canary"});
  EXPECT_THAT(posted.error,
              HasSubstr("the server offers no way to log in that can be used here; log in with a "
                        "Kerberos ticket instead of a user name, or ask the server's administrator "
                        "for one that uses a password (it offers Negotiate)"));
}

TEST_F(LogIn, APasswordIsTriedIfThereIsNoTicket) {
  Servers& servers = Servers::Get();
  const Environment environment(servers.realm.Client(View::kCorrect, CacheOf(Ticket::kNone)));
  const std::string url = servers.Gateway("negotiate-or-basic");
  const Posted posted =
      PostOnce(url, {.user = "bob", .password = Realm::Password("bob"), .schemes = kAll});
  EXPECT_TRUE(posted.ok) << posted.error;
  EXPECT_THAT(
      PostOnce(url, {.user = "bob", .password = "canary", .schemes = kAll}).error,
      HasSubstr(
          "the server rejected the user name or the password; check user name and password "));
}

TEST_F(LogIn, ANewTicketIsUsedByTheNextRequest) {
  Servers& servers = Servers::Get();
  const std::string cache = servers.folder.Path() / "new-cache";
  const Environment environment(servers.realm.Client(View::kCorrect, cache));
  Client client(servers.Gateway("negotiate"), {.schemes = kAuthNegotiate});
  EXPECT_FALSE(client.Post().ok);
  std::filesystem::copy_file(CacheOf(Ticket::kAnn), cache);
  const Posted posted = client.Post();
  EXPECT_TRUE(posted.ok) << posted.error;
}

TEST_F(LogIn, ToolUsesTheTicket) {
  Servers& servers = Servers::Get();
  const tool::Outcome outcome =
      RunTool({"--url", servers.GatewayToProvider("negotiate"), "import"},
              servers.realm.Client(View::kCorrect, CacheOf(Ticket::kAnn)));
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  for (const loopback::Request& request : servers.provider.TakeRequests())
    EXPECT_EQ(request.Header("x-user"), "ann@REALM.TEST");
}

}  // namespace
}  // namespace login
