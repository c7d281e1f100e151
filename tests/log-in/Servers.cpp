#include "Servers.h"

#include <openssl/evp.h>

#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "Encoding.h"
#include "support/Text.h"

namespace login {
namespace {

using support::Narrow;
using support::Wide;

struct Needed {
  const char* path;
  const char* package;
};
constexpr Needed kNeeded[] = {
    {"/usr/sbin/krb5kdc", "krb5-kdc"},
    {"/usr/sbin/kadmin.local", "krb5-admin-server"},
    {"/usr/bin/kinit", "krb5-user"},
    {"/usr/bin/faketime", "faketime"},  // comes with the library that is used
    {"/usr/sbin/apache2", "apache2-bin"},
    {"/usr/lib/apache2/modules/mod_auth_gssapi.so", "libapache2-mod-auth-gssapi"},
    {"/usr/bin/python3", "python3"},
    {"/usr/lib/python3/dist-packages/impacket", "python3-impacket"},
    {"/usr/bin/microsocks", "microsocks"},
};

std::string MissingPackages() {
  std::string missing;
  for (const Needed& needed : kNeeded)
    if (!std::filesystem::exists(needed.path)) missing += std::string(" ") + needed.package;
  return missing;
}

}  // namespace

const WebServer::Users& TheUsers() {
  static const WebServer::Users users{
      {"ann", "canary-ann"},
      {"ann lee", "canary with spaces"},
      {"jürgen", "canary-jürgen"},
      {"ann:lee", "canary-colon"},
      {std::string(100, 'x'), "canary-long"},
      {"umlaut", "canary-pässwörd"},
      {"punctuation", "canary:\"\\,;@%2F=?"},
      {"proxy-ann", "canary-proxy"},
      {"\"quoted\\", "canary-quoted"},
  };
  return users;
}

Servers& Servers::Get() {
  static std::unique_ptr<Servers> servers;
  static std::exception_ptr problem;  // is not tried again, since each attempt may take seconds
  if (problem) std::rethrow_exception(problem);
  if (servers) return *servers;
  try {
    servers = std::make_unique<Servers>();
  } catch (...) {
    problem = std::current_exception();
    throw;
  }
  return *servers;
}

Servers::Servers()
    : web(folder.Path(), realm, TheUsers(),
          {std::stoi(backend.Port()), provider.Port(), std::stoi(tls.Port())}) {
  const std::string users = folder.Path() / "users.json";
  std::ofstream(users) << nlohmann::json(TheUsers());
  const std::string output = folder.Path() / "password-server.output";
  m_passwordServer = std::make_unique<ServerProcess>(
      std::vector<std::string>{"/usr/bin/python3", LOG_IN_FOLDER "/password-server.py", users,
                               provider.Url(sample::Kind::kAnalysisServices)},
      std::map<std::string, std::string>{{"PYTHONDONTWRITEBYTECODE", "1"}}, output);
  if (!m_passwordServer->Await([&] { return FileText(output).find('\n') != std::string::npos; }))
    throw std::runtime_error("the password server does not start: " + FileText(output));
  m_passwordServerPort = FileText(output);
  m_passwordServerPort.pop_back();
}

std::string Servers::Gateway(const std::string& gatewayFolder, const std::string& host) const {
  return "http://" + host + ":" + std::to_string(web.Port("SERVICE")) + "/" + gatewayFolder +
         "/test";
}

std::string Servers::GatewayToProvider(const std::string& gatewayFolder) const {
  return "http://localhost:" + std::to_string(web.Port("SERVICE")) + "/" + gatewayFolder +
         "/analysis-services";
}

std::string Servers::PasswordServer(const std::string& path) const {
  return "http://127.0.0.1:" + m_passwordServerPort + path;
}

Client::Client(const std::string& url, const Given& given) {
  HTTPClientOptions options;
  options.authSchemes = given.schemes;
  if (given.proxy) options.proxy = Wide(*given.proxy);
  options.caFile = Wide(given.caFile);
  options.connectTimeoutSeconds = given.connectTimeout;
  m_client = std::make_unique<HTTPClientWrapper>(Wide(url), Wide(given.user), Wide(given.password),
                                                 10, &options);
}

Posted Client::Post() {
  NarrowString reply;
  String error;
  const bool ok = m_client->ReadBytes(NarrowString("<q/>"), reply, error);
  Posted posted{ok && error.empty(), std::string(reply.view()), Narrow(error)};
  ExpectNoSecret(posted.reply + posted.error);
  return posted;
}

Posted PostOnce(const std::string& url, const Given& given) { return Client(url, given).Post(); }

tool::Outcome RunTool(const tool::Arguments& arguments,
                      const std::map<std::string, std::string>& environment) {
  tool::Options options;
  options.environment = environment;
  tool::Outcome outcome = tool::RunTool(arguments, options);
  ExpectNoSecret(outcome.out + outcome.err);
  return outcome;
}

void ExpectNoSecret(const std::string& text) {
  EXPECT_EQ(text.find("canary"), std::string::npos) << text;
  // Base64 of the word at each of the three possible positions.
  for (const char* const encoded : {"Y2FuYXJ5", "jYW5hcn", "NhbmFye"})
    EXPECT_EQ(text.find(encoded), std::string::npos) << text;
}

Environment::Environment(const std::map<std::string, std::string>& variables) {
  for (const auto& [name, value] : variables) {
    if (const char* const former = std::getenv(name.c_str()))
      m_former[name] = former;
    else
      m_new.push_back(name);
    setenv(name.c_str(), value.c_str(), 1);
  }
}

Environment::~Environment() {
  for (const auto& [name, value] : m_former) setenv(name.c_str(), value.c_str(), 1);
  for (const std::string& name : m_new) unsetenv(name.c_str());
}

void LogIn::SetUp() {
  const std::string missing = MissingPackages();
  if (missing.empty()) return;
  const std::string text = "SKIPPED: no log-in servers, install these Debian packages:" + missing;
  if (std::getenv("XMLA_REQUIRE_ALL_TESTS")) FAIL() << text;
  GTEST_SKIP() << text;
}

}  // namespace login
