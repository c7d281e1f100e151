#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Realm.h"
#include "SampleProvider.h"
#include "ServerProcess.h"
#include "Utility/Generic/HTTPClientWrapper.h"
#include "WebServer.h"
#include "support/Certificate.h"
#include "support/TempDir.h"
#include "support/WireServer.h"
#include "tool/ToolProcess.h"

namespace login {

/// All servers of this test program. They start with the first use and end with the program.
struct Servers {
  static Servers& Get();
  Servers();

  /// The URL of a folder of httpd.conf, such as "basic", whose server is `backend`.
  std::string Gateway(const std::string& folder, const std::string& host = "localhost") const;
  /// The URL of the provider behind the gateway.
  std::string GatewayToProvider(const std::string& folder) const;
  /// The URL of the server of NTLM and SHA-256 Digest.
  std::string PasswordServer(const std::string& path) const;

  const support::TempDir folder;
  const Certificate certificate{"IP:127.0.0.1", kDay};
  WireServer backend{Answer("<r/>")};
  WireServer tls{[](loopback::Connection& connection, const loopback::Request&) {
                   connection.Send(Answer("<r/>"));
                 },
                 certificate.Context()};
  sample::Provider provider;
  const Realm realm{folder.Path()};
  const WebServer web;

 private:
  std::unique_ptr<ServerProcess> m_passwordServer;
  std::string m_passwordServerPort;
};

/// User names, passwords and what they test.
const WebServer::Users& TheUsers();

/// The outcome of one POST.
struct Posted {
  bool ok;
  std::string reply;
  std::string error;
};

/// A log-in: what the user of the client gives.
struct Given {
  std::string user = {};
  std::string password = {};
  unsigned int schemes = kAuthPasswordSchemes;
  std::optional<std::string> proxy = "";  ///< URL; empty: none; nullopt: the environment's
  std::string caFile = {};
  std::optional<std::uint32_t> connectTimeout = {};  ///< seconds
};

/// A client of the library's HTTP services.
class Client {
 public:
  Client(const std::string& url, const Given& given);
  /// Posts a body, and fails the test if the outcome contains a secret.
  Posted Post();

 private:
  std::unique_ptr<HTTPClientWrapper> m_client;
};

Posted PostOnce(const std::string& url, const Given& given);

/// Runs the tool with these environment variables, and fails the test if its output contains a
/// secret.
tool::Outcome RunTool(const tool::Arguments& arguments,
                      const std::map<std::string, std::string>& environment);

/// Fails the test if the text contains a password, also as Base64.
void ExpectNoSecret(const std::string& text);

/// Sets variables of this process's environment during the object's life.
class Environment {
 public:
  explicit Environment(const std::map<std::string, std::string>& variables);
  ~Environment();
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

 private:
  std::map<std::string, std::string> m_former;
  std::vector<std::string> m_new;
};

/// Base class of all tests. Skips them if a package is missing, or fails if XMLA_REQUIRE_ALL_TESTS
/// is set.
class LogIn : public testing::Test {
 protected:
  void SetUp() override;
};

}  // namespace login
