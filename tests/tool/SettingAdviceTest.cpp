// A call that fails names the option to use in its last line. An unusable client certificate is a
// usage error.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "SampleProvider.h"
#include "support/Certificate.h"
#include "support/TempDir.h"
#include "support/WireServer.h"
#include "tool/ToolProcess.h"

namespace tool {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

std::size_t Count(const std::string& text, std::string_view part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != text.npos; at = text.find(part, at + 1)) ++count;
  return count;
}

void AnswerNothing(loopback::Connection&, const loopback::Request&) {}

TEST(SettingAdvice, IsTheLastLineOfAFailedCall) {
  Certificate certificate("IP:127.0.0.1", kDay);
  Certificate other("DNS:other.test", kDay);
  Certificate asking("IP:127.0.0.1", kDay);
  asking.AskForClient(certificate, true);
  const WireServer tls(&AnswerNothing, certificate.Context());
  const WireServer otherName(&AnswerNothing, other.Context());
  const WireServer askingServer(&AnswerNothing, asking.Context());
  const auto status = [](const char* line, const std::string& headers = "") {
    return std::make_unique<WireServer>(Answer("", line, headers));
  };
  const auto missing = status("404 Not Found");
  const auto busy = status("503 Busy");
  const auto locked = status("401 No", "WWW-Authenticate: Basic realm=\"r\"\r\n");
  const auto token = status("401 No", "WWW-Authenticate: Bearer realm=\"r\"\r\n");
  const auto refusing = status("407 No", "Proxy-Authenticate: Basic realm=\"r\"\r\n");
  const WireServer silent(&AnswerNothing);
  const WireServer greeter("HTTP/1.1 400 Bad Request\r\n\r\n", WireServer::Greets{});
  const WireServer page(Answer("<html></html>"));
  const auto http = [](const WireServer& server) { return "http://" + server.Authority() + "/"; };
  const auto https = [](const WireServer& server) { return "https://" + server.Authority() + "/"; };
  const struct {
    std::string url;
    Arguments options;
    const char* option;
    const char* ofSources = nullptr;  // if the error itself names the option
  } kCases[] = {
      {"http://127.0.0.1:1/", {}, "--url"},
      {http(*missing), {}, "--url"},
      {http(page), {}, "--url"},
      {"https://" + greeter.Authority() + "/", {}, "--url"},
      {http(page), {"--proxy", "http://127.0.0.1:1"}, "--proxy"},
      {http(page), {"--proxy", http(*refusing)}, "--proxy"},
      {http(silent), {"--timeout", "1"}, "--timeout"},
      {https(tls), {}, "--ca-file"},
      {https(otherName), {"--ca-file", other.Path()}, "--url"},
      {https(askingServer), {"--ca-file", asking.Path()}, "--cert"},
      {http(*busy), {}, "--retry"},
      {http(*locked), {}, "--user", "--password-file"},
      {http(*locked), {"--user", "ann", "--auth", "digest"}, "--auth"},
      {http(*token), {}, "--token-file"},
  };
  Options options;
  options.environment["XMLA_IMPORT_PASSWORD"] = "wrong";
  for (const auto& each : kCases)
    for (const char* const command : {"sources", "check"}) {
      SCOPED_TRACE(each.url + " " + each.option + " " + command);
      Arguments arguments{"--url", each.url};
      arguments.insert(arguments.end(), each.options.begin(), each.options.end());
      arguments.emplace_back(command);
      const Outcome outcome = RunTool(arguments, options);
      EXPECT_EQ(outcome.status, 1);
      ASSERT_FALSE(outcome.ErrorLines().empty());
      const bool isOther = each.ofSources && command == std::string("sources");
      EXPECT_THAT(outcome.ErrorLines().back(),
                  HasSubstr(std::string("use ") + (isOther ? each.ofSources : each.option)));
      EXPECT_EQ(Count(outcome.err, "use --user NAME"), each.ofSources ? 1u : 0u) << outcome.err;
    }
}

TEST(SettingAdvice, NamesTheServerAndItsKeys) {
  const WireServer locked(Answer("", "401 No", "WWW-Authenticate: Basic realm=\"r\"\r\n"));
  const WireServer missing(Answer("", "404 Not Found"));
  const WireServer failing(Answer("", "500 Internal Server Error"));
  const sample::Provider provider;
  const support::TempDir folder;
  const std::string file = folder.Path() / "servers.toml";
  const std::string owner = " of server \"s\" (\"" + file + "\", line 2)";
  const std::string begin = '"' + file + "\", line 4: server \"s\": ";
  const std::string password =
      "user \"a\" needs a password, and there is no terminal to ask for it; use --password-file "
      "FILE (or XMLA_IMPORT_PASSWORD)";
  const std::string withoutUser =
      " needs a user name; use --user NAME, or set user there; see xmla-import help log-in";
  const auto url = [](const WireServer& server) {
    return "url='http://" + server.Authority() + "/'\n";
  };
  const struct {
    Arguments options;
    std::string lines;  // of the server
    std::vector<std::string> says;
  } kCases[] = {
      {{}, url(missing), {"use --url URL for another URL, or set url" + owner}},
      {{},
       url(locked),
       {"use --user NAME, or set user" + owner,
        "note: use --password-file FILE unless you want to type the password, or set "
        "password-command" +
            owner}},
      {{}, url(failing), {"note: the URL is that" + owner}},
      {{},
       "url='http://h/'\nuser='a'",
       {begin + password + ", or set password-command or password-file there; see"}},
      {{},
       "\nurl='http://a@h/'",
       {begin + password + ", or set password-command or password-file there; see"}},
      {{"--user", "a"},
       "url='http://h/'",
       {"error: " + password + ", or set password-command or password-file" + owner + "; see"}},
      {{"--user", "a"}, "url='http://h/'\nuser='other'", {"error: " + password + "; see"}},
      {{"--user", "a"},
       "url='http://h/'\nuser='other'\npassword-file='x'",
       {"no terminal to ask for it; password-file of server \"s\" (\"" + file +
        "\", line 5) is only for user \"other\"; use --password-file FILE"}},
      {{"--user", "a"},
       "url='http://h/'\nuser='other'\npassword-command=['x']",
       {"no terminal to ask for it; password-command of server \"s\" (\"" + file +
        "\", line 5) is only for user \"other\"; use --password-file FILE"}},
      {{}, "url='http://h/'\npassword-file='x'", {begin + "password-file" + withoutUser}},
      {{}, "url='http://h/'\npassword-command=['x']", {begin + "password-command" + withoutUser}},
  };
  const auto run = [&](const std::string& lines, const char* command, const Arguments& more = {}) {
    Arguments arguments{"--server", "s", command};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return RunTool(arguments, WithServers(file, "# comment\n[s]\n" + lines));
  };
  for (const auto& each : kCases) {
    const Outcome outcome = run(each.lines, "sources", each.options);
    for (const std::string& text : each.says) EXPECT_THAT(outcome.err, HasSubstr(text));
  }
  const std::string target =
      "leave out target of server \"s\" (\"" + file + "\", line 4), or use --target sap-bw35";
  for (const char* const command : {"sources", "check"}) {
    const Outcome outcome =
        run("url='" + provider.Url(sample::Kind::kSapBw) + "'\ntarget='tessera'", command);
    EXPECT_THAT(outcome.out + outcome.err, HasSubstr(target));
  }
  // The key of the server is named already.
  const Outcome refused = run(url(locked) + "user='a'\npassword-command=['echo', 'p']", "sources");
  EXPECT_THAT(refused.err, HasSubstr("user of server \"s\" (\"" + file + "\", line 4)"));
  EXPECT_THAT(refused.err, Not(HasSubstr("the URL is that")));
  EXPECT_THAT(run(url(missing), "check").err, HasSubstr(", or set url" + owner));
}

/// "use --url URL for another URL" would add nothing.
TEST(SettingAdvice, UnknownHostNamesTheHostOnly) {
  const support::TempDir folder;
  const std::string file = folder.Path() / "servers.toml";
  const Options options = WithServers(file, "[s]\nurl='http://service.invalid/'");
  const std::string says = "cannot be resolved; check the spelling of the host name\n";
  for (const char* const command : {"sources", "check"}) {
    const Outcome outcome = RunTool({"--url", "http://service.invalid/", command});
    EXPECT_THAT(outcome.err, HasSubstr(says));
    EXPECT_THAT(outcome.err, Not(HasSubstr("--url URL")));
  }
  EXPECT_THAT(RunTool({"--server", "s", "sources"}, options).err,
              EndsWith("note: the URL is that of server \"s\" (\"" + file + "\", line 1)\n"));
}

/// A key of the server file that has no effect would be corrected in vain.
TEST(SettingAdvice, NamesTheKeyThatAVariableOverrides) {
  const support::TempDir folder;
  const std::string file = folder.Path() / "servers.toml";
  Options options =
      WithServers(file, "[s]\nurl='http://service.invalid/'\nproxy='http://127.0.0.1:2'");
  options.environment["http_proxy"] = "http://no-such-proxy.invalid:3128";
  for (const char* const command : {"sources", "check"}) {
    const Outcome outcome = RunTool({"--server", "s", command}, options);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("the host name of the proxy "
                                       "http://no-such-proxy.invalid:3128 cannot be resolved; "));
    EXPECT_THAT(outcome.ErrorLines().back(),
                EndsWith("the proxy comes from http_proxy, which overrides proxy of server \"s\" "
                         "(\"" +
                         file +
                         "\", line 3) while it is set; use --proxy URL for another proxy, or "
                         "--proxy \"\" for none"));
  }
}

TEST(SettingAdvice, RefusedLogInSaysWhereThePasswordCameFrom) {
  const WireServer locked(Answer("", "401 No", "WWW-Authenticate: Basic realm=\"r\"\r\n"));
  const WireServer refusing(Answer("", "407 No", "Proxy-Authenticate: Basic realm=\"r\"\r\n"));
  const struct {
    std::string url;
    std::map<std::string, std::string> variables;
    const char* says;
  } kCases[] = {
      {"http://" + locked.Authority() + "/",
       {{"XMLA_IMPORT_PASSWORD", "c4nary"}, {"XMLA_IMPORT_USER", "ann"}},
       "the user name comes from XMLA_IMPORT_USER, and the password from XMLA_IMPORT_PASSWORD; "
       "correct the one that is wrong"},
      {"http://service.invalid/",
       {{"http_proxy", "http://ann:c4nary@" + refusing.Authority()}},
       "the proxy comes from http_proxy; use --proxy URL for another proxy"},
  };
  for (const auto& [url, variables, says] : kCases)
    for (const char* const command : {"sources", "check"}) {
      Options options;
      options.environment.insert(variables.begin(), variables.end());
      const Outcome outcome = RunTool({"--url", url, command}, options);
      EXPECT_EQ(outcome.status, 1);
      EXPECT_THAT(outcome.ErrorLines().back(), HasSubstr(says));
      EXPECT_THAT(outcome.out + outcome.err, Not(HasSubstr("c4nary")));
    }
}

TEST(SettingAdvice, SaysThatAPasswordWithoutAUserIsNotUsed) {
  const WireServer locked(Answer("", "401 No", "WWW-Authenticate: Basic realm=\"r\"\r\n"));
  const std::string says = "XMLA_IMPORT_PASSWORD is set, but not used without a user name";
  for (const char* const command : {"sources", "check"})
    for (const bool hasPassword : {true, false})
      for (const bool hasUser : {true, false}) {
        Options options;
        if (hasPassword) options.environment["XMLA_IMPORT_PASSWORD"] = "c4nary";
        if (hasUser) options.environment["XMLA_IMPORT_USER"] = "ann";
        const Outcome outcome =
            RunTool({"--url", "http://" + locked.Authority() + "/", command}, options);
        const bool isNamed = outcome.err.find(says) != outcome.err.npos;
        EXPECT_EQ(isNamed, hasPassword && !hasUser) << outcome.err;
      }
}

TEST(SettingAdvice, SaysThatAProxyMayHaveSentTheResponse) {
  const std::string fault =
      "<Envelope xmlns='http://schemas.xmlsoap.org/soap/envelope/'><Body><Fault>"
      "<faultcode>c</faultcode><faultstring>wrong</faultstring></Fault></Body></Envelope>";
  const WireServer forbidding(Answer("", "403 Forbidden"));
  const WireServer missing(Answer("", "404 Not Found"));
  const WireServer page(Answer("<html></html>"));
  const WireServer failing(Answer(fault, "500 Internal Server Error"));
  const std::string_view says =
      "the proxy comes from http_proxy; if the request went through it, it may have sent the "
      "response";
  for (const WireServer* const server : {&forbidding, &missing, &page, &failing})
    for (const bool isProxied : {true, false}) {
      Options options;
      if (isProxied) options.environment["http_proxy"] = "http://" + server->Authority();
      const std::string host = isProxied ? "service.invalid" : server->Authority();
      for (const char* const command : {"sources", "check"}) {
        const Outcome outcome = RunTool({"--url", "http://" + host + "/", command}, options);
        EXPECT_EQ(outcome.status, 1);
        const bool isNamed = outcome.ErrorLines().back().ends_with(says);
        EXPECT_EQ(isNamed, isProxied && server != &failing) << outcome.err;
        const std::string step = "ok       proxy            http://" + server->Authority() +
                                 "; the proxy comes from http_proxy\n";
        const bool isShown = outcome.out.find(step) != outcome.out.npos;
        EXPECT_EQ(isShown, isProxied && command == std::string("check")) << outcome.out;
      }
    }
}

TEST(SettingAdvice, UnusableClientCertificatesAreUsageErrors) {
  const Certificate certificate("IP:127.0.0.1", kDay);
  const Certificate other("IP:127.0.0.1", kDay);
  const support::TempDir folder;
  const auto write = [&folder](const char* name, const std::string& text) {
    std::ofstream(folder.Path() / name) << text;
    return (folder.Path() / name).string();
  };
  const std::string key = write("key", certificate.Key());
  const std::string lockedKey = write("locked", certificate.Key("right"));
  const std::string otherKey = write("other", other.Key());
  const std::string wrong = write("wrong", "wrong\n");
  const std::string line = write("line", "wr\x01ng\n");
  const std::string text = write("text", "text");
  const std::string pkcs12 = write("p12", certificate.PKCS12("right"));
  const std::string& cert = certificate.Path();
  const struct {
    Arguments options;
    const char* says;
  } kCases[] = {
      {{"--cert", "/none"}, "--cert \"/none\" cannot be read"},
      {{"--cert", cert, "--key", "/none"}, "--key \"/none\" cannot be read"},
      {{"--cert", text}, "--cert cannot be used: the file "},
      {{"--cert", cert}, "; use --key FILE"},
      {{"--cert", cert, "--key", text}, "--key cannot be used: the file "},
      {{"--cert", cert, "--key", otherKey}, "does not belong to the client certificate"},
      {{"--cert", cert, "--key", lockedKey}, "; use --key-password-file FILE"},
      {{"--cert", cert, "--key", lockedKey, "--key-password-file", wrong},
       "--key-password-file cannot be used: the private key"},
      {{"--cert", cert, "--key", lockedKey, "--key-password-file", line}, "control character"},
      {{"--cert", pkcs12, "--key-password-file", wrong}, "--key-password-file cannot be used: "},
      {{"--cert", pkcs12, "--key", key}, "--key cannot be used: "},
      {{"--cert", pkcs12}, "; use --key-password-file FILE"},
  };
  for (const auto& each : kCases)
    for (const char* const command : {"sources", "check"}) {
      Arguments arguments{"--url", "https://127.0.0.1:1/"};
      arguments.insert(arguments.end(), each.options.begin(), each.options.end());
      arguments.emplace_back(command);
      SCOPED_TRACE(testing::PrintToString(arguments));
      const Outcome outcome = RunTool(arguments);
      EXPECT_EQ(outcome.status, 2);
      EXPECT_THAT(outcome.err, HasSubstr(each.says));
    }
  const Outcome outcome =
      RunTool({"--server", "s", "tree"},
              WithServers(folder.Path() / "servers.toml", "[s]\nurl='https://h/'\ncert='text'\n"));
  EXPECT_EQ(outcome.status, 2);
  EXPECT_THAT(outcome.err, HasSubstr("line 3: server \"s\": cert cannot be used: the file "));
}

}  // namespace
}  // namespace tool
