// Tests the sample provider as an HTTP server and as a program.

#include <curl/curl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "SampleClient.h"
#include "loopback-server/Connection.h"

namespace sample_test {
namespace {

using namespace std::chrono_literals;
using sample::Kind;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;
using Clock = std::chrono::steady_clock;

constexpr const char* kAnyType = "DISCOVER_DATASOURCES";

TEST(Server, KindsHaveNames) {
  for (const Kind kind : kKinds) EXPECT_EQ(sample::KindFromName(NameOfKind(kind)), kind);
  EXPECT_EQ(sample::KindFromName("SAP-BW"), std::nullopt);
  EXPECT_EQ(sample::KindFromName(""), std::nullopt);
}

TEST(Server, UsesAFreePortOnTheLoopbackInterface) {
  const sample::Provider one;
  const sample::Provider two;
  EXPECT_NE(one.Port(), two.Port());
  EXPECT_EQ(one.Url(Kind::kSapBw), "http://127.0.0.1:" + std::to_string(one.Port()) + "/sap-bw");
}

TEST(Server, RefusesAUsedPort) {
  const sample::Provider first;
  sample::Options options;
  options.port = first.Port();
  try {
    const sample::Provider second(options);
    FAIL() << "two providers share port " << second.Port();
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(), HasSubstr(std::to_string(options.port)));
  }
}

TEST(Server, RefusesInvalidOptions) {
  sample::Options port;
  port.port = 70000;
  EXPECT_THROW(sample::Provider{port}, std::runtime_error);
  sample::Options latency;
  latency.latency = -1ms;
  EXPECT_THROW(sample::Provider{latency}, std::runtime_error);
}

/// The sender of such bytes, such as a client with https, may wait for a reply.
TEST(Server, RefusesAtOnceWhatIsNoRequest) {
  const sample::Provider provider;
  for (const std::string_view bytes : {"\x16\x03\x01\x02", "\x05\x01", "\x80\x2E"}) {
    loopback::Connection client(loopback::ConnectToLoopback(provider.Port()));
    const timeval limit{10, 0};
    setsockopt(client.Socket(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    client.Send(bytes);
    std::string reply;
    char buffer[256];
    for (std::size_t got; (got = client.Receive(buffer, sizeof buffer)) > 0;)
      reply.append(buffer, got);
    EXPECT_THAT(reply, testing::StartsWith("HTTP/1.1 400 Bad Request\r\n")) << bytes;
  }
}

TEST(Server, RecordsRequestsUnchanged) {
  sample::Provider provider;
  const std::string body = Envelope(kAnyType, {{"CATALOG_NAME", "a & b"}});
  Call call;
  call.acceptEncoding = "gzip";
  Post(provider.Url(Kind::kTamarind) + "?mood=html", body, call);
  Get(provider.Url(Kind::kSapBw));
  const std::vector<loopback::Request> requests = provider.TakeRequests();
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_EQ(requests[0].Method(), "POST");
  EXPECT_EQ(requests[0].Target(), "/tamarind?mood=html");
  EXPECT_EQ(requests[0].body, body);
  EXPECT_THAT(requests[0].Headers(), Contains(Pair("Content-Type", "text/xml")));
  EXPECT_THAT(requests[0].Headers(), Contains(Pair("Accept-Encoding", "gzip")));
  EXPECT_EQ(requests[1].Method(), "GET");
  EXPECT_THAT(provider.TakeRequests(), IsEmpty());
}

TEST(Server, ServesOnlyPostOnThreePaths) {
  const sample::Provider provider;
  const std::string root = "http://127.0.0.1:" + std::to_string(provider.Port());
  EXPECT_EQ(Discover(root + "/", kAnyType).status, 404);
  EXPECT_EQ(Discover(root + "/sap-bw/more", kAnyType).status, 404);
  EXPECT_EQ(Get(provider.Url(Kind::kSapBw)).status, 405);
}

TEST(Server, RequiresCredentialsIfItHasAUser) {
  sample::Options options;
  options.user = "clerk";
  options.password = "pass:wörd";
  const sample::Provider provider(options);
  const std::string url = provider.Url(Kind::kAnalysisServices);
  const Reply none = Discover(url, kAnyType);
  EXPECT_EQ(none.status, 401);
  EXPECT_THAT(none.headers, HasSubstr("WWW-Authenticate: Basic realm="));
  EXPECT_EQ(Parse(none.body).rows.size(), 0U);
  const auto status = [&](const std::string& credentials) {
    Call call;
    call.userAndPassword = credentials;
    return Discover(url, kAnyType, {}, {}, call).status;
  };
  EXPECT_EQ(status("clerk:pass:wörd"), 200);
  EXPECT_EQ(status("clerk:pass"), 401);
  EXPECT_EQ(status("Clerk:pass:wörd"), 401);
}

TEST(Server, CompressesOnlyIfEnabledAndAccepted) {
  for (const Kind kind : kKinds) {
    for (const bool compress : {false, true}) {
      sample::Options options;
      options.compress = compress;
      const sample::Provider provider(options);
      Call plain;
      Call packed;
      packed.acceptEncoding = "gzip";
      Call unpacked;
      unpacked.unpack = true;
      const Reply proper = Discover(provider.Url(kind), kAnyType, {}, {}, plain);
      EXPECT_THAT(proper.headers, Not(HasSubstr("Content-Encoding")));
      const Reply raw = Discover(provider.Url(kind), kAnyType, {}, {}, packed);
      EXPECT_EQ(raw.body.starts_with("\x1f\x8b"), compress);
      EXPECT_EQ(Discover(provider.Url(kind), kAnyType, {}, {}, unpacked).body, proper.body);
    }
  }
}

TEST(Server, DelaysEveryReplyByItsLatency) {
  sample::Options options;
  options.latency = 60ms;
  const sample::Provider provider(options);
  for (const Kind kind : kKinds) {
    const auto start = Clock::now();
    EXPECT_EQ(Discover(provider.Url(kind), kAnyType).status, 200);
    EXPECT_GE(Clock::now() - start, 60ms);
  }
}

TEST(Server, ServesConcurrentConnections) {
  sample::Options options;
  options.latency = 100ms;
  const sample::Provider provider(options);
  std::vector<std::thread> clients;
  std::atomic<int> served = 0;
  const auto start = Clock::now();
  for (int i = 0; i < 60; ++i) {
    clients.emplace_back([&, kind = kKinds[i % 3]] {
      if (Discover(provider.Url(kind), kAnyType).status == 200) ++served;
    });
  }
  for (std::thread& client : clients) client.join();
  EXPECT_EQ(served, 60);
  EXPECT_LT(Clock::now() - start, 2s);  // one after the other would take 6 s
}

TEST(Server, StopsAtOnceInAnyState) {
  for (const char* mood : {"stall", "stall-body", "drip:60000", "slow:60000", "endless"}) {
    SCOPED_TRACE(mood);
    auto provider = std::make_unique<sample::Provider>();
    const std::string url = provider->Url(Kind::kSapBw);
    Reply reply;
    std::thread client([&] { reply = Discover(url + "?mood=" + mood, kAnyType); });
    while (provider->TakeRequests().empty()) std::this_thread::yield();
    const auto start = Clock::now();
    provider.reset();
    EXPECT_LT(Clock::now() - start, 1s);
    client.join();
  }
}

TEST(Server, StopsAtOnceDuringLatencyAndWithIdleConnections) {
  sample::Options options;
  options.latency = 60s;
  auto provider = std::make_unique<sample::Provider>(options);
  const std::string url = provider->Url(Kind::kSapBw);
  std::thread client([&] { Discover(url, kAnyType); });
  while (provider->TakeRequests().empty()) std::this_thread::yield();
  const auto start = Clock::now();
  provider.reset();
  EXPECT_LT(Clock::now() - start, 1s);
  client.join();
}

TEST(Server, KeepsTheSignalHandlersOfTheProcess) {
  struct sigaction before {};
  struct sigaction fresh {};
  struct sigaction after {};
  fresh.sa_handler = SIG_DFL;
  ::sigaction(SIGPIPE, &fresh, &before);
  { const sample::Provider provider; }
  ::sigaction(SIGPIPE, &before, &after);
  EXPECT_EQ(after.sa_handler, SIG_DFL);
}

// The server program, which is in the test program's folder.
class Program {
 public:
  explicit Program(std::vector<std::string> arguments) {
    const auto self = std::filesystem::read_symlink("/proc/self/exe");
    const std::string path = self.parent_path() / "xmla-sample-provider";
    arguments.insert(arguments.begin(), path);
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    m_pid = ::fork();
    if (m_pid == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // ends with this test program, even if that is killed
      ::dup2(ends[1], 1);
      ::dup2(ends[1], 2);
      ::close(ends[0]);
      ::close(ends[1]);
      ::execv(path.c_str(), argv.data());
      ::_exit(127);
    }
    ::close(ends[1]);
    m_out = ::fdopen(ends[0], "r");
  }
  ~Program() {
    if (m_pid > 0) Stop(SIGKILL);
    ::fclose(m_out);
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  std::string Line() {
    std::string line;
    for (int c = ::fgetc(m_out); c != EOF && c != '\n'; c = ::fgetc(m_out))
      line += static_cast<char>(c);
    return line;
  }
  int Stop(int signal) {
    if (signal != 0) ::kill(m_pid, signal);
    int status = 0;
    ::waitpid(m_pid, &status, 0);
    m_pid = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t m_pid = 0;
  FILE* m_out = nullptr;
};

TEST(ServerProgram, PrintsItsUrlsAndServesUntilInterrupted) {
  for (const int signal : {SIGINT, SIGTERM}) {
    Program program({});
    for (const Kind kind : kKinds) {
      const std::string url = program.Line();
      EXPECT_THAT(url, HasSubstr(std::string("/") + std::string(NameOfKind(kind))));
      EXPECT_EQ(Discover(url, kAnyType).status, 200);
    }
    EXPECT_EQ(program.Stop(signal), 0);
  }
}

TEST(ServerProgram, ReadsItsPasswordFromAFile) {
  const std::filesystem::path file =
      std::filesystem::temp_directory_path() / ("sample-password-" + std::to_string(::getpid()));
  for (const char* content : {"secret\nanother line\n", "\xEF\xBB\xBFsecret\r\n"}) {
    std::ofstream(file) << content;
    Program program({"--user", "clerk", "--password-file", file.string(), "--mood", "fault"});
    const std::string url = program.Line();
    Call call;
    EXPECT_EQ(Discover(url, kAnyType).status, 401);
    call.userAndPassword = "clerk:secret";
    EXPECT_NE(Parse(Discover(url, kAnyType, {}, {}, call).body).faultText, "");
    EXPECT_EQ(program.Stop(SIGTERM), 0);
  }
  std::filesystem::remove(file);
}

TEST(ServerProgram, UsageErrorHasAClearText) {
  struct Case {
    std::vector<std::string> arguments;
    int status;
    const char* text;
  };
  const Case cases[] = {
      {{"--port", "70000"}, 2, "70000"},
      {{"--nonsense"}, 2, "--nonsense"},
      {{"--user", "clerk"}, 2, "--password-file"},
      {{"--user", "clerk", "--password-file", "/nowhere/at/all"}, 2, "/nowhere/at/all"},
      {{"--mood", "grumpy"}, 2, "grumpy"},
  };
  for (const Case& c : cases) {
    Program program(c.arguments);
    const std::string line = program.Line();
    EXPECT_THAT(line, testing::StartsWith("xmla-sample-provider: error: "));
    EXPECT_THAT(line, HasSubstr(c.text));
    EXPECT_EQ(program.Stop(0), c.status);
  }
}

}  // namespace
}  // namespace sample_test
