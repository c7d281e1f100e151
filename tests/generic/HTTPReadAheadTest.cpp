// Tests read-ahead with a prediction of its own: a slow one, and long replies.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <utility>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/HTTPClientWrapper.h"
#include "Utility/Generic/HTTPReadAhead.h"
#include "Utility/Generic/ImportOperation.h"
#include "Utility/Generic/ImportSettings.h"
#include "Utility/Generic/VXExecutionState.h"
#include "loopback-server/Server.h"
#include "support/ScriptedServer.h"

namespace {

/// After "first": "second" and "third". The reply to "second" is read for a long time.
class SlowPrediction final : public HTTPPrediction {
 public:
  bool IsFollowed(const NarrowString& request) const override {
    return request == NarrowString("first") || request == NarrowString("second");
  }
  bool IsAccepted(NarrowString) const override { return true; }
  Requests RequestsAfter(const NarrowString& request, NarrowString) const override {
    if (request == NarrowString("second"))
      std::this_thread::sleep_for(std::chrono::milliseconds(1700));
    if (!(request == NarrowString("first"))) return {};
    return [number = 0](NarrowString& body) mutable {
      body = NarrowString(++number == 1 ? "second" : "third");
      return number <= 2;
    };
  }
};

/// After "first": "second", and no memory for the next one.
class PredictionWithoutMemory final : public HTTPPrediction {
 public:
  bool IsFollowed(const NarrowString& request) const override {
    return request == NarrowString("first");
  }
  bool IsAccepted(NarrowString) const override { return true; }
  Requests RequestsAfter(const NarrowString&, NarrowString) const override {
    return [number = 0](NarrowString& body) mutable {
      if (++number == 2) throw std::bad_alloc();
      body = NarrowString("second");
      return true;
    };
  }
};

struct Counts final : HTTPExchangeObserver {
  void OnExchange(const HTTPExchangeInfo&) override {}
  void OnReadAhead(const HTTPReadAheadInfo& info) override { ahead = info; }
  HTTPReadAheadInfo ahead;
};

/// After "first": "second".
class OnePrediction final : public HTTPPrediction {
 public:
  bool IsFollowed(const NarrowString& request) const override {
    return request == NarrowString("first");
  }
  bool IsAccepted(NarrowString) const override { return true; }
  Requests RequestsAfter(const NarrowString&, NarrowString) const override {
    return [isFirst = true](NarrowString& body) mutable {
      body = NarrowString("second");
      return std::exchange(isFirst, false);
    };
  }
};

/// A client that sends ahead what the prediction says.
class Reader {
 public:
  Reader(const support::ScriptedServer& server, std::uint32_t timeoutSeconds,
         std::shared_ptr<const HTTPPrediction> prediction)
      : m_client(BaseStringUtil::FromUTF8(NarrowString(server.Url().c_str())), String(), String(),
                 timeoutSeconds, &m_options) {
    m_client.SetPrediction(std::move(prediction));
  }

  void ExpectReply(const char* request) {
    NarrowString reply;
    String error;
    EXPECT_TRUE(m_client.ReadBytes(NarrowString(request), reply, error))
        << BaseStringUtil::ToUTF8(error).c_str();
  }

 private:
  const HTTPClientOptions m_options = [] {
    HTTPClientOptions options;
    options.proxy = String();
    options.requestBudget = std::make_shared<HTTPRequestBudget>(4);
    return options;
  }();
  HTTPClientWrapper m_client;
};

/// While the thread that sends ahead reads a reply for longer than the time-out, other replies
/// arrive. They are in time.
TEST(HTTPReadAhead, ASlowPredictionIsNoTimeOutOfTheServer) {
  const support::ScriptedServer server([](const support::Request& request) {
    if (request.body == "third") std::this_thread::sleep_for(std::chrono::milliseconds(300));
    return support::Reply{"<r/>"};
  });
  Counts counts;
  ImportSettings settings;
  settings.exchangeObserver = &counts;
  const ImportSettings::Scope scope(settings);
  Reader reader(server, 1, std::make_shared<SlowPrediction>());
  {
    const ImportOperation operation;
    reader.ExpectReply("first");
    // The client's own connection stays free, so both are sent by the other thread.
    std::this_thread::sleep_for(std::chrono::milliseconds(2200));
    reader.ExpectReply("second");
    reader.ExpectReply("third");
  }
  EXPECT_EQ(counts.ahead.used, 2u);
  EXPECT_EQ(counts.ahead.repeated, 0u);
}

/// The request was not sent ahead, so the import sends it instead of waiting for a reply.
TEST(HTTPReadAhead, APredictionWithoutMemoryEndsTheReadAhead) {
  const support::ScriptedServer server(
      [](const support::Request&) { return support::Reply{"<r/>"}; });
  ImportSettings settings;
  settings.limits.deadlineSeconds = 5;
  const ImportSettings::Scope scope(settings);
  Reader reader(server, 60, std::make_shared<PredictionWithoutMemory>());
  const ImportOperation operation;
  reader.ExpectReply("first");
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  reader.ExpectReply("second");
}

/// When the client ends a request, the server may still work on it for a moment. So a failure of
/// another request can come from it.
TEST(HTTPReadAhead, ARequestThatTheClientEndedStillCounts) {
  const std::string begun = "HTTP/1.1 200 OK\r\nContent-Length: 9999\r\n\r\n";
  struct {
    const char* name;
    std::size_t sent;  // bytes of the body
    bool isCancelled;
    bool isAhead;
  } const kCases[] = {{"limit", 2000, false, false},
                      {"time-out", 0, false, false},
                      {"cancellation", 0, true, false},
                      {"limit of a request that was sent ahead", 2000, false, true}};
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.name);
    std::atomic<bool> hasBegun{false};
    std::atomic<bool> isGone{false};
    const loopback::Server server(
        [&](loopback::Connection& connection, const loopback::Request& request) {
          if (request.body == "first") {
            connection.Send(loopback::Answer("<r/>"));
            return;
          }
          connection.Send(begun + std::string(test.sent, 'x'));
          hasBegun = true;
          connection.AwaitPeerGone();
          isGone = true;
        });
    HTTPClientOptions options;
    options.proxy = String();
    options.maxReplyBytes = 1000;
    options.requestBudget = std::make_shared<HTTPRequestBudget>(4);
    const std::string url = "http://" + server.Authority() + "/xmla";
    HTTPClientWrapper client(BaseStringUtil::FromUTF8(NarrowString(url.c_str())), String(),
                             String(), 1, &options);
    client.SetPrediction(std::make_shared<OnePrediction>());
    VXExecutionState state;
    const VXExecutionState::Scope scope(state);
    std::jthread canceller([&] {
      while (!hasBegun) std::this_thread::sleep_for(std::chrono::milliseconds(1));
      if (test.isCancelled) state.RequestCancellation(VXExecutionState::kCancelReasonHost);
    });
    const ImportOperation operation;
    NarrowString reply;
    String error;
    EXPECT_EQ(client.ReadBytes(NarrowString(test.isAhead ? "first" : "second"), reply, error),
              test.isAhead);
    while (!isGone) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_TRUE(options.requestBudget->TryTakeOwn().IsBesideOthers());
  }
}

}  // namespace
