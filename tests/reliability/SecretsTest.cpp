// One canary user and password, given to the tool in every way. They reach only the server that
// asks for them. Otherwise the user name appears only in the prompt and in the log's heading.

#include <gmock/gmock.h>
#include <signal.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <thread>

#include "DiscoverService.h"
#include "Import/OTXMLAImportEntry.h"
#include "NetworkSupport.h"
#include "SampleProvider.h"
#include "support/Certificate.h"
#include "support/ScriptedServer.h"
#include "support/TempDir.h"
#include "support/Text.h"
#include "support/WireServer.h"
#include "tool/ScriptedProvider.h"
#include "tool/ToolProcess.h"

namespace network {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr char kUser[] = "canary-user";
constexpr char kPassword[] = "canary/p@ss:w\xC3\xB6rd";
constexpr char kUserInUrl[] = "canary-user";
constexpr char kPasswordInUrl[] = "canary%2Fp%40ss%3Aw%C3%B6rd";

/// Every form in which the secret might leak: unchanged, URL-encoded, and in base64 with and
/// without the user (the latter at each of the three offsets inside a longer text).
const std::vector<std::string>& SecretForms() {
  static const std::vector<std::string> forms{
      kPassword,
      "p@ss",
      "p%40ss",
      "p\\u0040ss",
      kPasswordInUrl,
      "Y2FuYXJ5L3BAc3M6d8O2cmQ",                  // the password
      "Y2FuYXJ5LXVzZXI6Y2FuYXJ5L3BAc3M6d8O2cmQ",  // the user, a colon and the password
      "NhbmFyeS9wQHNzOnfDtnJk",
      "jYW5hcnkvcEBzczp3w7ZyZ",
  };
  return forms;
}

void ExpectNoSecret(const std::string& text, const std::string& where) {
  for (const std::string& form : SecretForms())
    EXPECT_EQ(text.find(form), std::string::npos) << form << " is in " << where << ":\n" << text;
}

void ExpectNoUser(const std::string& text, const std::string& where) {
  EXPECT_EQ(text.find("canary"), std::string::npos) << "the user is in " << where << ":\n" << text;
}

int g_searched = 0;

/// Runs the tool with a log, reads its command line meanwhile, and searches all its output.
class Search {
 public:
  /// Called by the server during a request, when the tool is certainly running.
  void LookAtProcess() {
    // The request may arrive before this thread knows the tool's process ID.
    for (int i = 0; m_process == 0 && i < 5000; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    const std::string words = support::ReadFile("/proc/" + std::to_string(m_process) + "/cmdline");
    ExpectNoSecret(words, "the list of processes");
    ExpectNoUser(words, "the list of processes");
    m_looked = words.find("--log") != std::string::npos;
  }

  tool::Outcome Run(tool::Arguments arguments, tool::Options options = {},
                    const std::string& command = "tree",
                    const std::function<void(pid_t)>& meanwhile = {}) {
    m_looked = false;
    const support::TempDir folder;
    const std::string output = folder.Path() / "result";
    arguments.insert(arguments.end(), {"--log", folder.Path() / "log", "-o", output});
    arguments.push_back(command);
    const tool::Outcome outcome = tool::RunToolWhile(
        arguments,
        [&](pid_t process) {
          m_process = process;
          if (meanwhile) meanwhile(process);
        },
        options);
    m_process = 0;
    std::string shown = outcome.terminal;
    const std::string prompt = std::string("Password of ") + kUser + " for ";
    if (shown.starts_with(prompt)) shown.erase(0, prompt.size());
    for (const auto& [text, where] : {std::pair(outcome.out, "standard output"),
                                      {outcome.err, "standard error"},
                                      {shown, "the terminal"}}) {
      ExpectNoSecret(text, where);
      ExpectNoUser(text, where);
    }
    for (const fs::path& file : folder.Files()) {
      std::string text = support::ReadFile(file);
      ExpectNoSecret(text, file);
      // The log's heading names the user.
      const std::string heading = std::string("User:\t") + kUser;
      if (const std::size_t at = text.find(heading); at != std::string::npos)
        text.erase(at, heading.size());
      ExpectNoUser(text, file);
    }
    ++g_searched;
    return outcome;
  }

  /// During the latest run.
  bool HasLooked() const { return m_looked; }

 private:
  std::atomic<pid_t> m_process{0};
  std::atomic<bool> m_looked{false};
};

/// One way to pass credentials to the tool.
struct Entrance {
  const char* name;
  std::function<void(const std::string& url, const fs::path& folder, tool::Arguments& arguments,
                     tool::Options& options)>
      use;
};

std::string UrlWithCredentials(const std::string& url) {
  const std::size_t host = url.find("://") + 3;
  return url.substr(0, host) + kUserInUrl + ":" + kPasswordInUrl + "@" + url.substr(host);
}

const Entrance kEntrances[] = {
    {"URL",
     [](const std::string& url, const fs::path&, tool::Arguments& arguments, tool::Options&) {
       arguments = {"--url", UrlWithCredentials(url)};
     }},
    {"URL behind an equals sign",
     [](const std::string& url, const fs::path&, tool::Arguments& arguments, tool::Options&) {
       arguments = {"--url=" + UrlWithCredentials(url)};
     }},
    {"URL of the environment",
     [](const std::string& url, const fs::path&, tool::Arguments&, tool::Options& options) {
       options.environment["XMLA_IMPORT_URL"] = UrlWithCredentials(url);
     }},
    {"file, user behind an equals sign",
     [](const std::string& url, const fs::path& folder, tool::Arguments& arguments,
        tool::Options&) {
       std::ofstream(folder / "password") << kPassword << "\n";
       arguments = {"--user=" + std::string(kUser),
                    "--password-file=" + (folder / "password").string(), "--url", url};
     }},
    {"file",
     [](const std::string& url, const fs::path& folder, tool::Arguments& arguments,
        tool::Options&) {
       std::ofstream(folder / "password") << kPassword << "\n";
       arguments = {"--url", url, "--user", kUser, "--password-file", folder / "password"};
     }},
    {"standard input",
     [](const std::string& url, const fs::path&, tool::Arguments& arguments,
        tool::Options& options) {
       arguments = {"--url", url, "--user", kUser, "--password-file", "-"};
       options.input = std::string(kPassword) + "\n";
     }},
    {"variable",
     [](const std::string& url, const fs::path&, tool::Arguments& arguments,
        tool::Options& options) {
       arguments = {"--url", url};
       options.environment["XMLA_IMPORT_USER"] = kUser;
       options.environment["XMLA_IMPORT_PASSWORD"] = kPassword;
     }},
    {"prompt",
     [](const std::string& url, const fs::path&, tool::Arguments& arguments,
        tool::Options& options) {
       arguments = {"--url", url, "--user", kUser};
       options.terminal = true;
       options.typed = std::string(kPassword) + "\n";
     }},
};

/// Calls with every output format and every way to pass credentials.
template <class Check>
void ThroughEveryEntrance(const std::string& url, Search& search, Check check,
                          const std::map<std::string, std::string>& environment = {}) {
  for (const Entrance& entrance : kEntrances)
    for (const char* format : {"text", "json"}) {
      SCOPED_TRACE(std::string(entrance.name) + ", " + format);
      const support::TempDir folder;
      tool::Arguments arguments;
      tool::Options options;
      options.environment = environment;
      entrance.use(url, folder.Path(), arguments, options);
      arguments.insert(arguments.end(), {"--verbose", "--format", format});
      check(search.Run(arguments, options));
      EXPECT_TRUE(search.HasLooked());
    }
}

/// The server's responses to authentication.
struct Gate {
  const char* name;
  const char* status;
  const char* headers;
  int exit;
};

constexpr Gate kGates[] = {
    {"Basic", "401 Unauthorized", "WWW-Authenticate: Basic realm=\"r\"\r\n", 0},
    {"Digest", "401 Unauthorized",
     "WWW-Authenticate: Digest realm=\"r\", nonce=\"n\", qop=\"auth\", algorithm=SHA-256\r\n", 0},
    {"refused", "401 Unauthorized", "WWW-Authenticate: Basic realm=\"r\"\r\n", 1},
    {"forbidden", "403 Forbidden", "", 1},
    {"a proxy's refusal", "407 Proxy Authentication Required",
     "Proxy-Authenticate: Basic realm=\"r\"\r\n", 1},
    {"not found", "404 Not Found", "", 1},
    {"broken", "500 Internal Server Error", "", 1},
};

TEST(Secrets, OfAuthenticationReachOnlyTheServer) {
  g_searched = 0;
  for (const Gate& gate : kGates) {
    SCOPED_TRACE(gate.name);
    Search search;
    std::atomic<int> admitted{0};
    WireServer server([&](loopback::Connection& connection, const loopback::Request& request) {
      search.LookAtProcess();
      const bool isKnown = !request.Header("authorization").empty();
      if (gate.exit == 0 && isKnown) {
        ++admitted;
        connection.Send(Answer(sample::Answer(sample::Kind::kAnalysisServices, request.body).body));
      } else {
        connection.Send(Answer("no", gate.status, gate.headers));
      }
      // The URL and all headers except Authorization are free of the secret.
      ExpectNoUser(request.head.substr(0, request.head.find('\n')), "the request line");
      ExpectNoUser(request.Header("referer") + request.Header("cookie"), "headers");
    });
    ThroughEveryEntrance(
        "http://" + server.Authority() + "/xmla", search,
        [&](const tool::Outcome& outcome) { EXPECT_EQ(outcome.status, gate.exit) << outcome.err; });
    EXPECT_EQ(admitted > 0, gate.exit == 0);
  }
  Figure("secrets in log-ins",
         Text(g_searched, " calls through ", std::size(kEntrances), " entrances and ",
              std::size(kGates),
              " kinds of answer: in no output, terminal, log, file or list of processes"));
}

/// Accepts any credentials. Requests Digest first, then Basic.
WireServer::Handler Weakening(std::size_t digests, sample::Kind kind) {
  return [digests, kind, asked = std::make_shared<std::atomic<std::size_t>>(0)](
             loopback::Connection& connection, const loopback::Request& request) {
    if (request.Header("authorization").empty())
      connection.Send(Answer("", "401 Unauthorized",
                             (*asked)++ < digests
                                 ? "WWW-Authenticate: Digest realm=\"r\", nonce=\"n\"\r\n"
                                 : "WWW-Authenticate: Basic realm=\"r\"\r\n"));
    else
      connection.Send(Answer(sample::Answer(kind, request.body).body));
  };
}

void ExpectDigestAlone(WireServer& server, std::size_t digests) {
  std::size_t withoutLogIn = 0;
  for (const loopback::Request& request : server.Requests()) {
    const std::string logIn = request.Header("authorization");
    if (logIn.empty())
      ++withoutLogIn;
    else
      EXPECT_THAT(logIn, testing::StartsWith("Digest "));
  }
  EXPECT_GT(withoutLogIn, digests) << "Basic was never asked for";
}

/// Each import object of a call, and its identification, has its own HTTP client.
TEST(Secrets, UsedWithDigestAreNotSentByBasicInTheSameCall) {
  const std::size_t kClients[] = {1, 2, 3};
  for (const std::size_t digests : kClients) {
    SCOPED_TRACE(digests);
    WireServer server(Weakening(digests, sample::Kind::kAnalysisServices));
    tool::Options options;
    options.environment = {{"XMLA_IMPORT_PASSWORD", kPassword}};
    const tool::Outcome outcome = tool::RunTool({"--url", "http://" + server.Authority() + "/xmla",
                                                 "--user", kUser, "import", "--jobs", "1"},
                                                options);
    EXPECT_NE(outcome.status, 0);
    EXPECT_THAT(outcome.err,
                HasSubstr("the password is not sent with a weaker scheme than before"));
    ExpectDigestAlone(server, digests);
  }
}

/// Identification sends two requests to a server of the Tamarind kind.
TEST(Secrets, UsedWithDigestAreNotSentByBasicInTheSameIdentification) {
  WireServer server(Weakening(1, sample::Kind::kTamarind));
  OTXMLAProviderIdentity identity;
  String errors;
  EXPECT_FALSE(OTXMLAIdentifyProvider(support::Wide("http://" + server.Authority() + "/"), L"ann",
                                      L"pw", ServerInfo::kCLIXMLA, identity, errors));
  EXPECT_THAT(support::Narrow(errors), HasSubstr("not sent with a weaker scheme than before"));
  ExpectDigestAlone(server, 1);
}

TEST(Secrets, DoNotFollowARedirectToAnotherOrigin) {
  Search search;
  g_searched = 0;
  WireServer other(Answer("<r/>"));
  for (const char* status : {"301 Moved Permanently", "302 Found", "307 Temporary Redirect"}) {
    WireServer server([&](loopback::Connection& connection, const loopback::Request& request) {
      search.LookAtProcess();
      const std::string target = UrlWithCredentials("http://" + other.Authority() + "/");
      connection.Send(request.Header("authorization").empty()
                          ? Answer("", "401 Unauthorized", "WWW-Authenticate: Basic\r\n")
                          : Answer("", status, "Location: " + target + "\r\n"));
    });
    ThroughEveryEntrance(
        "http://" + server.Authority() + "/xmla", search, [&](const tool::Outcome& outcome) {
          EXPECT_EQ(outcome.status, 1);
          EXPECT_THAT(outcome.err, HasSubstr("points to http://" + other.Authority() + "/"));
        });
  }
  EXPECT_EQ(other.Connections(), 0u);
  Figure("secrets and another origin (redirects)",
         Text(g_searched, " calls redirected with the secret in the new address: ",
              other.Connections(), " connections to the other origin, 0 headers with the secret"));
}

TEST(Secrets, OfServiceAndProxyReachOnlyTheirServer) {
  const Certificate certificate("IP:127.0.0.1", kDay);
  Search search;
  g_searched = 0;
  WireServer service(
      [&](loopback::Connection& connection, const loopback::Request& request) {
        search.LookAtProcess();
        connection.Send(
            request.Header("authorization").empty()
                ? Answer("", "401 Unauthorized", "WWW-Authenticate: Basic realm=\"r\"\r\n")
                : Answer(sample::Answer(sample::Kind::kAnalysisServices, request.body).body));
      },
      certificate.Context());
  WireServer proxy([](loopback::Connection& connection, const loopback::Request& request) {
    if (request.Header("proxy-authorization").empty())
      connection.Send(Answer("", "407 Proxy", "Proxy-Authenticate: Basic realm=\"p\"\r\n"));
    else
      loopback::Tunnel(connection, request.head.substr(8, request.head.find(' ', 8) - 8));
  });
  const std::string proxyUrl = "http://proxy-user:proxy-secret@" + proxy.Authority();
  ThroughEveryEntrance(
      "https://" + service.Authority() + "/xmla", search,
      [&](const tool::Outcome& outcome) {
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        EXPECT_THAT(outcome.err, testing::Not(HasSubstr("proxy-")));
      },
      {{"https_proxy", proxyUrl}, {"no_proxy", ""}, {"SSL_CERT_FILE", certificate.Path()}});
  EXPECT_FALSE(service.Requests().empty());
  for (const loopback::Request& request : service.Requests())
    EXPECT_EQ(request.Header("proxy-authorization"), "");
  for (const loopback::Request& request : proxy.Requests()) {
    ExpectNoSecret(request.head, "a request to the proxy");
    EXPECT_EQ(request.Header("authorization"), "");
    ExpectNoUser(request.head, "a request to the proxy");
  }
  Figure("secrets and another origin (proxies)",
         Text(g_searched, " calls through a proxy with a log-in of its own: ",
              service.Requests().size(), " requests to the service without the proxy's secret, ",
              proxy.Requests().size(), " to the proxy without the service's"));
}

TEST(Secrets, OfARefusingProxyAreNotShown) {
  WireServer proxy(Answer("", "407 Proxy", "Proxy-Authenticate: Basic realm=\"p\"\r\n"));
  for (const char* scheme : {"http", "https"}) {
    tool::Options options;
    options.environment = {
        {std::string(scheme) + "_proxy", UrlWithCredentials("http://" + proxy.Authority())},
        {"no_proxy", ""}};
    Search search;
    const tool::Outcome outcome =
        search.Run({"--url", std::string(scheme) + "://service.test/xmla", "--verbose"}, options);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("HTTP 407 Proxy Authentication Required"));
  }
}

/// Calls the tool for a service on another machine; a local proxy plays that machine.
tool::Outcome CallByProxy(const char* offer, const std::string& url) {
  WireServer proxy([&](loopback::Connection& connection, const loopback::Request& request) {
    if (request.Header("authorization").empty())
      connection.Send(Answer("", "401 No", offer));
    else
      connection.Send(Answer(sample::Answer(sample::Kind::kAnalysisServices, request.body).body));
  });
  tool::Options options;
  options.environment = {{"http_proxy", "http://" + proxy.Authority()}, {"no_proxy", ""}};
  Search search;
  return search.Run({"--url", url}, options);
}

TEST(Secrets, SentInClearTextCauseOneWarning) {
  constexpr char kBasic[] = "WWW-Authenticate: Basic realm=\"r\"\r\n";
  constexpr char kDigest[] = "WWW-Authenticate: Digest realm=\"r\", nonce=\"n\"\r\n";
  const std::string elsewhere = UrlWithCredentials("http://service.test/xmla");
  const std::string err = CallByProxy(kBasic, elsewhere).err;
  const std::size_t said = err.find("xmla-import: warning: the password was sent by Basic");
  ASSERT_NE(said, std::string::npos) << err;
  EXPECT_EQ(err.find("sent by Basic", said + 60), std::string::npos) << err;
  EXPECT_EQ(CallByProxy(kDigest, elsewhere).err, "");
}

TEST(Secrets, OfUsageErrorsAreNotShown) {
  Search search;
  const std::string secret = std::string(kUser) + ":" + kPassword;
  for (const std::string& url :
       {"ftp://" + secret + "@host/", secret + "@host", "http://" + secret + "@",
        "http://" + secret + "@host:99999/", "http://" + secret + "@ho st/"})
    for (const char* format : {"text", "json"}) {
      const tool::Outcome outcome = search.Run({"--url", url, "--format", format});
      EXPECT_EQ(outcome.status, 2) << outcome.err;
    }
  // Control characters would forge headers.
  const std::string broken = "http://" + std::string(kUserInUrl) + "%0d%0aX:" + kPasswordInUrl;
  const tool::Outcome outcome = search.Run({"--url", broken + "@127.0.0.1:1/"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_THAT(outcome.err, HasSubstr("error: the user name contains a control character"));
}

/// Output of the tool when it is interrupted while reading a large reply.
std::string SaidWhenInterrupted(Search& search) {
  std::string rows;
  for (int i = 0; i < 100000; ++i)
    rows += "<row><DataSourceName>" + std::to_string(i) + "</DataSourceName></row>";
  const std::string answer = Answer(support::RowsetReply(rows));
  std::string said;
  double milliseconds = 5;
  for (int attempt = 0; attempt < 40 && said.find("[46066] ") == std::string::npos; ++attempt) {
    std::promise<void> sent;
    std::once_flag once;
    WireServer server([&](loopback::Connection& connection, const loopback::Request&) {
      connection.Send(answer);
      std::call_once(once, [&] { sent.set_value(); });
    });
    // Sent does not mean received; reading takes longer.
    const std::chrono::duration<double, std::milli> moment(milliseconds);
    milliseconds *= 1.12;  // up to half a second, for a busy machine
    said += search
                .Run({"--url", UrlWithCredentials("http://" + server.Authority() + "/xmla"),
                      "--target", "analysis-services-2005"},
                     {}, "sources",
                     [&](pid_t process) {
                       sent.get_future().wait_for(std::chrono::seconds(10));
                       std::this_thread::sleep_for(moment);
                       kill(process, SIGINT);
                     })
                .err;
  }
  return said;
}

TEST(Secrets, AreInNoMessageOfTheCatalogue) {
  // Provokes each message of the library: another kind of server, faults, skipped hierarchies,
  // invalid XML.
  sample::Options options;
  options.user = kUser;
  options.password = kPassword;
  const sample::Provider provider(options);
  Search search;
  std::string all;
  for (const char* mood : {"", "?mood=fault@MDSCHEMA_HIERARCHIES", "?mood=garble:50/9"})
    for (const char* target : {"tessera", "sap-bw", "tamarind-7"}) {
      const std::string url =
          UrlWithCredentials(provider.Url(sample::Kind::kAnalysisServices) + mood);
      all += search.Run({"--url", url, "--target", target}, {}, "import").err;
    }
  // Virtual hierarchies, and hierarchies of unknown structure.
  tool::ScriptedProvider::Script script = tool::OneCube();
  std::vector<tool::Row>& hierarchies = script.rows["MDSCHEMA_HIERARCHIES"];
  for (const auto& [column, value] : {std::pair("IS_VIRTUAL", "true"), {"STRUCTURE", "77"}}) {
    tool::Row row = hierarchies.front();
    std::erase_if(row, [&name = column](const auto& cell) { return cell.first == name; });
    row.emplace_back(column, value);
    hierarchies.push_back(std::move(row));
  }
  const tool::ScriptedProvider skipping(script);
  all += search.Run({"--url", UrlWithCredentials(skipping.Url())}, {}, "import").err;
  all += SaidWhenInterrupted(search);
  constexpr int kNumbers[] = {46066, 46100, 62010, 62011, 62012, 62013, 64203};
  for (const int number : kNumbers) EXPECT_THAT(all, HasSubstr(Text("[", number, "] ")));
  Figure("secrets in the message catalogue",
         Text("in none of its ", std::size(kNumbers), " messages, as the tool prints them"));
}

}  // namespace
}  // namespace network
