// Cancellation by the host in every state of a transfer.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <random>

#include "ExemptServerSupport.h"
#include "NetworkPeersSupport.h"
#include "NetworkSupport.h"
#include "OperationsSupport.h"
#include "ResolverSupport.h"
#include "Utility/Generic/VXThread.h"
#include "support/Certificate.h"
#include "support/Effort.h"
#include "support/FullListener.h"
#include "support/ReservedPort.h"
#include "support/ScriptedServer.h"
#include "support/Text.h"
#include "support/WireServer.h"

namespace reliability {
namespace {

using Clock = std::chrono::steady_clock;
using network::Text;
using testing::AnyOf;
using testing::HasSubstr;

std::string LongReply(int rows) {
  std::string text;
  for (int i = 0; i < rows; ++i)
    text += "<row><CUBE_NAME>cube " + std::to_string(i) + "</CUBE_NAME></row>";
  return support::RowsetReply(text);
}

double Seconds(Clock::duration duration) { return std::chrono::duration<double>(duration).count(); }

/// A request on another thread.
class Request {
 public:
  explicit Request(const std::string& url, String catalog = L"c", const wchar_t* user = L"")
      : m_agent(XmlADiscoverAgent::Create(support::Wide(url), user, user, ServerInfo::kTessera,
                                          ServerInfo::kCLIXMLA, false)) {
    m_done = std::async(std::launch::async, [this, catalog = std::move(catalog)] {
      const VXExecutionState::Scope scope(m_state);
      std::vector<OTCube> cubes;
      Outcome outcome;
      try {
        m_agent->GetCubesOnCatalog(cubes, catalog, L"s");
      } catch (...) {
        outcome.thrown = ThrownText(outcome.end);
      }
      return std::pair(std::move(outcome), Clock::now());
    });
  }
  /// Seconds until the request has ended.
  double Await() {
    const auto begin = Clock::now();
    auto [outcome, end] = m_done.get();
    m_outcome = std::move(outcome);
    return Seconds(end - begin);
  }
  double Cancel() {
    m_state.RequestCancellation(VXExecutionState::kCancelReasonHost);
    return Await();
  }
  /// Seconds to destroy the agent.
  double Destroy() {
    const auto begin = Clock::now();
    m_agent.reset();
    return Seconds(Clock::now() - begin);
  }
  /// The agent remains usable: the next request is answered and read completely.
  void ExpectUsable() {
    std::vector<OTCube> cubes;
    EXPECT_NO_THROW(m_agent->GetCubesOnCatalog(cubes, L"c", L"s"));
    EXPECT_EQ(cubes.size(), 3u);
  }
  bool WasCancelled() const {
    if (m_outcome.end != Outcome::End::kErrorMessage) return false;
    EXPECT_THAT(m_outcome.thrown,
                AnyOf(HasSubstr("the request was cancelled"), HasSubstr("[46066]")));
    return true;
  }

 private:
  XmlADiscoverAgentHeap m_agent;
  VXExecutionState m_state;
  std::future<std::pair<Outcome, Clock::time_point>> m_done;
  Outcome m_outcome;
};

/// Cancels the request. Then uses its agent for another request or, in every second try, destroys
/// it at once. `answer` makes the server answer. Returns the longer of the two times in seconds.
double End(
    Request& request, long number, const std::function<void()>& answer = [] {}) {
  const double seconds = request.Cancel();
  EXPECT_TRUE(request.WasCancelled());
  if (number % 2 == 1) return std::max(seconds, request.Destroy());
  answer();
  request.ExpectUsable();
  return seconds;
}

/// Repeats a cancellation. `attempt` gets the number of the try and returns seconds. Repeats a try
/// that took too long a few times, since the machine may be busy.
void TryOften(const std::string& state, long times,
              const std::function<double(long number)>& attempt) {
  SCOPED_TRACE(state);
  constexpr double kPromised = 0.1 * network::Slack();
  double slowest = 0;
  long repeats = 0;
  for (long i = 0; i < times && !testing::Test::HasFailure(); ++i) {
    double seconds = attempt(i);
    for (int again = 0; seconds > kPromised && again < 4; ++again, ++repeats) seconds = attempt(i);
    slowest = std::max(slowest, seconds);
  }
  EXPECT_LT(slowest, kPromised);
  EXPECT_LE(repeats, 4 + times / 10);
  network::Figure("cancelled while " + state,
                  Text(times, " tried, the slowest ended after ", static_cast<long>(slowest * 1000),
                       " ms; ", repeats, " repeated"));
}

long Times() { return support::Effort(4L, 200L); }

/// Answers the first requests as the test requires, and later ones with three cubes.
struct FirstOdd {
  std::function<void(loopback::Connection&, int round)> odd;
  int count = 1;
  std::atomic<int> requests{0};
  std::promise<void> there;
  ExemptServer server{[this](loopback::Connection& wire, const loopback::Request&) {
    const int round = requests++;
    if (round < count)
      odd(wire, round);
    else
      wire.Send(loopback::Answer(LongReply(3)));
  }};
};

struct StateCase {
  const char* name;
  std::function<void(loopback::Connection&)> send;
  /// Requests authentication before that.
  const char* offer = nullptr;
};

TEST(CancellingATransfer, EndsItInEveryStateOfTheReply) {
  const std::string body = LongReply(2000);
  // A gzip stream of one stored block, of which half is sent.
  std::string gzip("\x1F\x8B\x08\0\0\0\0\0\0\x03\x01\x10\x27\xEF\xD8", 15);
  gzip += body.substr(0, 5000);
  const StateCase cases[] = {
      {"waiting for the first byte", [](loopback::Connection&) {}},
      {"in the status line", [](loopback::Connection& wire) { wire.Send("HTTP/1.1 20"); }},
      {"in the headers",
       [](loopback::Connection& wire) { wire.Send("HTTP/1.1 200 OK\r\nContent-Type: text/x"); }},
      {"in the body",
       [&](loopback::Connection& wire) {
         wire.Send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) +
                   "\r\n\r\n" + body.substr(0, 5000));
       }},
      {"in a chunk",
       [&](loopback::Connection& wire) {
         wire.Send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nFFFF\r\n" +
                   body.substr(0, 5000));
       }},
      {"behind the chunks",
       [&](loopback::Connection& wire) {
         wire.Send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1000\r\n" +
                   body.substr(0, 0x1000) + "\r\n0\r\nX-Checksum: 12");
       }},
      {"decompressing",
       [&](loopback::Connection& wire) {
         wire.Send("HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: 20000\r\n\r\n" +
                   gzip);
       }},
      {"in the second round of a log-in", [](loopback::Connection&) {}, "Basic realm=\"r\""},
      {"in the reply of the second round",
       [&](loopback::Connection& wire) {
         wire.Send("HTTP/1.1 200 OK\r\nContent-Length: 9999\r\n\r\n" + body.substr(0, 5000));
       },
       "Digest realm=\"r\", nonce=\"n\", qop=\"auth\""},
  };
  for (const StateCase& state : cases)
    TryOften(state.name, Times(), [&](long number) {
      FirstOdd odd;
      if (state.offer) odd.count = 2;
      odd.odd = [&](loopback::Connection& wire, int round) {
        if (state.offer && round == 0) {
          wire.Send("HTTP/1.1 401 Unauthorized\r\nContent-Length: 0\r\nWWW-Authenticate: " +
                    std::string(state.offer) + "\r\n\r\n");
          return;
        }
        state.send(wire);
        odd.there.set_value();
        wire.AwaitPeerGone();
      };
      Request request(odd.server.Url("/"), L"c", state.offer ? L"ann" : L"");
      odd.there.get_future().wait();
      return End(request, number);
    });
}

TEST(CancellingATransfer, EndsItDuringNameResolution) {
  TryOften("the host is resolved", Times(), [](long number) {
    ExemptServer server([](loopback::Connection& wire, const loopback::Request&) {
      wire.Send(loopback::Answer(LongReply(3)));
    });
    SlowResolver resolver;
    Request request("http://slow.test:" + std::to_string(server.Port()) + "/");
    SlowResolver::AwaitQuestion();
    return End(request, number, &SlowResolver::Release);
  });
}

void AnswerThreeCubes(loopback::Connection& connection, const loopback::Request&) {
  connection.Send(Answer(LongReply(3)));
}

TEST(CancellingATransfer, EndsItWhileItConnects) {
  TryOften("connecting", Times(), [](long number) {
    const support::ReservedPort port;
    auto listener = std::make_unique<support::FullListener>(port.Port());
    const int before = listener->Pending();
    Request request("http://" + port.Authority() + "/");
    while (listener->Pending() <= before) std::this_thread::yield();
    std::optional<WireServer> server;
    return End(request, number, [&] {
      listener.reset();
      server.emplace(&AnswerThreeCubes, nullptr, port.Port());
    });
  });
}

TEST(CancellingATransfer, EndsItDuringTheHandshake) {
  const Certificate certificate("IP:127.0.0.1", kDay);
  const network::Variable trusted("SSL_CERT_FILE", certificate.Path());
  TryOften("in the TLS handshake", Times(), [&](long number) {
    network::SilentHandshake handshake(certificate.Context());
    WireServer server(&AnswerThreeCubes, certificate.Context());
    Request request("https://" + server.Authority() + "/");
    handshake.AwaitClient();
    return End(request, number, [&] { handshake.Continue(); });
  });
}

TEST(CancellingATransfer, EndsItWhileAProxyConnects) {
  const Certificate certificate("DNS:service.test", kDay);
  const network::Variable trusted("SSL_CERT_FILE", certificate.Path());
  WireServer service(&AnswerThreeCubes, certificate.Context());
  TryOften("a proxy connects", Times(), [&](long number) {
    std::atomic<bool> isWilling{false};
    std::promise<void> there;
    WireServer proxy([&](loopback::Connection& connection, const loopback::Request&) {
      if (isWilling) {
        loopback::Tunnel(connection, service.Authority());
        return;
      }
      there.set_value();
      connection.AwaitPeerGone();
    });
    const network::Variable throughProxy("https_proxy", "http://" + proxy.Authority());
    Request request("https://service.test/");
    there.get_future().wait();
    return End(request, number, [&] { isWilling = true; });
  });
}

TEST(CancellingATransfer, EndsItWhileTheRequestIsSent) {
  const String catalog(1'500'000, L'x');
  TryOften("the request is sent", support::Effort(2L, 30L), [&](long number) {
    const support::ReservedPort port;
    std::optional<support::LoopbackSocket> listening(std::in_place, SOCK_STREAM, port.Port());
    const int room = 4096;
    setsockopt(listening->Descriptor(), SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
    listening->Listen(8);
    Request request("http://" + port.Authority() + "/", catalog);
    std::optional<loopback::Connection> accepted(
        std::in_place, accept4(listening->Descriptor(), nullptr, nullptr, SOCK_CLOEXEC));
    for (int waiting = 0; waiting == 0;) ioctl(accepted->Socket(), FIONREAD, &waiting);
    std::optional<WireServer> server;
    return End(request, number, [&] {
      accepted.reset();
      listening.reset();
      server.emplace(&AnswerThreeCubes, nullptr, port.Port());
    });
  });
}

TEST(CancellingATransfer, EndsParsingAndDelivery) {
  const std::string body = LongReply(support::kIsSanitized ? 20'000 : 60'000);
  const unsigned int seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  double whole = 1e9;  // seconds since the whole reply has arrived
  long tries = 0;
  long cancelled = 0;
  // Moments are fractions of the shortest time measured.
  const auto attempt = [&](double part, bool destroys) {
    FirstOdd odd;
    odd.odd = [&](loopback::Connection& wire, int) {
      wire.Send(loopback::Answer(body));
      odd.there.set_value();
    };
    Request request(odd.server.Url("/"));
    odd.there.get_future().wait();
    if (part < 0) {
      whole = std::min(whole, request.Await());
      return 0.0;
    }
    const auto begin = Clock::now();
    while (Seconds(Clock::now() - begin) < part * whole) std::this_thread::yield();
    const double waited = Seconds(Clock::now() - begin);
    double seconds = request.Cancel();
    ++tries;
    if (request.WasCancelled())
      ++cancelled;
    else
      whole = std::min(whole, waited + seconds);
    if (destroys)
      seconds = std::max(seconds, request.Destroy());
    else
      request.ExpectUsable();
    return seconds;
  };
  for (int i = 0; i < 3; ++i) attempt(-1, true);
  TryOften("parsing and handing over", support::Effort(20L, 400L), [&](long number) {
    std::minstd_rand random(seed + static_cast<unsigned int>(number));
    random.discard(10);
    return attempt(std::uniform_real_distribution<>(0, 0.8)(random), number % 2 == 1);
  });
  EXPECT_GT(cancelled * 2, tries);
  network::Figure("parsing and handing over, cancelled before the end",
                  Text(cancelled, " of ", tries));
}

}  // namespace
}  // namespace reliability
