// The host stops an import in the middle of a very large reply: at any moment of receiving,
// unpacking, converting and parsing it, the operation returns within a tenth of a second.

#include <gmock/gmock.h>

#include <random>
#include <thread>

#include "GzipBomb.h"
#include "NetworkSupport.h"
#include "Utility/Generic/VXThread.h"
#include "generic/ScriptedServer.h"
#include "support/Effort.h"
#include "support/ScriptedServer.h"

namespace network {
namespace {

using testing::AnyOf;
using testing::HasSubstr;

std::string Repeated(const std::string& piece, std::size_t bytes) {
  std::string text;
  text.reserve(bytes + piece.size());
  while (text.size() < bytes) text += piece;
  return text;
}

const std::string kHead = "<Envelope><Body><root>";
const std::string kTail = "</root></Body></Envelope>";
const std::string kRow = "<row><DataSourceName>a data source's name</DataSourceName></row>\n";

std::string Typed(const std::string& body, const std::string& type) {
  return Answer(body, "200 OK", "Content-Type: " + type + "\r\n");
}

struct LargeReply {
  const char* name;
  std::string (*answer)(std::size_t bytes);
};

constexpr LargeReply kReplies[] = {
    {"rows", [](std::size_t bytes) { return Answer(kHead + Repeated(kRow, bytes) + kTail); }},
    {"rows in ISO-8859-1",
     [](std::size_t bytes) {
       return Typed(
           kHead + Repeated("<row><DataSourceName>\xE4</DataSourceName></row>", bytes) + kTail,
           "text/xml; charset=iso-8859-1");
     }},
    {"rows in UTF-16",
     [](std::size_t bytes) {
       std::string wide;
       wide.reserve(bytes + 1000);
       for (const char c : kHead) wide.append({c, '\0'});
       std::string row;
       for (const char c : kRow) row.append({c, '\0'});
       wide += Repeated(row, bytes);
       for (const char c : kTail) wide.append({c, '\0'});
       return Typed(wide, "text/xml; charset=utf-16");
     }},
    {"ill-formed UTF-8",
     [](std::size_t bytes) {
       return Answer(kHead + Repeated("<row>\xFF\xFE\xC0\x80\xFF\xFE\xC0\x80</row>", bytes) +
                     kTail);
     }},
    {"no markup", [](std::size_t bytes) { return Answer(Repeated("plain text ", bytes)); }},
    {"a fault's page",
     [](std::size_t bytes) {
       return Answer(kHead + Repeated("<row><a>b</a></row>", bytes) + kTail, "500 Error");
     }},
    {"compressed blanks",
     [](std::size_t bytes) {
       const std::string text = kHead + "<a/>" + kTail;
       return Answer(sample::GzipBomb(text, kHead.size(), bytes >> 20), "200 OK",
                     "Content-Type: text/xml\r\nContent-Encoding: gzip\r\n");
     }},
};

class CancelledInLargeReply : public testing::TestWithParam<LargeReply> {};

TEST_P(CancelledInLargeReply, ReturnsAtOnce) {
  const std::size_t bytes = support::Effort<std::size_t>(5, 200) << 20;
  const int moments = support::Effort(4, 12);
  const std::string large = GetParam().answer(bytes);
  const std::string small =
      Answer(kHead + "<row><DataSourceName>next</DataSourceName></row>" + kTail);
  std::atomic<bool> isLarge{true};
  ::ScriptedServer server([&](ServedConnection& connection, const ReceivedRequest&) {
    connection.Send(isLarge ? large : small);
  });
  Import import("http://" + server.Authority() + "/");
  const Outcome first = import.DataSources();
  const double whole = first.seconds;
  const std::size_t rows = first.names.empty() ? std::string::npos : first.names.size();
  const unsigned int seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  double longest = 0;
  int cancelled = 0;
  double moment = 0;
  int again = 0;
  for (int i = 0; i < moments; ++i) {
    if (again == 0) moment = whole * std::uniform_real_distribution<>(0, 0.98)(random);
    const RefCnt<VXExecutionState> state(new VXExecutionState);
    std::atomic<Clock::rep> requested{0};
    Outcome outcome;
    {
      const std::jthread host([&] {
        std::this_thread::sleep_for(std::chrono::duration<double>(moment));
        requested = Clock::now().time_since_epoch().count();
        state->RequestCancellation(VXExecutionState::kCancelReasonHost);
      });
      const VXExecutionState::Scope scope(*state);
      outcome = import.DataSources();
      const Clock::rep returned = outcome.returned.time_since_epoch().count();
      const Clock::rep asked = requested;
      if (asked == 0 || asked > returned) continue;  // faster than the first time
      const double taken = std::chrono::duration<double>(Clock::duration(returned - asked)).count();
      // What a busy machine does once, it does not do at that moment again and again.
      if (taken > 0.1 * Slack() && ++again < 4) {
        --i;
        continue;
      }
      again = 0;
      longest = std::max(longest, taken);
    }
    if (outcome.names.size() == rows) continue;  // done before it was seen
    ++cancelled;
    EXPECT_THAT(outcome.errors, AnyOf(HasSubstr("cancelled"), HasSubstr("web page"),
                                      HasSubstr("HTTP 500"), HasSubstr("Plain text")));
  }
  EXPECT_LT(longest, 0.1 * Slack());
  isLarge = false;
  EXPECT_THAT(import.DataSources().names, testing::ElementsAre("next"));
  Figure(Text("cancelled within ", bytes >> 20, " MB of ", GetParam().name),
         Text(cancelled, " moments of ", whole, " s: ended after at most ",
              static_cast<int>(longest * 1e3) + 1, " ms"));
}

INSTANTIATE_TEST_SUITE_P(Network, CancelledInLargeReply, testing::ValuesIn(kReplies),
                         [](const auto& test) {
                           std::string name = test.param.name;
                           std::erase_if(name, [](char c) { return !std::isalnum(c); });
                           return name;
                         });

}  // namespace
}  // namespace network
