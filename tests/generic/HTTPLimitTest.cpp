// Tests the limits on what a server can make the HTTP client receive, keep and do. The error text
// names the limit.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <fstream>
#include <thread>

#include "HTTPPosting.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/ImportOperation.h"
#include "Utility/Generic/VXThread.h"
#include "support/Settings.h"
#include "support/WireServer.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using Clock = std::chrono::steady_clock;

TEST(HTTPLimit, AppliesToPlainAndCompressedReplies) {
  HTTPClientOptions options;
  options.maxReplyBytes = 1000;
  const std::string fits = "<r>" + std::string(993, 'x') + "</r>";
  const std::string bomb = Gzip("<r>" + std::string(50 << 20, 'x') + "</r>");
  for (const std::string& answer :
       {Answer(fits + "\n"), Answer(bomb, "200 OK", "Content-Encoding: gzip\r\n")}) {
    WireServer server(answer);
    const Outcome outcome = PostOnce("http://" + server.Authority() + "/", 10, &options);
    EXPECT_FALSE(outcome.ok);
    EXPECT_THAT(outcome.error,
                HasSubstr("the reply is longer than 1000 bytes (limit maxReplyBytes)"));
  }
  WireServer server(Answer(fits));
  EXPECT_TRUE(PostOnce("http://" + server.Authority() + "/", 10, &options).ok);
}

TEST(HTTPLimit, EndsAnEndlessReply) {
  WireServer server([](loopback::Connection& connection, const loopback::Request&) {
    connection.Send("HTTP/1.1 200 OK\r\n\r\n");
    while (connection.Send(std::string(1 << 16, 'x'))) {
    }
  });
  HTTPClientOptions options;
  options.maxReplyBytes = 1 << 20;
  EXPECT_THAT(PostOnce("http://" + server.Authority() + "/", 10, &options).error,
              HasSubstr("the reply is longer than 1048576 bytes (limit maxReplyBytes)"));
}

// Headers. All responses of an exchange count together, including informational ones and log-in
// refusals.

struct EndlessHead {
  const char* name;
  std::string begin;
  std::string repeated;
};

class HTTPHeaderLimit : public testing::TestWithParam<EndlessHead> {};

TEST_P(HTTPHeaderLimit, EndsEndlessHeaders) {
  WireServer server([](loopback::Connection& connection, const loopback::Request&) {
    connection.Send(GetParam().begin);
    while (connection.Send(GetParam().repeated)) {
    }
  });
  HTTPClientOptions options;
  options.maxHeaderBytes = 50'000;
  const std::string url = "http://" + server.Authority() + "/";
  EXPECT_THAT(PostOnce(url, 10, &options).error,
              HasSubstr("the reply has more than 50000 bytes of headers (limit maxHeaderBytes); "));
  EXPECT_THAT(PostOnce(url).error, HasSubstr("307200 bytes of headers (limit maxHeaderBytes); "));
}

const std::string kOk = "HTTP/1.1 200 OK\r\n";
const std::string kChunks = kOk + "Transfer-Encoding: chunked\r\n\r\n4\r\n<r/>\r\n0\r\n";

INSTANTIATE_TEST_SUITE_P(HTTP, HTTPHeaderLimit,
                         testing::ValuesIn(std::vector<EndlessHead>{
                             {"Headers", kOk, "X-More: and more\r\n"},
                             {"Trailers", kChunks, "X-More: and more\r\n"},
                             {"TrailersLikeStatusLines", kChunks, "HTTP/1.1 200 OK: x\r\n"},
                             {"TrailersLikePreliminaryAnswers", kChunks,
                              "HTTP/1.1 100 Continue:\r\n"},
                             {"PreliminaryAnswers", "", "HTTP/1.1 102 Processing\r\n\r\n"},
                         }),
                         [](const auto& test) { return test.param.name; });

TEST(HTTPHeaderLimits, ApplyToAllRoundsOfAuthenticationTogether) {
  const std::string head = "X-Long: " + std::string(30'000, 'x') + "\r\n";
  WireServer server([&](loopback::Connection& connection, const loopback::Request& request) {
    connection.Send(
        request.Header("authorization").empty()
            ? Answer("", "401 Unauthorized", "WWW-Authenticate: Basic realm=\"r\"\r\n" + head)
            : Answer("<r/>", "200 OK", head));
  });
  for (const std::size_t limit : {50'000u, 70'000u}) {
    HTTPClientOptions options;
    options.maxHeaderBytes = limit;
    HTTPClientWrapper client(Wide("http://" + server.Authority() + "/"), L"u", L"p", 10, &options);
    EXPECT_EQ(Post(client).ok, limit == 70'000);
  }
}

TEST(HTTPHeaderLimits, TrailerThatLooksLikeAStatusLineIsNoStatusLine) {
  WireServer server(kChunks + "HTTP/1.1 500 Oops: x\r\nX: y\r\n\r\n");
  const Outcome outcome = PostOnce("http://" + server.Authority() + "/");
  EXPECT_TRUE(outcome.ok) << outcome.error;
  EXPECT_EQ(outcome.reply, "<r/>");
}

TEST(HTTPHeaderLimits, RecogniseInformationalResponsesWithAnyBlanks) {
  WireServer server("HTTP/1.1  100 Continue\r\n\r\n" +
                    Answer("", "401 Unauthorized", "WWW-Authenticate: Basic realm=r\r\n"));
  EXPECT_THAT(PostOnce("http://" + server.Authority() + "/").error, HasSubstr("(it offers Basic)"));
}

TEST(HTTPHeaderLimits, RefuseACarriageReturnInsideALine) {
  WireServer server(Answer("", "401 Unauthorized",
                           "WWW-Authenticate: Digest realm=\"r\rX: y\", nonce=\"n\"\r\n"));
  HTTPClientWrapper client(Wide("http://" + server.Authority() + "/"), L"u", L"p", 10, nullptr);
  EXPECT_THAT(Post(client).error,
              HasSubstr("a header line of the response contains a carriage return"));
  EXPECT_EQ(server.Requests().size(), 1u);
}

TEST(HTTPHeaderLimits, AbbreviateQuotedHeaders) {
  std::string offers;
  for (int i = 0; i < 7000; ++i)
    offers += "WWW-Authenticate: S" + std::to_string(i) + std::string(10, 'x') + "\r\n";
  const std::string target = "Location: /" + std::string(50'000, 'x') + "\r\n";
  for (const std::string& answer :
       {Answer("", "401 Unauthorized", offers), Answer("", "302 Found", target)}) {
    WireServer server(answer);
    const std::string error = PostOnce("http://" + server.Authority() + "/").error;
    EXPECT_LT(error.size(), 1000u);
    if (answer.find("401") != std::string::npos) {
      EXPECT_THAT(error, AllOf(HasSubstr("S15xxxxxxxxxx"), Not(HasSubstr("S16x"))));
    }
  }
}

// Compression.

TEST(HTTPRatioLimit, AppliesOnlyToLongReplies) {
  const std::string packed = "Content-Encoding: gzip\r\n";
  const std::string longOne = Gzip("<r>" + std::string(2 << 20, 'x') + "</r>");
  const std::string shortOne = Gzip("<r>" + std::string(1 << 19, 'x') + "</r>");
  const std::string inChunks = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n" + packed +
                               "\r\n" + "8\r\n" + longOne.substr(0, 8) + "\r\n";
  char size[16];
  snprintf(size, sizeof size, "%zx\r\n", longOne.size() - 8);
  const struct {
    std::string answer;
    std::uint64_t limit;
    bool ok;
  } kCases[] = {
      {Answer(longOne, "200 OK", packed), 500, false},
      {inChunks + size + longOne.substr(8) + "\r\n0\r\n\r\n", 500, false},
      {Answer(longOne, "200 OK", packed), 0, true},
      {Answer(longOne, "200 OK", packed), 2000, true},
      {Answer(shortOne, "200 OK", packed), 500, true},
  };
  EXPECT_EQ(HTTPClientOptions().maxCompressionRatio, 500u);
  for (const auto& test : kCases) {
    WireServer server(test.answer);
    HTTPClientOptions options;
    options.maxCompressionRatio = test.limit;
    const Outcome outcome = PostOnce("http://" + server.Authority() + "/", 10, &options);
    EXPECT_EQ(outcome.ok, test.ok) << outcome.error;
    if (!test.ok) {
      EXPECT_THAT(outcome.error,
                  HasSubstr("the reply is compressed by a factor of more than 500 (limit "
                            "maxCompressionRatio)"));
    }
  }
}

/// Length of the reply of the latest exchange.
class Received : public HTTPExchangeObserver {
 public:
  Received() { m_settings.exchangeObserver = this; }
  void OnExchange(const HTTPExchangeInfo& info) override { bytes = info.replyBytes; }
  std::uint64_t bytes = UINT64_MAX;

 private:
  support::Settings m_settings;
};

TEST(HTTPRatioLimit, EndsADecompressionBombEarly) {
  // 400 MB of blanks in zstd: a frame header with a window of 128 KiB, and blocks that repeat one
  // byte.
  std::string bomb("\x28\xB5\x2F\xFD\0\x38", 6);
  for (int i = 0; i < 3200; ++i) bomb.append("\x02\0\x10 ", 4);
  WireServer server(Answer(bomb, "200 OK", "Content-Encoding: zstd\r\n"));
  HTTPClientOptions options;
  options.maxReplyBytes = 0;
  const Received received;
  EXPECT_THAT(PostOnce("http://" + server.Authority() + "/", 10, &options).error,
              HasSubstr("(limit maxCompressionRatio)"));
  EXPECT_LT(received.bytes, 100u << 20);
}

// Nested compression could expand without limit and deliver nothing. Here 5 MB of empty blocks;
// each further level would multiply that by 1000.
TEST(HTTPCompression, IsDecodedOnce) {
  std::string nothing("\x1F\x8B\x08\0\0\0\0\0\0\x03", 10);
  for (int i = 0; i < 1 << 20; ++i) nothing.append("\0\0\0\xFF\xFF", 5);
  const std::string twice = Gzip(nothing);
  const std::string once = Gzip("<r/>");
  const std::string kGzip = "Content-Encoding: gzip\r\n";
  const std::string preliminary = kGzip + "\r\nHTTP/1.1 200 OK\r\n" + kGzip;
  const struct {
    std::string answer;
    bool ok;
  } kCases[] = {
      {Answer(twice, "200 OK", "Content-Encoding: gzip, gzip\r\n"), false},
      {Answer(twice, "200 OK", "content-encoding:gzip,,deflate\r\n"), false},
      {Answer(twice, "200 OK", kGzip + kGzip), false},
      {Answer(twice, "200 OK", kGzip + "Transfer-Encoding: gzip\r\n"), false},
      {Answer(twice, "100 Continue", preliminary), false},
      {Answer(twice, " 100 Continue", preliminary), false},
      {Answer(once, "200 OK", kGzip), true},
      {Answer(once, "200 OK", "Content-Encoding: identity, gzip\r\n"), true},
  };
  for (const auto& test : kCases) {
    WireServer server(test.answer);
    const Outcome outcome = PostOnce("http://" + server.Authority() + "/");
    EXPECT_EQ(outcome.ok, test.ok) << outcome.error;
    if (!test.ok) {
      EXPECT_THAT(outcome.error, HasSubstr("the reply is compressed more than once, which is not "
                                           "accepted; "));
    }
  }
}

TEST(HTTPCompression, IsCountedPerResponseOfAuthentication) {
  WireServer server([](loopback::Connection& connection, const loopback::Request& request) {
    connection.Send(request.Header("authorization").empty()
                        ? Answer(Gzip("no"), "401 Unauthorized",
                                 "WWW-Authenticate: Digest realm=\"r\", nonce=\"n\"\r\n"
                                 "Content-Encoding: gzip\r\n")
                        : Answer(Gzip("<r/>"), "200 OK", "Content-Encoding: gzip\r\n"));
  });
  HTTPClientWrapper client(Wide("http://" + server.Authority() + "/"), L"u", L"p", 10, nullptr);
  for (int i = 0; i < 2; ++i) {
    const Outcome outcome = Post(client);
    EXPECT_TRUE(outcome.ok) << outcome.error;
  }
}

TEST(HTTPLimit, AppliesToTheReplyInUTF8) {
  HTTPClientOptions options;
  options.maxReplyBytes = 1000;
  WireServer server(Answer("<r>" + std::string(600, '\xE9') + "</r>", "200 OK",
                           "Content-Type: text/xml; charset=iso-8859-1\r\n"));
  EXPECT_THAT(
      PostOnce("http://" + server.Authority() + "/", 10, &options).error,
      HasSubstr("longer than 1000 bytes after its conversion to UTF-8 (limit maxReplyBytes); "));
}

/// Refuses log-ins with large bodies.
struct RefusedLogIn {
  const char* offer;
  bool isAccepted;  // a log-in with the offered scheme
  bool isChunked;
};

std::string Chunked(const std::string& body) {
  std::string chunks;
  constexpr std::size_t kChunk = 10'000;
  for (std::size_t at = 0; at < body.size(); at += kChunk)
    chunks += "2710\r\n" + body.substr(at, kChunk) + "\r\n";
  return chunks + "0\r\n\r\n";
}

TEST(HTTPLimit, OfAllRepliesIncludesRefusedLogIns) {
  const RefusedLogIn cases[] = {{"Basic realm=\"r\"", true, false},
                                {"Basic realm=\"r\"", false, false},
                                {"Digest realm=\"r\", nonce=\"n\"", true, false},
                                {"Digest realm=\"r\", nonce=\"n\"", true, true},
                                {"Digest realm=\"r\", nonce=\"n\", stale=true", false, false},
                                {"NTLM", false, false}};
  for (const RefusedLogIn& c : cases) {
    std::atomic<std::uint64_t> sent{0};
    WireServer server([&](loopback::Connection& connection, const loopback::Request& request) {
      const bool isAccepted = c.isAccepted && !request.Header("authorization").empty();
      const std::string body = isAccepted ? "<r/>" : "<html>" + std::string(299'994, ' ');
      sent += body.size();
      const std::string offer = std::string("WWW-Authenticate: ") + c.offer + "\r\n";
      if (isAccepted)
        connection.Send(Answer(body));
      else if (c.isChunked)
        connection.Send("HTTP/1.1 401 Unauthorized\r\n" + offer +
                        "Transfer-Encoding: chunked\r\n\r\n" + Chunked(body));
      else
        connection.Send(Answer(body, "401 Unauthorized", offer));
    });
    // The number of rounds depends on the scheme, so the first run counts the bytes.
    std::uint64_t total = 0;
    for (const std::uint64_t missing : {0U, 0U, 1U}) {
      support::Settings settings;
      settings.limits.maxTotalReplyBytes = total - missing;
      ImportOperation operation;
      HTTPClientWrapper client(Wide("http://" + server.Authority() + "/"), L"u", L"p", 10, nullptr);
      sent = 0;
      for (int i = 0; i < 2; ++i) EXPECT_EQ(Post(client).ok, c.isAccepted);
      EXPECT_GT(sent, 300'000u) << c.offer;
      total = sent;
      if (missing == 0)
        EXPECT_NO_THROW(operation.CheckReplyBytes()) << c.offer;
      else
        EXPECT_THROW(operation.CheckReplyBytes(), ErrorMessage) << c.offer;
    }
  }
}

// Cookies.

TEST(HTTPCookieLimit, KeepsTheFirstCookies) {
  std::atomic<int> next{0};
  WireServer server([&](loopback::Connection& connection, const loopback::Request&) {
    std::string cookies = "Set-Cookie: session=" + std::to_string(next.load()) + "\r\n";
    for (int i = 0; i < 40; ++i)
      cookies += "Set-Cookie: c" + std::to_string(next++) + "=" + std::string(100, 'v') + "\r\n";
    connection.Send(Answer("<r/>", "200 OK", cookies));
  });
  const struct {
    std::size_t count;
    std::size_t bytes;
    std::size_t kept;
  } kCases[] = {{50, 65536, 50}, {3, 65536, 3}, {50, 1000, 10}, {0, 0, 81}};
  for (const auto& test : kCases) {
    next = 0;
    HTTPClientOptions options;
    options.maxCookies = test.count;
    options.maxCookieBytes = test.bytes;
    HTTPClientWrapper client(Wide("http://" + server.Authority() + "/"), L"", L"", 10, &options);
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(Post(client).ok);
    const std::string sent = server.Requests().back().Header("cookie");
    EXPECT_THAT(sent, StartsWith("session=40; c0=v"));  // a cookie that is there is changed
    EXPECT_EQ(std::count(sent.begin(), sent.end(), '='), static_cast<long>(test.kept));
  }
}

TEST(HTTPCookie, FollowsCookieRules) {
  const struct {
    const char* headers;
    const char* sent;
  } kCases[] = {
      {"Set-Cookie: a=1", "a=1"},
      {"set-cookie:a=1;Secure; HttpOnly; SameSite=None", "a=1"},
      {"Set-Cookie: a=\"x y\"", "a=\"x y\""},
      {"Set-Cookie: a=1\r\nSet-Cookie: b=2; Path=/\r\nSet-Cookie: a=3", "a=3; b=2"},
      {"Set-Cookie: a=1; Path=/x", "a=1"},
      {"Set-Cookie: a=1; Path=/x/y", "a=1"},
      {"Set-Cookie: a=1; Path=/x/", "a=1"},
      {"Set-Cookie: a=1; Path=/x/yy", ""},
      {"Set-Cookie: a=1; Path=/other", ""},
      {"Set-Cookie: a=1\r\nSet-Cookie: a=; Path=/other; Max-Age=0", "a=1"},
      {"Set-Cookie: a=1; Domain=com", "a=1"},
      {"Set-Cookie: a=1\r\nSet-Cookie: a=2; Max-Age=0", ""},
      {"Set-Cookie: a=1\r\nSet-Cookie: a=2; Max-Age=-1", ""},
      {"Set-Cookie: a=1; Max-Age=60", "a=1"},
      {"Set-Cookie: a=1\r\nSet-Cookie: a=2; Expires=Thu, 01 Jan 1970 00:00:00 GMT", ""},
      {"Set-Cookie: a=1; Expires=Fri, 01 Jan 2100 00:00:00 GMT", "a=1"},
      {"Set-Cookie: a=1; Max-Age=60; Expires=Thu, 01 Jan 1970 00:00:00 GMT", "a=1"},
      {"Set-Cookie: nothing", ""},
      {"Set-Cookie: =1", ""},
      {"Set-Cookie: a=\x01", ""},
  };
  for (const auto& test : kCases) {
    WireServer server(Answer("<r/>", "200 OK", std::string(test.headers) + "\r\n"));
    HTTPClientWrapper client(Wide("http://" + server.Authority() + "/x/y?q"), L"", L"", 10,
                             nullptr);
    ASSERT_TRUE(Post(client).ok);
    ASSERT_TRUE(Post(client).ok);
    EXPECT_EQ(server.Requests().at(1).Header("cookie"), test.sent) << test.headers;
  }
}

// CPU time is linear in the size of the input, and every phase can be cancelled.

double ThreadSeconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

std::string Times(std::size_t count, const std::string& text) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) all += text;
  return all;
}

/// Best CPU time of this thread for an exchange with this response.
double Cost(const std::string& answer) {
  WireServer server(answer);
  HTTPClientOptions options;
  options.maxHeaderBytes = 0;
  options.maxCookies = 0;
  options.maxCookieBytes = 0;
  HTTPClientWrapper client(Wide("http://" + server.Authority() + "/"), L"u", L"p", 10, &options);
  double best = 1e9;
  for (int i = 0; i < 7; ++i) {
    const double begin = ThreadSeconds();
    Post(client);
    best = std::min(best, ThreadSeconds() - begin);
  }
  return best;
}

struct Scaled {
  const char* name;
  std::string (*answer)(std::size_t size);
  std::size_t size;
};

class HTTPScaling : public testing::TestWithParam<Scaled> {};

TEST_P(HTTPScaling, IsLinear) {
  double once = 0;
  double twice = 1;
  for (int attempt = 0; attempt < 3 && twice > 2.5 * once;
       ++attempt) {  // the machine has other load
    once = Cost(GetParam().answer(GetParam().size));
    twice = Cost(GetParam().answer(2 * GetParam().size));
  }
  EXPECT_LE(twice, 2.5 * once) << "once " << once << " s, twice " << twice << " s";
}

std::string Numbered(std::size_t count, const std::string& before, const std::string& behind) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) text += before + std::to_string(100000 + i) + behind;
  return text;
}

/// Large enough that the allocator treats twice the size the same way.
constexpr std::size_t kLong = 40 << 20;

INSTANTIATE_TEST_SUITE_P(
    HTTP, HTTPScaling,
    testing::ValuesIn(std::vector<Scaled>{
        {"TagsOfARefusal",
         [](std::size_t size) { return Answer("<Envelope>" + std::string(size, '<'), "500 Oops"); },
         kLong},
        {"CommentsOfARefusal",
         [](std::size_t size) { return Answer(Times(size / 4, "<!--"), "500 Oops"); }, kLong},
        {"Blanks", [](std::size_t size) { return Answer(std::string(size, ' ')); }, kLong},
        {"PlainText", [](std::size_t size) { return Answer(std::string(size, 'x')); }, kLong},
        {"Titles", [](std::size_t size) { return Answer("<html>" + Times(size / 6, "<title")); },
         kLong},
        {"Offers",
         [](std::size_t size) {
           return Answer("", "401 Unauthorized", Numbered(size, "WWW-Authenticate: S", "\r\n"));
         },
         5000},
        {"OffersInOneLine",
         [](std::size_t size) {
           return Answer("", "401 Unauthorized",
                         "WWW-Authenticate: " + Numbered(size, "S", ", ") + "\r\n");
         },
         5000},
        {"Trailers",
         [](std::size_t size) { return kChunks + Numbered(size, "X", ": y\r\n") + "\r\n"; }, 5000},
        {"PreliminaryAnswers",
         [](std::size_t size) { return Times(size, "HTTP/1.1 100 C\r\n\r\n") + Answer("<r/>"); },
         5000},
        {"CookieAttributes",
         [](std::size_t size) {
           return Answer("<r/>", "200 OK", "Set-Cookie: a=b" + Times(size, "; Path=/") + "\r\n");
         },
         5000},
    }),
    [](const auto& test) { return test.param.name; });

long ResidentKiB() {
  long pages = 0;
  std::ifstream("/proc/self/statm").ignore(64, ' ') >> pages;
  return pages * (sysconf(_SC_PAGESIZE) / 1024);
}

/// Data that a server can send endlessly and that libcurl reads without reporting it.
struct Discarded {
  const char* name;
  bool isProxys;
  const char* head;
};

class HTTPDiscarded : public testing::TestWithParam<Discarded> {};

/// Discarded data does not count as activity on the connection.
TEST_P(HTTPDiscarded, EndsAtTheTimeOut) {
  const Discarded& test = GetParam();
  WireServer server([&](loopback::Connection& connection, const loopback::Request&) {
    connection.Send(test.head);
    const std::string piece(1 << 16, 'x');
    while (connection.Send(piece)) {
    }
  });
  HTTPClientOptions options;
  if (test.isProxys) options.proxy = Wide("http://u:p@" + server.Authority());
  const Outcome outcome = PostOnce(
      test.isProxys ? "https://service.test/" : "http://" + server.Authority() + "/", 1, &options);
  // libcurl's own time-out comes first if the proxy pauses; then the error names the proxy's
  // status.
  EXPECT_THAT(outcome.error, testing::AnyOf(HasSubstr("1 second;"), HasSubstr("HTTP 407")));
}

/// Until then it takes no memory, and the host can stop it at once.
TEST_P(HTTPDiscarded, UsesNoMemoryAndCanBeCancelled) {
  const Discarded& test = GetParam();
  const int kPieces =
      test.isProxys ? 64 : 1024;  // blocks of 64 KiB; libcurl reads a proxy's response slowly
  VXExecutionState state;
  std::atomic<int> sent{0};
  WireServer server([&](loopback::Connection& connection, const loopback::Request&) {
    connection.Send(test.head);
    const std::string piece(1 << 16, 'x');
    while (connection.Send(piece)) {
      ++sent;
      sent.notify_all();
    }
    sent = kPieces;  // a transfer that ended by itself must not block the peer
    sent.notify_all();
  });
  const auto await = [&](int pieces) {
    for (int now = sent; now < pieces; now = sent) sent.wait(now);
  };
  Clock::time_point requested;
  long before = 0;
  long after = 0;
  std::thread host([&] {
    await(kPieces / 16);
    before = ResidentKiB();
    await(kPieces);
    after = ResidentKiB();
    requested = Clock::now();
    state.RequestCancellation(VXExecutionState::kCancelReasonHost);
  });
  const VXExecutionState::Scope scope(state);
  HTTPClientOptions options;
  if (test.isProxys) options.proxy = Wide("http://u:p@" + server.Authority());
  const Outcome outcome = PostOnce(
      test.isProxys ? "https://service.test/" : "http://" + server.Authority() + "/", 10, &options);
  const auto ended = Clock::now();
  host.join();
  EXPECT_THAT(outcome.error, HasSubstr("the request was cancelled"));
  EXPECT_LT(ended - requested, std::chrono::milliseconds(100));
  EXPECT_LT(after - before, kPieces * 64 / 4);
}

INSTANTIATE_TEST_SUITE_P(
    HTTP, HTTPDiscarded,
    testing::Values(Discarded{"AChunkExtension", false,
                              "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5;"},
                    Discarded{"AProxysRefusal", true,
                              "HTTP/1.1 407 No\r\nProxy-Authenticate: Basic realm=\"r\"\r\n"
                              "Content-Length: 1000000000000\r\n\r\n"},
                    Discarded{"AChunkExtensionOfAProxysRefusal", true,
                              "HTTP/1.1 407 No\r\nProxy-Authenticate: Basic realm=\"r\"\r\n"
                              "Transfer-Encoding: chunked\r\n\r\n5;"}),
    [](const auto& test) { return test.param.name; });

}  // namespace
