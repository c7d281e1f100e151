// The host's way to interrupt, at every state of a transfer.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <future>
#include <random>

#include "OperationsSupport.h"
#include "ResolverSupport.h"
#include "Utility/Generic/VXThread.h"
#include "WireServerSupport.h"
#include "support/Effort.h"
#include "support/ScriptedServer.h"
#include "support/Text.h"

namespace reliability {
namespace {

using Clock = std::chrono::steady_clock;
using testing::AnyOf;
using testing::HasSubstr;

std::string LongReply(int rows) {
  std::string text;
  for (int i = 0; i < rows; ++i)
    text += "<row><CUBE_NAME>cube " + std::to_string(i) + "</CUBE_NAME></row>";
  return support::RowsetReply(text);
}

/// One request that is cancelled once it has come as far as `awaitState` waits for.
class Request {
 public:
  explicit Request(const std::string& url, String catalog = L"c")
      : m_agent(XmlADiscoverAgent::Create(support::Wide(url), L"", L"", ServerInfo::kTessera,
                                          ServerInfo::kCLIXMLA, false)) {
    m_done = std::async(std::launch::async, [this, catalog = std::move(catalog)] {
      const VXExecutionState::Scope scope(m_state);
      Outputs outputs;
      return OutcomeOf(outputs, [&] { m_agent->GetCubesOnCatalog(outputs.cubes, catalog, L"s"); });
    });
  }
  /// The seconds until the request had ended.
  double Cancel() {
    const auto asked = Clock::now();
    m_state.RequestCancellation(VXExecutionState::kCancelReasonHost);
    m_outcome = m_done.get();
    return std::chrono::duration<double>(Clock::now() - asked).count();
  }
  const Outcome& Result() const { return m_outcome; }
  XmlADiscoverAgent& Agent() { return *m_agent; }

 private:
  XmlADiscoverAgentHeap m_agent;
  VXExecutionState m_state;
  std::future<Outcome> m_done;
  Outcome m_outcome;
};

struct Tally {
  long tries = 0;
  double slowest = 0;
  void Add(Request& request) {
    slowest = std::max(slowest, request.Cancel());
    ++tries;
    EXPECT_EQ(request.Result().end, Outcome::End::kErrorMessage);
    EXPECT_THAT(request.Result().thrown,
                AnyOf(HasSubstr("The request was cancelled"), HasSubstr("[46066]")));
  }
  void Print(const std::string& state) const {
    if (testing::Test::HasFailure()) return;
    EXPECT_LT(slowest, 2.0);  // a tenth of a second, on a machine with nothing else to do
    support::PrintFigure("cancelled while " + state,
                         std::to_string(tries) + " tried, the slowest ended after " +
                             std::to_string(static_cast<long>(slowest * 1000)) + " ms");
  }
};

long Times() { return support::Effort(3L, 200L); }

/// The agent works on: another request, now answered, is read whole.
void ExpectUsable(XmlADiscoverAgent& agent) {
  std::vector<OTCube> cubes;
  EXPECT_NO_THROW(agent.GetCubesOnCatalog(cubes, L"c", L"s"));
  EXPECT_EQ(cubes.size(), 3u);
}

/// Answers the first request as the test wants and the following ones with three cubes.
struct FirstOdd {
  std::function<bool(const Wire&)> odd;  // true: the connection is kept
  std::atomic<int> requests{0};
  std::promise<void> there;
  WireServer server{[this](const Wire& wire, const std::string&, const std::string&) {
    if (requests++ > 0) return wire.SendAnswer(LongReply(3));
    return odd(wire);
  }};
};

struct StateCase {
  const char* name;
  std::function<void(const Wire&)> send;
};

TEST(CancellingATransfer, EndsItInEveryStateOfTheReply) {
  const std::string body = LongReply(2000);
  // A gzip stream of one block that is stored, and half of it sent.
  std::string gzip("\x1F\x8B\x08\0\0\0\0\0\0\x03\x01\x10\x27\xEF\xD8", 15);
  gzip += body.substr(0, 5000);
  const StateCase cases[] = {
      {"waiting for the first byte", [](const Wire&) {}},
      {"in the status line", [](const Wire& wire) { wire.Send("HTTP/1.1 20"); }},
      {"in the headers",
       [](const Wire& wire) { wire.Send("HTTP/1.1 200 OK\r\nContent-Type: text/x"); }},
      {"in the body",
       [&](const Wire& wire) {
         wire.Send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) +
                   "\r\n\r\n" + body.substr(0, 5000));
       }},
      {"in a chunk",
       [&](const Wire& wire) {
         wire.Send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nFFFF\r\n" +
                   body.substr(0, 5000));
       }},
      {"decompressing",
       [&](const Wire& wire) {
         wire.Send("HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: 20000\r\n\r\n" +
                   gzip);
       }},
  };
  for (const StateCase& state : cases) {
    SCOPED_TRACE(state.name);
    Tally tally;
    for (long i = 0; i < Times(); ++i) {
      FirstOdd odd;
      odd.odd = [&](const Wire& wire) {
        state.send(wire);
        odd.there.set_value();
        wire.AwaitPeerGone();
        return false;
      };
      Request request(odd.server.Url("/"));
      odd.there.get_future().wait();
      tally.Add(request);
      ExpectUsable(request.Agent());
    }
    tally.Print(state.name);
  }
}

TEST(CancellingATransfer, EndsItWhileTheHostIsResolved) {
  Tally tally;
  for (long i = 0; i < Times(); ++i) {
    WireServer server([](const Wire& wire, const std::string&, const std::string&) {
      return wire.SendAnswer(LongReply(3));
    });
    SlowResolver resolver;
    Request request("http://slow.test:" + std::to_string(server.Port()) + "/");
    SlowResolver::AwaitQuestion();
    tally.Add(request);
    SlowResolver::Release();
    ExpectUsable(request.Agent());
  }
  tally.Print("the host is resolved");
}

/// A listening socket whose queue is full: connections to it neither succeed nor fail.
class FullListener {
 public:
  FullListener() {
    m_address.sin_family = AF_INET;
    m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof m_address;
    m_listening = socket(AF_INET, SOCK_STREAM, 0);
    bind(m_listening, reinterpret_cast<sockaddr*>(&m_address), length);
    listen(m_listening, 0);
    getsockname(m_listening, reinterpret_cast<sockaddr*>(&m_address), &length);
    for (int& filler : m_fillers) {
      filler = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
      connect(filler, reinterpret_cast<sockaddr*>(&m_address), sizeof m_address);
    }
  }
  ~FullListener() {
    for (const int filler : m_fillers) close(filler);
    close(m_listening);
  }
  FullListener(const FullListener&) = delete;
  FullListener& operator=(const FullListener&) = delete;
  int Port() const { return ntohs(m_address.sin_port); }
  /// Connections to the port that are neither made nor refused.
  int Pending() const {
    char port[8];
    std::snprintf(port, sizeof port, ":%04X", Port());
    std::ifstream table("/proc/net/tcp");
    int count = 0;
    for (std::string line; std::getline(table, line);)
      if (line.size() > 36 && line.substr(28, 5) == port && line.substr(34, 2) == "02") ++count;
    return count;
  }

 private:
  sockaddr_in m_address{};
  int m_listening = -1;
  int m_fillers[4] = {};
};

TEST(CancellingATransfer, EndsItWhileItConnects) {
  Tally tally;
  for (long i = 0; i < Times(); ++i) {
    const FullListener listener;
    const int before = listener.Pending();
    Request request("http://127.0.0.1:" + std::to_string(listener.Port()) + "/");
    while (listener.Pending() <= before) std::this_thread::yield();
    tally.Add(request);
  }
  tally.Print("connecting");
}

TEST(CancellingATransfer, EndsItWhileTheRequestIsSent) {
  const String catalog(6'000'000, L'x');
  Tally tally;
  for (long i = 0; i < support::Effort(1L, 30L); ++i) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    const int listening = socket(AF_INET, SOCK_STREAM, 0);
    const int room = 4096;
    setsockopt(listening, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
    bind(listening, reinterpret_cast<sockaddr*>(&address), length);
    listen(listening, 8);
    getsockname(listening, reinterpret_cast<sockaddr*>(&address), &length);
    Request request("http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/", catalog);
    const int accepted = accept(listening, nullptr, nullptr);
    for (int waiting = 0; waiting == 0;) ioctl(accepted, FIONREAD, &waiting);
    tally.Add(request);
    close(accepted);
    close(listening);
  }
  tally.Print("the request is sent");
}

TEST(CancellingATransfer, EndsTheParsingAndTheHandingOver) {
  const std::string body = LongReply(60'000);
  std::minstd_rand random(std::random_device{}());
  Tally tally;
  long whole = 0;
  for (long i = 0; i < support::Effort(8L, 400L); ++i) {
    FirstOdd odd;
    odd.odd = [&](const Wire& wire) {
      wire.SendAnswer(body);
      odd.there.set_value();
      return true;
    };
    Request request(odd.server.Url("/"));
    odd.there.get_future().wait();
    const auto until = Clock::now() + std::chrono::microseconds(random() % 30'000);
    while (Clock::now() < until) std::this_thread::yield();
    tally.slowest = std::max(tally.slowest, request.Cancel());
    ++tally.tries;
    if (request.Result().end == Outcome::End::kReturned)
      ++whole;
    else
      EXPECT_THAT(request.Result().thrown, AnyOf(HasSubstr("cancelled"), HasSubstr("[46066]")));
    ExpectUsable(request.Agent());
  }
  tally.Print("parsing and handing over (" + std::to_string(whole) + " were done before)");
}

}  // namespace
}  // namespace reliability
