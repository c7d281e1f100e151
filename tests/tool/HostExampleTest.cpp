// Builds docs/host-example.cpp outside of the project's folders, as its first lines say, and runs
// it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>

#include "SampleProvider.h"
#include "Utility/Generic/HTTPClientWrapper.h"
#include "support/Certificate.h"
#include "support/ChildProcess.h"
#include "support/TempDir.h"
#include "support/Text.h"
#include "support/WireServer.h"

namespace tool {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class HostExample : public testing::Test {
 protected:
  void SetUp() override {
    const std::filesystem::path source = m_folder.Path() / "host-example.cpp";
    std::filesystem::copy_file(HOST_EXAMPLE, source);
    const std::string build = std::string("cd '") + m_folder.Path().string() + "' && " + COMPILER +
                              " -Wall -Wextra -Werror -I '" + INCLUDE_FOLDER +
                              "' host-example.cpp -L '" + LIBRARY_FOLDER +
                              "' -lxmlahost -ldl -o host-example";
    const support::ChildResult built = support::RunChild("/bin/sh", {"-c", build});
    ASSERT_EQ(built.exitStatus, 0) << built.err;
  }

  support::ChildResult Run(const std::vector<std::string>& arguments,
                           const std::string& trusted = "", const std::string& user = "",
                           const std::string& password = "") const {
    return support::RunChild(m_folder.Path() / "host-example", arguments,
                             {{"LD_LIBRARY_PATH", LIBRARY_FOLDER},
                              {"no_proxy", "*"},
                              {"SSL_CERT_FILE", trusted},
                              {"HOST_USER", user},
                              {"HOST_PASSWORD", password}});
  }
  std::string File(const std::string& name, const std::string& content) const {
    std::ofstream(m_folder.Path() / name) << content;
    return m_folder.Path() / name;
  }

  const support::TempDir m_folder;
};

TEST_F(HostExample, ImportsCancelsAndReportsErrors) {
  const sample::Provider provider;
  const std::string url = provider.Url(sample::Kind::kAnalysisServices);
  const support::ChildResult good = Run({url, "100"});
  EXPECT_EQ(good.exitStatus, 0) << good.err;
  EXPECT_THAT(good.out,
              StartsWith("server Microsoft Analysis Services 9.00.5000.00\ncube Sales\n"));
  EXPECT_THAT(good.out, HasSubstr("  hierarchy Calendar: 5 levels\n"));
  EXPECT_THAT(good.out, HasSubstr("  measure Units Sold: kAggrSum, VXDoubleData\n"));
  EXPECT_THAT(good.err, StartsWith("[62012] "));

  const support::ChildResult refused = Run({"http://127.0.0.1:1/", "100"});
  EXPECT_EQ(refused.exitStatus, 1);
  EXPECT_THAT(refused.err, StartsWith("retry 1 of 2: http://127.0.0.1:1/: cannot connect"));
  EXPECT_THAT(refused.err, HasSubstr("\nfailed: http://127.0.0.1:1/: cannot connect"));

  const support::ChildResult unusable = Run({"no url", "100"});
  EXPECT_EQ(unusable.exitStatus, 1);
  EXPECT_THAT(unusable.err, StartsWith("failed: no url: the URL of the service cannot be used: "));

  EXPECT_EQ(Run({url}).exitStatus, 2);

  const auto begin = std::chrono::steady_clock::now();
  const support::ChildResult cancelled = Run({url + "?mood=stall@MDSCHEMA_LEVELS", "1"});
  EXPECT_EQ(cancelled.exitStatus, 1);
  EXPECT_THAT(cancelled.err, HasSubstr("cancelled: "));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));
}

TEST_F(HostExample, LogsInWithUserAndPasswordOfTheEnvironment) {
  sample::Options options;
  options.user = "ann";
  options.password = "right";
  const sample::Provider provider(options);
  const std::string url = provider.Url(sample::Kind::kAnalysisServices);
  const support::ChildResult good = Run({url, "100"}, "", "ann", "right");
  EXPECT_EQ(good.exitStatus, 0) << good.err;
  EXPECT_THAT(good.out, HasSubstr("  hierarchy Calendar: 5 levels\n"));
  EXPECT_THAT(Run({url, "100"}, "", "ann", "wrong").err, HasSubstr("failed: "));
  EXPECT_THAT(Run({url, "100"}).err, HasSubstr("the server requires a log-in"));
}

/// A gateway that requires a token and a client certificate, and is busy after the first response.
TEST_F(HostExample, UsesATokenACertificateAndRetries) {
  const sample::Provider provider;
  const Certificate authority("DNS:authority", kDay);
  const Certificate client("DNS:client", kDay, &authority);
  Certificate service("IP:127.0.0.1", kDay);
  service.AskForClient(authority, true);
  const String url = support::Wide(provider.Url(sample::Kind::kAnalysisServices));
  std::atomic<int> count{0};
  const WireServer gateway(
      [&](loopback::Connection& connection, const loopback::Request& request) {
        if (request.Header("authorization") != "Bearer canary") {
          connection.Send(
              Answer("", "401 No", "WWW-Authenticate: Bearer error=\"invalid_token\"\r\n"));
        } else if (const int number = count++; number == 1 || number == 2) {
          connection.Send(Answer("", "503 Busy", "Retry-After: 0\r\n"));
        } else {
          HTTPClientWrapper behind(url, L"", L"", 10, nullptr);
          NarrowString reply;
          String error;
          behind.ReadBytes(NarrowString(request.body.data(), request.body.size()), reply, error);
          connection.Send(Answer(std::string(reply.view())));
        }
      },
      service.Context());
  const std::string address = "https://" + gateway.Authority() + "/";
  const std::string certificate = File("client", support::ReadFile(client.Path()) + client.Key());
  const support::ChildResult good =
      Run({address, "100", File("token", "canary\n"), certificate}, service.Path());
  EXPECT_EQ(good.exitStatus, 0) << good.err;
  EXPECT_THAT(good.out, HasSubstr("  hierarchy Calendar: 5 levels\n"));
  EXPECT_THAT(good.err, StartsWith("retry 1 of 2: " + address + ": HTTP 503 "));
  EXPECT_THAT(good.err, HasSubstr("\nretry 2 of 2: "));
  EXPECT_EQ(good.err.find("canary"), std::string::npos);

  const std::string other = File("other", "foreign\n");
  EXPECT_THAT(Run({address, "100", other, certificate}, service.Path()).err,
              HasSubstr("the server says that the token is invalid or expired; get a new token"));
  EXPECT_THAT(Run({address, "100", other}, service.Path()).err,
              HasSubstr("the server requires a client certificate"));
  EXPECT_THAT(Run({address, "100", "no-such-file"}).err,
              HasSubstr("failed: cannot read a token from no-such-file"));
  EXPECT_THAT(Run({"http://192.0.2.1/", "100", other}).err,
              HasSubstr("the token is not sent over plain http to another machine"));
}

}  // namespace
}  // namespace tool
