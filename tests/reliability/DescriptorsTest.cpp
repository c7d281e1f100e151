// Programs started by the host during an import inherit none of the library's descriptors. An
// authenticated connection is as sensitive as the password.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <future>
#include <memory>
#include <thread>
#include <vector>

#include "NetworkSupport.h"
#include "ResolverSupport.h"
#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/VXExecutionState.h"
#include "support/Certificate.h"
#include "support/ChildProcess.h"
#include "support/WireServer.h"

namespace reliability {
namespace {

/// The descriptors that a program started now finds open.
std::string Inherited() { return support::RunChild("/bin/ls", {"-l", "/proc/self/fd"}).out; }

long Count(const std::string& list) {
  long count = 0;
  for (std::size_t at = list.find(" -> "); at != std::string::npos; at = list.find(" -> ", at + 1))
    ++count;
  return count;
}

/// Fails the test if a program started now finds descriptors that are not in `before`.
void ExpectNothingInherited(long before, const char* when) {
  std::string list;
  // libcurl marks its own descriptors just after it creates them.
  for (int attempt = 0; attempt < 100; ++attempt) {
    list = Inherited();
    if (Count(list) <= before) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  ADD_FAILURE() << when << ", " << before << " before, now:\n" << list;
}

/// A request on its own thread, cancelled through its state.
class Request {
 public:
  explicit Request(const std::string& url)
      : m_thread([this, url] {
          const VXExecutionState::Scope scope(m_state);
          HTTPClientWrapper client(support::Wide(url), L"", L"", 30, nullptr);
          NarrowString reply;
          String error;
          client.ReadBytes("<q/>", reply, error);
        }) {}
  ~Request() {
    m_state.RequestCancellation(VXExecutionState::kCancelReasonHost);
    m_thread.join();
  }
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;

 private:
  VXExecutionState m_state;
  std::thread m_thread;
};

/// Sends one request. `before` is the number of inherited descriptors without a client.
void ExpectNothingInheritedFromClient(long before, const std::string& url,
                                      const HTTPClientOptions* options) {
  SCOPED_TRACE(url);
  HTTPClientWrapper client(support::Wide(url), L"", L"", 10, options);
  ExpectNothingInherited(before, "after the constructor");
  NarrowString reply;
  String error;
  ASSERT_TRUE(client.ReadBytes("<q/>", reply, error));
  ExpectNothingInherited(before, "with a kept connection");
}

TEST(Descriptors, OfAClientAreNotInherited) {
  const Certificate certificate("IP:127.0.0.1", kDay);
  const long before = Count(Inherited());
  ASSERT_GT(before, 0);
  const auto answer = [](loopback::Connection& connection, const loopback::Request&) {
    connection.Send(Answer("<r/>"));
  };
  WireServer plain(answer);
  WireServer secure(answer, certificate.Context());
  HTTPClientOptions options;
  options.caFile = support::Wide(certificate.Path());
  for (const std::string& url :
       {"http://" + plain.Authority() + "/", "https://" + secure.Authority() + "/",
        "http://localhost:" + plain.Port() + "/"})
    ExpectNothingInheritedFromClient(before, url, &options);
}

TEST(Descriptors, OfARunningRequestAreNotInherited) {
  const long before = Count(Inherited());
  {
    std::promise<void> there;
    WireServer server([&](loopback::Connection& connection, const loopback::Request&) {
      there.set_value();
      connection.AwaitPeerGone();
    });
    const Request request("http://" + server.Authority() + "/");
    there.get_future().wait();
    ExpectNothingInherited(before, "while an answer is awaited");
  }
  {
    SlowResolver resolver;
    const Request request("http://slow.test:1/");
    SlowResolver::AwaitQuestion();
    ExpectNothingInherited(before, "while the host is resolved");
  }
}

/// Occupies descriptors, so that new ones have large numbers. Programs do not inherit these.
class TakenDescriptors {
 public:
  explicit TakenDescriptors(std::size_t count) {
    getrlimit(RLIMIT_NOFILE, &m_former);
    rlimit wider = m_former;
    wider.rlim_cur = std::max<rlim_t>(m_former.rlim_cur, count + 500);
    setrlimit(RLIMIT_NOFILE, &wider);
    while (m_taken.size() < count) m_taken.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
  }
  ~TakenDescriptors() {
    for (const int descriptor : m_taken) close(descriptor);
    setrlimit(RLIMIT_NOFILE, &m_former);
  }
  TakenDescriptors(const TakenDescriptors&) = delete;
  TakenDescriptors& operator=(const TakenDescriptors&) = delete;
  int Last() const { return m_taken.back(); }

 private:
  rlimit m_former{};
  std::vector<int> m_taken;
};

/// The fd_sets in which libcurl reports its descriptors end at 1024.
TEST(Descriptors, LargeNumbersWorkAndAreNotInherited) {
  const TakenDescriptors taken(1200);
  ASSERT_GT(taken.Last(), FD_SETSIZE);
  const long before = Count(Inherited());
  WireServer server(Answer("<r/>"));
  for (const std::string host : {"127.0.0.1", "localhost"})
    ExpectNothingInheritedFromClient(before, "http://" + host + ":" + server.Port() + "/", nullptr);
}

TEST(Descriptors, OfClientsCreatedConcurrentlyAreNotInherited) {
  const long before = Count(Inherited());
  std::vector<std::thread> threads;
  std::vector<std::unique_ptr<HTTPClientWrapper>> clients(400);
  for (std::size_t i = 0; i < 8; ++i) {
    threads.emplace_back([&clients, i] {
      for (std::size_t j = i; j < clients.size(); j += 8)
        clients[j] =
            std::make_unique<HTTPClientWrapper>(L"http://127.0.0.1:1/", L"", L"", 1, nullptr);
    });
  }
  for (std::thread& thread : threads) thread.join();
  ExpectNothingInherited(before, "with 400 clients");
  network::Figure("descriptors inherited by started programs",
                  "none of clients at work, resolving, with kept connections, and made at once");
}

}  // namespace
}  // namespace reliability
