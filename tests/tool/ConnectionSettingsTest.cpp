// Which source decides about each setting of a connection: option, environment or server file.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <functional>

#include "base/Text.h"
#include "connection/Connection.h"
#include "results/Formats.h"
#include "support/TempDir.h"

namespace {

using testing::HasSubstr;

using Words = std::vector<std::string>;
using Variables = std::vector<std::pair<std::string, std::string>>;

/// The variables of a test, removed by the destructor.
class Environment {
 public:
  explicit Environment(const Variables& variables) {
    Clear();
    for (const auto& [name, value] : variables) setenv(name.c_str(), value.c_str(), 1);
  }
  ~Environment() { Clear(); }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

 private:
  static void Clear() {
    for (const char* const name :
         {"XMLA_IMPORT_URL", "XMLA_IMPORT_SERVER", "XMLA_IMPORT_SERVERS", "XMLA_IMPORT_USER",
          "XMLA_IMPORT_PASSWORD", "XMLA_IMPORT_TOKEN", "XMLA_IMPORT_TARGET", "SSL_CERT_FILE",
          "http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY",
          "MORVEN_BI_XMLA_HTTP_TIMEOUT"})
      unsetenv(name);
  }
};

const std::vector<CommandForm> kSourcesForm = {{"sources", "the only command", {}}};

/// Files with secrets, and a server file. "{folder}" in a word stands for their folder.
class ConnectionSettings : public testing::Test {
 protected:
  ConnectionSettings() {
    for (const char* const name : {"option", "file", "cert", "key", "ca", "other-ca"})
      std::ofstream(m_folder.Path() / name) << "from-" << name << "\n";
  }

  std::string Filled(std::string text) const {
    constexpr std::string_view kPlace = "{folder}";
    for (std::size_t at = text.find(kPlace); at != text.npos; at = text.find(kPlace))
      text.replace(at, kPlace.size(), m_folder.Path().string());
    return text;
  }

  Connection Connected(const Words& words, Variables variables, const std::string& server) const {
    const std::string file = m_folder.Path() / "servers.toml";
    std::ofstream(file) << Filled(server);
    chmod(file.c_str(), 0600);
    variables.emplace_back("XMLA_IMPORT_SERVERS", file);
    const Environment environment(variables);
    std::vector<std::string> texts{"xmla-import", "sources"};
    for (const std::string& word : words) texts.push_back(Filled(word));
    std::vector<const char*> argv;
    for (const std::string& text : texts) argv.push_back(text.c_str());
    Arguments arguments;
    ParseArguments(static_cast<int>(argv.size()), argv.data(), kSourcesForm, Formats(), arguments);
    return Connect(arguments, EnvironmentSecrets::Take());
  }

  std::string Error(const Words& words, const Variables& variables,
                    const std::string& server) const {
    try {
      Connected(words, variables, server);
    } catch (const UsageError& error) {
      return error.what();
    }
    return "no error";
  }

  const support::TempDir m_folder;
};

const std::string kServer = "[s]\nurl='http://file/'\n";

struct Precedence {
  const char* key;
  Words option;
  Variables variable;  ///< empty: there is none
  std::string line;    ///< of the server file; replaces the table above if it begins with "["
  std::function<std::string(const Connection&)> shown;
  std::vector<std::string> expected;  ///< option, variable, server file
  Words always = {};
  std::string alwaysInFile = {};
};

std::string Number(const std::optional<std::uint32_t>& number) {
  return number ? std::to_string(*number) : "none";
}

std::vector<Precedence> Precedences() {
  const auto field = [](auto member) {
    return [member](const Connection& connection) { return Utf8(connection.*member); };
  };
  const auto http = [](auto member) {
    return [member](const Connection& connection) { return Utf8(connection.http.*member); };
  };
  const auto user = field(&Connection::user);
  const auto password = field(&Connection::password);
  return {
      {"user",
       {"--user", "a", "--password-file", "{folder}/option"},
       {{"XMLA_IMPORT_USER", "b"}, {"XMLA_IMPORT_PASSWORD", "p"}},
       "user='c'\npassword-file='file'",
       user,
       {"a", "b", "c"}},
      {"password",
       {"--password-file", "{folder}/option"},
       {{"XMLA_IMPORT_PASSWORD", "p"}},
       "user='c'\npassword-file='file'",
       password,
       {"from-option", "p", "from-file"},
       {"--user", "c"}},
      {"password-command",
       {"--password-file", "{folder}/option"},
       {{"XMLA_IMPORT_PASSWORD", "p"}},
       "user='c'\npassword-command=['echo','printed']",
       password,
       {"from-option", "p", "printed"},
       {"--user", "c"}},
      {"token-file",
       {"--token-file", "{folder}/option"},
       {{"XMLA_IMPORT_TOKEN", "t"}},
       "token-file='file'",
       http(&HTTPClientOptions::bearerToken),
       {"from-option", "t", "from-file"}},
      {"auth",
       {"--auth", "negotiate"},
       {},
       "auth=['ntlm','digest']",
       [](const Connection& connection) { return std::to_string(connection.http.authSchemes); },
       {"8", "", "6"},
       {},
       "user='c'\npassword-file='file'\n"},
      {"cert",
       {"--cert", "{folder}/option"},
       {},
       "cert='cert'",
       http(&HTTPClientOptions::certificateFile),
       {"{folder}/option", "", "{folder}/cert"}},
      {"key",
       {"--key", "{folder}/option"},
       {},
       "key='key'",
       http(&HTTPClientOptions::keyFile),
       {"{folder}/option", "", "{folder}/key"},
       {},
       "cert='cert'\n"},
      {"key-password-file",
       {"--key-password-file", "{folder}/option"},
       {},
       "key-password-file='file'",
       http(&HTTPClientOptions::keyPassword),
       {"from-option", "", "from-file"},
       {},
       "cert='cert'\n"},
      // The client reads the variable itself.
      {"ca-file",
       {"--ca-file", "{folder}/option"},
       {{"SSL_CERT_FILE", "/elsewhere"}},
       "ca-file='ca'",
       http(&HTTPClientOptions::caFile),
       {"{folder}/option", "", "{folder}/ca"}},
      {"proxy",
       {"--proxy", "http://option/"},
       {{"http_proxy", "http://variable/"}},
       "proxy='http://file/'",
       [](const Connection& connection) {
         return connection.http.proxy ? Utf8(*connection.http.proxy) : "of the environment";
       },
       {"http://option/", "of the environment", "http://file/"}},
      {"no proxy",
       {"--proxy="},
       {},
       "proxy=''",
       [](const Connection& connection) {
         return connection.http.proxy && connection.http.proxy->empty() ? "off" : "on";
       },
       {"off", "", "off"}},
      {"connect-timeout",
       {"--connect-timeout", "1"},
       {{"MORVEN_BI_XMLA_HTTP_TIMEOUT", "2"}},
       "connect-timeout=3",
       [](const Connection& connection) { return Number(connection.http.connectTimeoutSeconds); },
       {"1", "2", "3"}},
      {"timeout",
       {"--timeout", "0"},
       {{"MORVEN_BI_XMLA_HTTP_TIMEOUT", "2"}},
       "timeout=3",
       [](const Connection& connection) { return Number(connection.http.timeoutSeconds); },
       {"0", "2", "3"}},
      {"retry",
       {"--retry", "4"},
       {},
       "retry=5",
       [](const Connection& connection) { return std::to_string(connection.http.maxRetries); },
       {"4", "", "5"}},
      {"target",
       {"--target", "sap-bw"},
       {{"XMLA_IMPORT_TARGET", "tessera"}},
       "target='tamarind-9'",
       [](const Connection& connection) {
         return std::to_string(static_cast<int>(connection.target.value()));
       },
       {std::to_string(ServerInfo::kSAP_BW), std::to_string(ServerInfo::kTessera),
        std::to_string(ServerInfo::kTamarind9)}},
  };
}

Words Joined(Words words, const Words& more) {
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

TEST_F(ConnectionSettings, OptionsOverrideTheEnvironmentWhichOverridesTheServerFile) {
  for (const Precedence& each : Precedences()) {
    SCOPED_TRACE(each.key);
    const std::string server = kServer + each.alwaysInFile + each.line;
    const Words call = Joined({"--server", "s"}, each.always);
    EXPECT_EQ(each.shown(Connected(Joined(call, each.option), each.variable, server)),
              Filled(each.expected[0]));
    if (!each.variable.empty()) {
      EXPECT_EQ(each.shown(Connected(call, each.variable, server)), Filled(each.expected[1]));
    }
    EXPECT_EQ(each.shown(Connected(call, {}, server)), Filled(each.expected[2]));
  }
}

TEST_F(ConnectionSettings, EveryKeyOfTheServerFileHasAPrecedence) {
  std::string tested;
  for (const Precedence& each : Precedences()) tested += each.line + "\n";
  const std::string error = Error({"--server", "s"}, {}, kServer + "keys=1");
  const std::string list = error.substr(error.find("expected one of: ") + 17);
  std::size_t count = 0;
  for (std::size_t begin = 0; begin < list.find(';');) {
    const std::size_t end = std::min(list.find(", ", begin), list.find(';'));
    const std::string key = list.substr(begin, end - begin);
    if (key != "url") {
      EXPECT_THAT(tested, HasSubstr(key + "="));
    }
    begin = end + 2;
    ++count;
  }
  EXPECT_EQ(count, 15u) << error;
}

TEST_F(ConnectionSettings, ServiceOfAnOptionOverridesThatOfAVariable) {
  const Variables url{{"XMLA_IMPORT_URL", "http://variable/"}};
  const Variables server{{"XMLA_IMPORT_SERVER", "s"}};
  EXPECT_EQ(Utf8(Connected({"--url", "http://option/"}, server, kServer).url), "http://option/");
  EXPECT_EQ(Utf8(Connected({"--server", "s"}, url, kServer).url), "http://file/");
  EXPECT_EQ(Utf8(Connected({}, url, kServer).url), "http://variable/");
  EXPECT_EQ(Utf8(Connected({}, server, kServer).url), "http://file/");
}

struct LogInCase {
  Words words;
  Variables variables;
  std::string lines;  ///< of the server file
  std::string user;
  std::string password;
  std::string token;
};

TEST_F(ConnectionSettings, UserAndTokenOfAnEarlierSourceReplaceThoseOfALaterOne) {
  const std::string inFile = "user='c'\npassword-file='file'";
  const LogInCase cases[] = {
      {{"--user", "a"}, {{"XMLA_IMPORT_PASSWORD", "p"}}, "token-file='file'", "a", "p", ""},
      {{"--token-file", "{folder}/option"}, {}, inFile, "", "", "from-option"},
      {{"--token-file", "{folder}/option"},
       {{"XMLA_IMPORT_USER", "b"}, {"XMLA_IMPORT_PASSWORD", "p"}},
       inFile,
       "",
       "",
       "from-option"},
      {{}, {{"XMLA_IMPORT_TOKEN", "t"}}, inFile, "", "", "t"},
      {{}, {{"XMLA_IMPORT_TOKEN", "t"}, {"XMLA_IMPORT_PASSWORD", "p"}}, inFile, "", "", "t"},
      {{},
       {{"XMLA_IMPORT_USER", "b"}, {"XMLA_IMPORT_PASSWORD", "p"}},
       "token-file='file'",
       "b",
       "p",
       ""},
      // Options that are about the token in the file only are not used without it.
      {{"--user", "a"},
       {{"XMLA_IMPORT_PASSWORD", "p"}, {"XMLA_IMPORT_TOKEN", "t"}},
       "",
       "a",
       "p",
       ""},
      // Credentials in the URL of the file.
      {{}, {}, "[u]\nurl='http://u:q@file/'", "u", "q", ""},
      {{"--user", "a"},
       {{"XMLA_IMPORT_PASSWORD", "p"}},
       "[u]\nurl='http://u:q@file/'",
       "a",
       "p",
       ""},
      {{}, {}, "[u]\nurl='http://u:q@file/'\nuser='u'", "u", "q", ""},
      {{}, {{"XMLA_IMPORT_PASSWORD", "p"}}, "[u]\nurl='http://u:q@file/'", "u", "p", ""},
      {{"--token-file", "{folder}/option"},
       {},
       "[u]\nurl='http://u:q@file/'",
       "",
       "",
       "from-option"},
      // The password of the file is for its user only.
      {{"--user", "c"}, {}, inFile, "c", "from-file", ""},
      {{}, {{"XMLA_IMPORT_USER", "c"}}, inFile, "c", "from-file", ""},
      {{"--user", "c"}, {}, "password-file='file'", "c", "from-file", ""},
      // With the ticket alone, a password is neither used nor read.
      {{"--auth", "negotiate"}, {}, "user='c'\npassword-command=['false']", "c", "", ""},
      {{}, {}, "user='c'\nauth='negotiate'\npassword-file='missing'", "c", "", ""},
      {{}, {}, "", "", "", ""},
  };
  for (const LogInCase& each : cases) {
    SCOPED_TRACE(testing::PrintToString(each.words) + each.lines);
    const bool hasOwn = each.lines.starts_with('[');
    const Connection connection =
        Connected(Joined({"--server", hasOwn ? "u" : "s"}, each.words), each.variables,
                  hasOwn ? each.lines : kServer + each.lines);
    EXPECT_EQ(Utf8(connection.user), each.user);
    EXPECT_EQ(Utf8(connection.password), each.password);
    EXPECT_EQ(Utf8(connection.http.bearerToken), each.token);
    EXPECT_EQ(Utf8(connection.url), "http://file/");
  }
}

TEST_F(ConnectionSettings, SchemesDependOnUserAndToken) {
  const Variables password{{"XMLA_IMPORT_PASSWORD", "p"}};
  const struct {
    Words words;
    unsigned int schemes;
  } cases[] = {
      {{}, kAuthNegotiate | kAuthPasswordSchemes},
      {{"--user", "a"}, kAuthPasswordSchemes},
      {{"--token-file", "{folder}/file"}, kAuthPasswordSchemes},
      {{"--auth", "negotiate"}, kAuthNegotiate},
      {{"--auth", "negotiate", "--user", "a"}, kAuthNegotiate},
      {{"--auth", "negotiate,basic"}, kAuthNegotiate | kAuthBasic},
      {{"--auth", "ntlm,digest", "--user", "a"}, kAuthNTLM | kAuthDigest},
      {{"--auth", "basic", "--proxy", "http://p:q@proxy/"}, kAuthBasic},
  };
  for (const auto& [words, schemes] : cases)
    EXPECT_EQ(Connected(Joined({"--url", "http://h/"}, words), password, "").http.authSchemes,
              schemes)
        << testing::PrintToString(words);
}

TEST_F(ConnectionSettings, KeyOfTheServerFileBelongsToItsCertificate) {
  const Connection connection =
      Connected({"--server", "s", "--cert", "{folder}/option"}, {},
                kServer + "cert='cert'\nkey='key'\nkey-password-file='file'");
  EXPECT_EQ(Utf8(connection.http.certificateFile), Filled("{folder}/option"));
  EXPECT_EQ(Utf8(connection.http.keyFile), "");
  EXPECT_EQ(Utf8(connection.http.keyPassword), "");
}

TEST_F(ConnectionSettings, AdviceNamesTheSourcesInUse) {
  const Words url{"--url", "http://h/"};
  const Words server{"--server", "s"};
  const Words user{"--url", "http://h/", "--user", "a"};
  const std::string inFile = "{folder}/servers.toml\", line ";
  const auto own = [](const std::string& name, const std::string& password) {
    return "the user name comes from " + name + ", and the password from " + password +
           "; correct the one that is wrong";
  };
  const auto both = [](const std::string& origin) {
    return "user name and password come from " + origin + "; correct the one that is wrong";
  };
  const auto proxy = [](const std::string& origin) {
    return "the proxy comes from " + origin +
           "; use --proxy URL for another proxy, or --proxy \"\" for none";
  };
  const std::string key = " of server \"s\" (\"" + inFile;
  const std::string file = "\"{folder}/file\"";
  const Variables password{{"XMLA_IMPORT_PASSWORD", "p"}};
  const struct {
    HTTPSetting setting;
    Words words;
    Variables variables;
    std::string lines;  // of the server
    std::string says;
  } cases[] = {
      {HTTPSetting::kUser, user, password, "", own("--user", "XMLA_IMPORT_PASSWORD")},
      {HTTPSetting::kUser, Joined(user, {"--password-file", "{folder}/file"}), password, "",
       own("--user", "--password-file " + file)},
      {HTTPSetting::kUser,
       url,
       {{"XMLA_IMPORT_USER", "a"}, {"XMLA_IMPORT_PASSWORD", "p"}},
       "",
       own("XMLA_IMPORT_USER", "XMLA_IMPORT_PASSWORD")},
      {HTTPSetting::kUser, {"--url", "http://a:b@h/"}, password, "", both("--url")},
      {HTTPSetting::kUser, {}, {{"XMLA_IMPORT_URL", "http://a:b@h/"}}, "", both("XMLA_IMPORT_URL")},
      {HTTPSetting::kUser,
       {"--url", "http://a@h/"},
       password,
       "",
       own("--url", "XMLA_IMPORT_PASSWORD")},
      {HTTPSetting::kUser,
       server,
       {},
       "user='a'\npassword-file='file'",
       own("user" + key + "3)", "password-file " + file + key + "4)")},
      {HTTPSetting::kUser,
       server,
       {},
       "user='a'\npassword-command=['echo', 'p']",
       own("user" + key + "3)", "password-command" + key + "4)")},
      {HTTPSetting::kUser, server, {}, "[s]\nurl='http://a:b@h/'", both("url" + key + "2)")},
      {HTTPSetting::kUser, Joined(server, {"--user", "b"}), password,
       "user='a'\npassword-file='file'", own("--user", "XMLA_IMPORT_PASSWORD")},
      {HTTPSetting::kUser, url, password, "",
       "use --password-file FILE unless you want to type the password"},
      {HTTPSetting::kToken,
       Joined(url, {"--token-file", "{folder}/file"}),
       {},
       "",
       "the token comes from --token-file " + file + "; replace it there"},
      {HTTPSetting::kToken,
       server,
       {{"XMLA_IMPORT_TOKEN", "t"}},
       "token-file='file'",
       "the token comes from XMLA_IMPORT_TOKEN; replace it there"},
      {HTTPSetting::kToken,
       server,
       {},
       "token-file='file'",
       "the token comes from token-file " + file + key + "3); replace it there"},
      {HTTPSetting::kToken, url, {}, "", "use --token-file FILE for a token"},
      {HTTPSetting::kProxy, Joined(url, {"--proxy", "http://p/"}), {}, "", proxy("--proxy")},
      {HTTPSetting::kProxy,
       server,
       {{"http_proxy", ""}, {"all_proxy", "http://q/"}},
       "proxy='http://p/'",
       proxy("all_proxy, which overrides proxy" + key + "3) while it is set")},
      {HTTPSetting::kProxy,
       server,
       {{"http_proxy", "http://q/"}},
       "proxy=''",
       proxy("http_proxy, which overrides proxy" + key + "3) while it is set")},
      {HTTPSetting::kProxy, server, {{"http_proxy", "http://q/"}}, "", proxy("http_proxy")},
      {HTTPSetting::kProxy,
       Joined(server, {"--proxy", "http://o/"}),
       {{"http_proxy", "http://q/"}},
       "proxy='http://p/'",
       proxy("--proxy")},
      {HTTPSetting::kProxy, server, {}, "proxy='http://p/'", proxy("proxy" + key + "3)")},
      {HTTPSetting::kProxy,
       Joined(url, {"--proxy", ""}),
       {{"http_proxy", "http://q/"}},
       "",
       "use --proxy URL for another proxy, or --proxy \"\" for none"},
      {HTTPSetting::kCAFile,
       server,
       {{"SSL_CERT_FILE", "{folder}/other-ca"}},
       "ca-file='ca'",
       "the trusted certificates come from SSL_CERT_FILE, which overrides ca-file" + key +
           "3) while it is set; use --ca-file FILE for trusted certificates"},
      {HTTPSetting::kCAFile,
       url,
       {{"SSL_CERT_FILE", "{folder}/other-ca"}},
       "",
       "the trusted certificates come from SSL_CERT_FILE; use --ca-file FILE for trusted "
       "certificates"},
      {HTTPSetting::kCAFile,
       Joined(url, {"--ca-file", "{folder}/ca"}),
       {},
       "",
       "use --ca-file FILE for trusted certificates"},
  };
  for (const auto& [setting, words, variables, lines, says] : cases) {
    const std::string table = lines.starts_with('[') ? lines : kServer + lines;
    EXPECT_EQ(SettingAdvice(setting, Connected(words, variables, table).origins), Filled(says))
        << testing::PrintToString(words) << lines;
  }
}

struct Contradiction {
  Words words;
  Variables variables;
  std::string server;
  std::string says;
};

TEST_F(ConnectionSettings, ContradictionsAreErrorsThatNameBothSides) {
  const Words url{"--url", "http://h/"};
  const Words server{"--server", "s"};
  const Contradiction cases[] = {
      {Joined(url, {"--user", "a", "--token-file", "f"}),
       {},
       "",
       "--token-file and --user cannot be combined"},
      {Joined(url, {"--password-file", "f", "--token-file", "f"}),
       {},
       "",
       "--token-file and --password-file cannot be combined"},
      {{"--url", "http://a:b@h/", "--token-file", "f"},
       {},
       "",
       "--token-file and the user in the URL cannot be combined"},
      {url,
       {{"XMLA_IMPORT_USER", "a"}, {"XMLA_IMPORT_TOKEN", "t"}},
       "",
       "XMLA_IMPORT_TOKEN and XMLA_IMPORT_USER cannot be combined"},
      {server,
       {},
       "user='a'\ntoken-file='f'",
       "servers.toml\", line 4: server \"s\": token-file and user cannot be combined"},
      {server,
       {},
       "user='a'\npassword-file='f'\npassword-command=['x']",
       "servers.toml\", line 4: server \"s\": password-file and password-command cannot be "
       "combined"},
      {{},
       {{"XMLA_IMPORT_URL", "http://h/"}, {"XMLA_IMPORT_SERVER", "s"}},
       "",
       "XMLA_IMPORT_URL and XMLA_IMPORT_SERVER cannot be combined; unset one"},
      {Joined(url, {"--server", "s"}), {}, "", "--url and --server cannot be combined"},
      {{"--url", "http://h/", "--server", "s", "--sample", "sap-bw"},
       {},
       "",
       "--url, --server and --sample cannot be combined"},
      {Joined(url, {"--auth", "negotiate", "--token-file", "{folder}/file"}),
       {},
       "",
       "--auth cannot be combined with a token (--token-file)"},
      {Joined(url, {"--auth", "negotiate"}),
       {{"XMLA_IMPORT_TOKEN", "t"}},
       "",
       "--auth cannot be combined with a token (XMLA_IMPORT_TOKEN)"},
      {Joined(url, {"--auth", "negotiate", "--user", "a", "--password-file", "f"}),
       {},
       "",
       "--password-file has no effect with --auth negotiate"},
      {url,
       {{"XMLA_IMPORT_USER", "bob"}},
       "",
       "user \"bob\" (from XMLA_IMPORT_USER) needs a password, and there is no terminal"},
      {{},
       {{"XMLA_IMPORT_URL", "http://bob@h/"}},
       "",
       "user \"bob\" (from XMLA_IMPORT_URL) needs a password, and there is no terminal"},
      {Joined(url, {"--user", "bob"}),
       {{"XMLA_IMPORT_USER", "eve"}},
       "",
       "user \"bob\" needs a password, and there is no terminal"},
      {Joined(url, {"--auth", "ntlm,basic"}),
       {},
       "",
       "--auth \"ntlm,basic\" needs a user name; use --user NAME, or allow negotiate"},
      {server,
       {},
       "auth='basic'",
       "servers.toml\", line 3: server \"s\": auth \"basic\" needs a user name; use --user NAME, "
       "or "
       "set user there, or allow negotiate"},
      {Joined(server, {"--password-file", "f"}),
       {},
       "",
       "--password-file needs a user name; use --user NAME, or set user of server \"s\" (\""},
      {{"--server", "u"},
       {},
       "[u]\nurl='http://a%0A:b@h/'",
       "servers.toml\", line 4: server \"u\": the user name contains a control character"},
      {Joined(server, {"--token-file", "f"}), {}, "auth='basic'", "the token cannot be read from"},
      {server,
       {},
       "auth='basic'\ntoken-file='f'",
       "servers.toml\", line 3: server \"s\": auth cannot be combined with a token (token-file), "},
      {server,
       {},
       "cert='nofile'",
       "servers.toml\", line 3: server \"s\": cert \"{folder}/nofile\" cannot be read: No such "
       "file"},
      {server,
       {},
       "ca-file='nofile'",
       "servers.toml\", line 3: server \"s\": ca-file \"{folder}/nofile\" cannot be read: No such "
       "file"},
      {server,
       {},
       "user='a'\npassword-file='sub/nofile'",
       "servers.toml\", line 4: server \"s\": the password cannot be read from password-file "
       "\"{folder}/sub/nofile\": No"},
      {server,
       {},
       "token-file='nofile'",
       "servers.toml\", line 3: server \"s\": the token cannot be read from token-file "
       "\"{folder}/nofile\": No such"},
      {server,
       {},
       "key='nofile'",
       "servers.toml\", line 3: server \"s\": key needs a certificate; use --cert FILE, or set "
       "cert "
       "there"},
      {Joined(server, {"--password-file", "f"}),
       {},
       "user='a'\nauth='negotiate'",
       "--password-file has no effect with auth negotiate of server \"s\", which uses your"},
      {Joined(server, {"--key-password-file", "-", "--cert", "{folder}/cert"}),
       {},
       "user='a'\npassword-file='-'",
       "password-file of server \"s\" and --key-password-file cannot both read standard input"},
      {Joined(url, {"--proxy", "http://c4nary:c4nary@h:65536"}),
       {},
       "",
       "--proxy cannot be used: its port is above 65535"},
      {Joined(url, {"--proxy", "ftp://h"}), {}, "", "--proxy cannot be used: its scheme must be"},
      {Joined(url, {"--proxy", "::"}), {}, "", "--proxy cannot be used: it has no host name"},
      {Joined(url, {"--proxy", "my proxy"}), {}, "", "--proxy cannot be used: it contains a space"},
      {Joined(url, {"--auth", "basic,kerberos"}),
       {},
       "",
       "unknown --auth \"kerberos\"; expected one of: negotiate, ntlm, digest, basic"},
      {Joined(url, {"--auth", "negotiat"}), {}, "", "did you mean negotiate?"},
      {Joined(url, {"--auth", "basic,"}), {}, "", "unknown --auth \"\""},
      {Joined(url, {"--key", "{folder}/key"}), {}, "", "--key needs a certificate; use --cert"},
      {Joined(url, {"--key-password-file", "-"}),
       {},
       "",
       "--key-password-file needs a certificate; use --cert FILE"},
      {Joined(url, {"--cert", "{folder}/none"}), {}, "", "none\" cannot be read: No such file"},
      {Joined(url, {"--cert", "{folder}"}), {}, "", "cannot be read: Is a directory"},
      {Joined(url, {"--cert", "{folder}/cert", "--key", "{folder}/none"}),
       {},
       "",
       "none\" cannot be read: No such file"},
      {Joined(url, {"--ca-file", "{folder}/none"}), {}, "", "none\" cannot be read: No such"},
      {Joined(url, {"--user", "a", "--password-file", "-", "--cert", "{folder}/cert",
                    "--key-password-file", "-"}),
       {},
       "",
       "--password-file and --key-password-file cannot both read standard input"},
      {Joined(url, {"--token-file", "-", "--cert", "{folder}/cert", "--key-password-file", "-"}),
       {},
       "",
       "--token-file and --key-password-file cannot both read standard input"},
      {Joined(url, {"--token-file", "{folder}/none"}), {}, "", "the token cannot be read from"},
      {url, {{"XMLA_IMPORT_TOKEN", "Bearer abc"}}, "", "the token (XMLA_IMPORT_TOKEN) is empty or"},
      {Joined(url, {"--retry", "-1"}), {}, "", "--retry needs a whole number from 0 to 100"},
      {Joined(url, {"--retry", "101"}), {}, "", "--retry needs a whole number from 0 to 100"},
      {Joined(url, {"--timeout", "1.5"}), {}, "", "--timeout needs a whole number from 0 to 86400"},
      {Joined(url, {"--connect-timeout", "86401"}),
       {},
       "",
       "--connect-timeout needs a whole number from 0 to 86400"},
      {{"--server", "t"}, {}, "", "unknown --server \"t\"; expected one of: \"s\""},
      {{}, {{"XMLA_IMPORT_SERVER", "other"}}, "", "unknown XMLA_IMPORT_SERVER \"other\""},
  };
  for (const Contradiction& each : cases) {
    const std::string error = Error(each.words, each.variables, kServer + each.server);
    EXPECT_THAT(error, HasSubstr(Filled(each.says))) << testing::PrintToString(each.words);
    EXPECT_EQ(error.find('\n'), error.npos);
    EXPECT_EQ(error.find("c4nary"), error.npos);
  }
}

/// Options that decide who logs in, and how the service is reached, would be ignored.
TEST_F(ConnectionSettings, SampleTakesNoneOfTheOptionsForAccess) {
  for (const char* const option : {"--user", "--password-file", "--token-file", "--cert", "--key",
                                   "--key-password-file", "--ca-file", "--proxy"})
    EXPECT_EQ(Error({"--sample", "sap-bw", option, "x"}, {}, ""),
              std::string(option) +
                  " cannot be combined with --sample; see xmla-import sources "
                  "--help");
  EXPECT_THAT(Error({"--sample", "sap-bw", "--auth", "basic"}, {}, ""), HasSubstr("--auth cannot"));
  const Connection connection =
      Connected({"--sample", "sap-bw", "--timeout", "7", "--retry", "2", "--target", "sap-bw"},
                {{"XMLA_IMPORT_URL", "http://h/"}, {"XMLA_IMPORT_SERVER", "s"}}, "");
  EXPECT_EQ(connection.http.timeoutSeconds, 7u);
  EXPECT_EQ(connection.http.maxRetries, 2u);
}

}  // namespace
