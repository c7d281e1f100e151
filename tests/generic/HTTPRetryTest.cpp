// Tests retries and time-outs: which failures are repeated, the waits between, and the limits.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <thread>

#include "HTTPPosting.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/ImportOperation.h"
#include "Utility/Generic/VXThread.h"
#include "loopback-server/Connection.h"
#include "support/Certificate.h"
#include "support/FullListener.h"
#include "support/ReservedPort.h"
#include "support/Settings.h"
#include "support/WireServer.h"

namespace {

using testing::AllOf;
using testing::DoubleEq;
using testing::DoubleNear;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

using Clock = std::chrono::steady_clock;

/// Records exchanges. A cancellation can end the first wait.
class RetryRecorder : public HTTPExchangeObserver {
 public:
  RetryRecorder() { m_settings.exchangeObserver = this; }
  void OnBegin(const HTTPExchangeStart& start) override { begun.push_back(start); }
  void OnRetry(const HTTPRetry& retry) override {
    retries.push_back(retry);
    if (cancelled) cancelled->RequestCancellation(VXExecutionState::kCancelReasonHost);
  }
  void OnExchange(const HTTPExchangeInfo& info) override { exchanges.push_back(info); }
  support::Settings& Settings() { return m_settings; }

  VXExecutionState* cancelled = nullptr;
  std::vector<HTTPExchangeStart> begun;
  std::vector<HTTPRetry> retries;
  std::vector<HTTPExchangeInfo> exchanges;

 private:
  support::Settings m_settings;
};

HTTPClientOptions WithRetries(std::uint32_t count) {
  HTTPClientOptions options;
  options.maxRetries = count;
  return options;
}

const std::string kNow = "Retry-After: 0\r\n";
const std::string kSoapFault =
    "<?xml version=\"1.0\"?><s:Envelope xmlns:s=\"u\"><s:Body><s:Fault><faultcode>c</faultcode>"
    "</s:Fault></s:Body></s:Envelope>";

std::string UTF16(const std::string& ascii) {
  std::string bytes = "\xFF\xFE";
  for (const char character : ascii) bytes += {character, '\0'};
  return bytes;
}

// Which responses are repeated.

struct Response {
  const char* name;
  std::string bytes;  // of the first response; "close" and "reset" end the connection
  bool isRepeated;
};

class HTTPRetriedResponse : public testing::TestWithParam<Response> {};

TEST_P(HTTPRetriedResponse, IsRepeatedOnlyIfItIsTemporary) {
  const Response& test = GetParam();
  std::atomic<int> count{0};
  const WireServer server([&](loopback::Connection& connection, const loopback::Request&) {
    if (count++ > 0) return connection.Send(Answer("<r/>")), void();
    if (test.bytes == "reset") return connection.Reset();
    if (test.bytes != "close") connection.Send(test.bytes);
    if (test.bytes.find("Content-Length: 100\r") != std::string::npos || test.bytes == "close")
      connection.Close();
  });
  RetryRecorder recorder;
  const HTTPClientOptions options = WithRetries(1);
  const Outcome outcome = PostOnce("http://" + server.Authority() + "/", 10, &options);
  EXPECT_EQ(server.Requests().size(), test.isRepeated ? 2u : 1u) << outcome.error;
  EXPECT_EQ(recorder.retries.size(), test.isRepeated ? 1u : 0u);
  ASSERT_EQ(recorder.exchanges.size(), 1u);
  EXPECT_EQ(recorder.exchanges[0].retries, test.isRepeated ? 1u : 0u);
  EXPECT_EQ(recorder.exchanges[0].ok, test.isRepeated);
  EXPECT_THAT(outcome.error, Not(HasSubstr("tried")));
}

std::vector<Response> Responses() {
  std::vector<Response> all = {
      {"Closed", "close", true},
      {"Reset", "reset", true},
      {"Cut", "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n<r>", true},
      {"Cut503", "HTTP/1.1 503 Busy\r\nRetry-After: 0\r\nContent-Length: 100\r\n\r\n<r>", true},
      {"Cut500", "HTTP/1.1 500 Oops\r\nContent-Length: 100\r\n\r\n<r>", false},
      {"NotHTTP", "SSH-2.0\r\n\r\n", false},
      {"WrongCompression", Answer("<r/>", "200 OK", "Content-Encoding: gzip\r\n"), false},
      {"WebPage", Answer("<html/>"), false},
      {"Fault", Answer(kSoapFault, "503 Busy", kNow), false},
      {"FaultInUTF16", Answer(UTF16(kSoapFault), "503 Busy", kNow), false},
      {"FaultWithoutPrefix", Answer("<Fault>x</Fault>", "503 Busy", kNow), false},
      {"FaultOfSOAP12", Answer("<e:E xmlns:e='u'><e:Fault/></e:E>", "429 Busy", kNow), false},
      {"NoFault", Answer("<Envelope><Faults/>Fault<xFault/></Envelope>", "503 Busy", kNow), true},
      {"PageAboutAFault", Answer("<html><Fault></html>", "503 Busy", kNow), true},
      {"Redirect", Answer("", "307 Moved", kNow + "Location: /x\r\n"), false},
      {"LogIn", Answer("", "401 No", kNow + "WWW-Authenticate: Basic realm=\"r\"\r\n"), false},
      {"ProxyLogIn", Answer("", "407 No", kNow + "Proxy-Authenticate: Basic\r\n"), false},
  };
  for (const char* const status : {"429", "502", "503", "504"})
    all.push_back({"Status", Answer("busy", status + std::string(" Busy"), kNow), true});
  for (const char* const status : {"400", "403", "404", "408", "500", "501", "505"})
    all.push_back({"Status", Answer("busy", status + std::string(" Oops"), kNow), false});
  return all;
}

INSTANTIATE_TEST_SUITE_P(HTTP, HTTPRetriedResponse, testing::ValuesIn(Responses()),
                         [](const auto& test) {
                           return test.param.name + std::to_string(test.index);
                         });

// Other failures.

TEST(HTTPRetry, FailuresBeforeARequestAreRepeatedOnlyWithoutAConnection) {
  const support::ReservedPort closed;
  const Certificate certificate("IP:127.0.0.1", kDay);
  const WireServer tls("", WireServer::Greets{});
  const WireServer untrusted([](loopback::Connection&, const loopback::Request&) {},
                             certificate.Context());
  const WireServer busyProxy(Answer("", "503 Busy", kNow));
  const WireServer strictProxy(Answer("", "403 No", kNow));
  const struct {
    std::string url;
    std::string proxy;
    std::uint32_t retries;
  } kCases[] = {
      {"http://" + closed.Authority() + "/", "", 1},
      {"http://no-such-host.invalid/", "", 1},
      {"http://service.test/", "http://no-such-host.invalid/", 1},
      {"http://service.test/", "http://" + closed.Authority(), 1},
      {"https://" + untrusted.Authority() + "/", "", 0},
      {"https://service.test/", "http://" + busyProxy.Authority(), 1},
      {"https://service.test/", "http://" + strictProxy.Authority(), 0},
  };
  for (const auto& test : kCases) {
    RetryRecorder recorder;
    HTTPClientOptions options = WithRetries(1);
    options.proxy = Wide(test.proxy);
    const std::string error = PostOnce(test.url, 10, &options).error;
    EXPECT_EQ(recorder.exchanges.at(0).retries, test.retries) << error;
    EXPECT_EQ(error.find("; tried 2 times") != std::string::npos, test.retries == 1) << error;
  }
}

TEST(HTTPRetry, ConnectionLostInTheHandshakeIsRepeated) {
  const Certificate certificate("IP:127.0.0.1", kDay);
  std::atomic<int> count{0};
  loopback::Options listening;
  listening.openStream = [&](int socket) -> std::unique_ptr<loopback::Stream> {
    ++count;
    char hello[8192];  // unread bytes would reset the connection
    EXPECT_GT(recv(socket, hello, sizeof hello, 0), 0);
    return nullptr;
  };
  const loopback::Server server([](loopback::Connection&, const loopback::Request&) {}, listening);
  const HTTPClientOptions options = WithRetries(1);
  EXPECT_THAT(
      PostOnce("https://" + server.Authority() + "/", 10, &options).error,
      AllOf(HasSubstr("the connection was lost in the TLS handshake; check that the port is "
                      "one for https, and try again; if the port is one for http, use "
                      "http://"),
            Not(HasSubstr(" )")), HasSubstr("; tried 2 times")));
  EXPECT_EQ(count, 2);
}

TEST(HTTPRetry, TimeOutOfTheResponseIsNotRepeated) {
  const WireServer server([](loopback::Connection& connection, const loopback::Request&) {
    connection.AwaitPeerGone();
  });
  const HTTPClientOptions options = WithRetries(3);
  EXPECT_THAT(PostOnce("http://" + server.Authority() + "/", 1, &options).error,
              AllOf(HasSubstr("has not responded for 1 second;"), Not(HasSubstr("tried"))));
  EXPECT_EQ(server.Requests().size(), 1u);
}

// Log-ins.

struct RetriedLogIn {
  const char* name;
  const char* user;  // in the URL
  const wchar_t* token;
  const char* offer;  // of the 401
  std::string end;    // of a request with the log-in: "close" or "reset" of the connection
  bool keepsAlive;    // the connection after the 401
};

class HTTPRetriedLogIn : public testing::TestWithParam<RetriedLogIn> {
 protected:
  std::string Url() const { return GetParam().user + m_server.Authority() + "/"; }
  int LogIns() const {
    int count = 0;
    for (const loopback::Request& request : m_server.Requests())
      count += request.Header("authorization").empty() ? 0 : 1;
    return count;
  }

  std::atomic<bool> m_accepts{false};
  const WireServer m_server{
      [this](loopback::Connection& connection, const loopback::Request& request) {
        const RetriedLogIn& test = GetParam();
        if (request.Header("authorization").empty()) {
          const std::string offer = std::string("WWW-Authenticate: ") + test.offer + "\r\n";
          connection.Send(
              Answer("", "401 No", test.keepsAlive ? offer : offer + "Connection: close\r\n"));
          if (!test.keepsAlive) connection.Close();
        } else if (m_accepts) {
          connection.Send(Answer("<r/>"));
        } else if (test.end == "reset") {
          connection.Reset();
        } else {
          connection.Close();
        }
      }};
};

TEST_P(HTTPRetriedLogIn, IsRepeatedOnlyAfterItWasAccepted) {
  HTTPClientOptions options = WithRetries(3);
  options.bearerToken = GetParam().token;
  options.logInMemory = std::make_shared<HTTPLogInMemory>();
  EXPECT_THAT(PostOnce(Url(), 10, &options).error, Not(HasSubstr("tried")));
  EXPECT_EQ(LogIns(), 1);
  m_accepts = true;
  HTTPClientWrapper client(Wide(Url()), L"", L"", 10, &options);
  EXPECT_TRUE(Post(client).ok);
  m_accepts = false;
  options.maxRetries = 1;
  HTTPClientWrapper other(Wide(Url()), L"", L"", 10, &options);
  EXPECT_THAT(Post(other).error, HasSubstr("tried 2 times"));
}

INSTANTIATE_TEST_SUITE_P(
    HTTP, HTTPRetriedLogIn,
    testing::ValuesIn(std::vector<RetriedLogIn>{
        {"BasicReset", "http://ann:p@", L"", "Basic realm=\"r\"", "reset", false},
        {"BasicResetKeptAlive", "http://ann:p@", L"", "Basic realm=\"r\"", "reset", true},
        {"BasicClosed", "http://ann:p@", L"", "Basic realm=\"r\"", "close", false},
        {"DigestReset", "http://ann:p@", L"", "Digest realm=\"r\", nonce=\"n\"", "reset", false},
        {"TokenReset", "http://", L"token", "", "reset", true},
    }),
    [](const auto& test) { return test.param.name; });

/// A busy server has not refused the log-in.
TEST(HTTPRetry, LogInOfABusyServerIsRepeated) {
  std::atomic<int> count{0};
  const WireServer server([&](loopback::Connection& connection, const loopback::Request&) {
    connection.Send(++count <= 2 ? Answer("", "503 Busy", kNow) : Answer("<r/>"));
  });
  HTTPClientOptions options = WithRetries(2);
  options.bearerToken = L"token";
  EXPECT_TRUE(PostOnce("http://" + server.Authority() + "/", 10, &options).ok);
  EXPECT_EQ(count, 3);
}

TEST(HTTPRetry, UnsentTokenIsRepeated) {
  const support::ReservedPort closed;
  HTTPClientOptions options = WithRetries(1);
  options.bearerToken = L"token";
  EXPECT_THAT(PostOnce("http://" + closed.Authority() + "/", 10, &options).error,
              HasSubstr("; tried 2 times"));
}

TEST(HTTPRetry, LogInAtAProxyIsRepeatedOnlyAfterItWasAccepted) {
  std::atomic<bool> accepts{false};
  std::atomic<int> logIns{0};
  const WireServer proxy([&](loopback::Connection& connection, const loopback::Request& request) {
    if (request.Header("proxy-authorization").empty())
      return connection.Send(Answer("", "407 No",
                                    "Proxy-Authenticate: Basic realm=\"r\"\r\n" +
                                        std::string("Connection: close\r\n"))),
             connection.Close();
    ++logIns;
    if (accepts) return connection.Send(Answer("<r/>")), void();
    connection.Reset();
  });
  HTTPClientOptions options = WithRetries(1);
  options.proxy = Wide("http://ann:p@" + proxy.Authority());
  HTTPClientWrapper client(L"http://service.test/", L"", L"", 10, &options);
  for (const bool isHTTPS : {true, false}) {
    const std::string url = isHTTPS ? "https://service.test/" : "http://service.test/";
    logIns = 0;
    EXPECT_THAT(PostOnce(url, 10, &options).error, Not(HasSubstr("tried")));
    EXPECT_EQ(logIns, 1);
  }
  accepts = true;
  EXPECT_TRUE(Post(client).ok);
  accepts = false;
  EXPECT_THAT(Post(client).error, HasSubstr("tried 2 times"));
}

TEST(HTTPRetry, ObserverAndErrorCount) {
  const WireServer server(Answer("", "503 Busy", kNow));
  RetryRecorder recorder;
  const HTTPClientOptions options = WithRetries(2);
  HTTPClientWrapper client(Wide("http://canary:canary@" + server.Authority() + "/"), L"", L"", 10,
                           &options);
  client.SetRequestSubject(L"the subject");
  const Outcome outcome = Post(client);
  const std::string start =
      "http://" + server.Authority() + "/: HTTP 503 Service Unavailable; try again later";
  EXPECT_EQ(outcome.error, start + "; tried 3 times");
  EXPECT_EQ(server.Requests().size(), 3u);
  EXPECT_EQ(recorder.begun.size(), 1u);
  ASSERT_EQ(recorder.exchanges.size(), 1u);
  EXPECT_EQ(recorder.exchanges[0].retries, 2u);
  EXPECT_EQ(Narrow(recorder.exchanges[0].error), outcome.error);
  ASSERT_EQ(recorder.retries.size(), 2u);
  for (const HTTPRetry& retry : recorder.retries) {
    EXPECT_EQ(retry.number, static_cast<std::uint32_t>(&retry - recorder.retries.data()) + 1);
    EXPECT_EQ(retry.maxRetries, 2u);
    EXPECT_EQ(retry.waitSeconds, 0);
    EXPECT_EQ(Narrow(retry.subject), "the subject");
    EXPECT_EQ(Narrow(retry.url), "http://" + server.Authority() + "/");
    EXPECT_EQ(Narrow(retry.error), start);
  }
}

TEST(HTTPRetry, WithoutTheOptionNothingIsRepeated) {
  const WireServer server(Answer("", "503 Busy", kNow));
  EXPECT_THAT(PostOnce("http://" + server.Authority() + "/").error,
              EndsWith("HTTP 503 Service Unavailable; try again later"));
  EXPECT_EQ(server.Requests().size(), 1u);
}

// Waits.

/// Seconds that the client would wait after this response. The wait itself is cancelled.
double WaitAfter(const std::string& headers) {
  const WireServer server(Answer("", "503 Busy", headers));
  RetryRecorder recorder;
  VXExecutionState state;
  recorder.cancelled = &state;
  const VXExecutionState::Scope scope(state);
  const HTTPClientOptions options = WithRetries(1);
  EXPECT_THAT(PostOnce("http://" + server.Authority() + "/", 10, &options).error,
              HasSubstr("the request was cancelled"));
  EXPECT_EQ(server.Requests().size(), 1u);
  EXPECT_EQ(recorder.exchanges.at(0).retries, 0u);
  return recorder.retries.at(0).waitSeconds;
}

std::string HTTPDate(int secondsFromNow) {
  const std::time_t time = std::time(nullptr) + secondsFromNow;
  std::tm parts{};
  gmtime_r(&time, &parts);
  char text[64];
  return {text, std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &parts)};
}

TEST(HTTPRetry, WaitsAsLongAsTheServerSays) {
  constexpr double kDefault = 0.5;
  const struct {
    std::string retryAfter;
    double seconds;
    double tolerance = 0;
  } kCases[] = {
      {"0", 0},
      {"7", 7},
      {"60", 60},
      {"61", 60},
      {"99999999999999999999999", 60},
      {"-1", kDefault},
      {"1.5", kDefault},
      {"soon", kDefault},
      {"", kDefault},
      {"+3", kDefault},
      {HTTPDate(30), 30, 2},
      {HTTPDate(3600), 60},
      {HTTPDate(-3600), kDefault},
      {"Mon, 99 Foo 2030 99:99:99", kDefault},
  };
  for (const auto& test : kCases)
    EXPECT_THAT(WaitAfter("Retry-After: " + test.retryAfter + "\r\n"),
                DoubleNear(test.seconds, test.tolerance))
        << test.retryAfter;
  EXPECT_THAT(WaitAfter(""), DoubleEq(kDefault));
}

/// Ends the second wait instead of waiting for it.
TEST(HTTPRetry, WaitsTwiceAsLongEachTime) {
  const WireServer server(Answer("", "503 Busy"));
  RetryRecorder recorder;
  const HTTPClientOptions options = WithRetries(2);
  const auto begin = Clock::now();
  PostOnce("http://" + server.Authority() + "/", 10, &options);
  EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(1500));
  ASSERT_EQ(recorder.retries.size(), 2u);
  EXPECT_EQ(recorder.retries[0].waitSeconds, 0.5);
  EXPECT_EQ(recorder.retries[1].waitSeconds, 1);
}

TEST(HTTPRetry, CancellationEndsAWaitWithin100Milliseconds) {
  const WireServer server(Answer("", "503 Busy", "Retry-After: 60\r\n"));
  VXExecutionState state;
  const VXExecutionState::Scope scope(state);
  const HTTPClientOptions options = WithRetries(1);
  Clock::time_point requested;
  std::thread host([&] {
    while (server.Requests().empty()) std::this_thread::yield();
    // The client's wait is under test.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    requested = Clock::now();
    state.RequestCancellation(VXExecutionState::kCancelReasonHost);
  });
  const Outcome outcome = PostOnce("http://" + server.Authority() + "/", 10, &options);
  const auto ended = Clock::now();
  host.join();
  EXPECT_THAT(outcome.error, HasSubstr("the request was cancelled"));
  EXPECT_LT(ended - requested, std::chrono::milliseconds(100));
}

TEST(HTTPRetry, DeadlineEndsAWait) {
  const WireServer server(Answer("", "503 Busy", "Retry-After: 60\r\n"));
  RetryRecorder recorder;
  recorder.Settings().limits.deadlineSeconds = 1;
  const ImportOperation operation;
  const HTTPClientOptions options = WithRetries(1);
  const auto begin = Clock::now();
  EXPECT_THAT(PostOnce("http://" + server.Authority() + "/", 10, &options).error,
              HasSubstr("limit deadlineSeconds"));
  EXPECT_LT(Clock::now() - begin, std::chrono::milliseconds(1100));
}

// Limits of an operation.

TEST(HTTPRetry, CountsAsARequestOfTheOperation) {
  const WireServer server(Answer("", "503 Busy", kNow));
  RetryRecorder recorder;
  recorder.Settings().limits.maxRequests = 3;
  ImportOperation operation;
  operation.CountRequest();
  const HTTPClientOptions options = WithRetries(10);
  EXPECT_THAT(PostOnce("http://" + server.Authority() + "/", 10, &options).error,
              EndsWith("; tried 3 times"));
  EXPECT_EQ(server.Requests().size(), 3u);
  EXPECT_THROW(operation.CountRequest(), ErrorMessage);
}

TEST(HTTPRetry, EndsWhenTheRepliesAreTooLong) {
  const WireServer server(Answer(std::string(1000, 'x'), "503 Busy", kNow));
  RetryRecorder recorder;
  recorder.Settings().limits.maxTotalReplyBytes = 2500;
  ImportOperation operation;
  const HTTPClientOptions options = WithRetries(10);
  EXPECT_THAT(PostOnce("http://" + server.Authority() + "/", 10, &options).error,
              EndsWith("; tried 3 times"));
  EXPECT_EQ(server.Requests().size(), 3u);
  EXPECT_THROW(operation.CheckReplyBytes(), ErrorMessage);
}

// Time-outs.

TEST(HTTPTimeoutOptions, ReplaceTheOneOfTheConstructor) {
  const support::FullListener full;
  const WireServer silent([](loopback::Connection& connection, const loopback::Request&) {
    connection.AwaitPeerGone();
  });
  const std::string url = "http://" + silent.Authority() + "/";
  const std::string fullUrl = "http://" + full.Authority() + "/";
  using Limit = std::optional<std::uint32_t>;
  const struct {
    std::string url;
    std::uint32_t constructor;
    Limit connecting;
    Limit silence;
    std::uint32_t effective;
    const char* error;
  } kCases[] = {
      {fullUrl, 1, {}, {}, 1, "no connection to the service within 1 second;"},
      {fullUrl, 60, 1, {}, 60, "no connection to the service within 1 second;"},
      {fullUrl, 60, {}, 1, 1, "no connection to the service within 1 second;"},
      {fullUrl, 60, 1, 50, 50, "no connection to the service within 1 second;"},
      {url, 60, {}, 1, 1, "has not responded for 1 second;"},
      {url, 60, 50, 1, 1, "has not responded for 1 second;"},
  };
  for (const auto& test : kCases) {
    RetryRecorder recorder;
    HTTPClientOptions options;
    options.connectTimeoutSeconds = test.connecting;
    options.timeoutSeconds = test.silence;
    const auto begin = Clock::now();
    EXPECT_THAT(PostOnce(test.url, test.constructor, &options).error, HasSubstr(test.error));
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(10));
    EXPECT_EQ(recorder.begun.at(0).timeoutSeconds, test.effective);
  }
}

TEST(HTTPTimeoutOptions, ZeroMeansNoLimit) {
  const WireServer server([](loopback::Connection& connection, const loopback::Request&) {
    // The server's pace is under test.
    std::this_thread::sleep_for(std::chrono::milliseconds(1200));
    connection.Send(Answer("<r/>"));
  });
  HTTPClientOptions options;
  options.timeoutSeconds = 0;
  options.connectTimeoutSeconds = 1;
  EXPECT_TRUE(PostOnce("http://" + server.Authority() + "/", 1, &options).ok);
}

}  // namespace
