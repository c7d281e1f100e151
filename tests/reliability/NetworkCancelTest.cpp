// The host cancels an import during a very large reply. At any moment of receiving, decompressing,
// converting and parsing, the operation returns within 0.1 s.

#include <gmock/gmock.h>

#include <algorithm>
#include <optional>
#include <random>
#include <thread>

#include "Gzip.h"
#include "NetworkSupport.h"
#include "Utility/Generic/VXThread.h"
#include "support/Effort.h"
#include "support/TempDir.h"
#include "support/WireServer.h"

namespace network {
namespace {

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
  bool isLogged = false;
};

std::string Rows(std::size_t bytes) { return Answer(kHead + Repeated(kRow, bytes) + kTail); }

constexpr LargeReply kReplies[] = {
    {"rows", &Rows},
    {"rows, with an import log", &Rows, true},
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
  const std::size_t bytes = support::Effort<std::size_t>(5, 100) << 20;
  const int moments = support::Effort(4, 12);
  const std::string large = GetParam().answer(bytes);
  const std::string small =
      Answer(kHead + "<row><DataSourceName>next</DataSourceName></row>" + kTail);
  std::atomic<bool> isLarge{true};
  WireServer server([&](loopback::Connection& connection, const loopback::Request&) {
    connection.Send(isLarge ? large : small);
  });
  const support::TempDir logs;
  std::optional<Variable> logging;
  std::optional<Variable> directory;
  if (GetParam().isLogged) {
    logging.emplace("OT_XMLA_IMPORT_LOGGING", "1");
    directory.emplace("XMLA_IMPORT_LOG_DIR", logs.Path());
  }
  std::optional<Import> import(std::in_place, "http://" + server.Authority() + "/");
  import->DataSources();
  // The shortest run, since later moments would find nothing to stop.
  double whole = import->DataSources().seconds;
  for (int i = 0; i < 3; ++i) whole = std::min(whole, import->DataSources().seconds);
  const unsigned int seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  double longest = 0;
  int cancelled = 0;
  int late = 0;
  for (int tries = 0; cancelled < moments && tries < 5 * moments; ++tries) {
    // The last part is writing of the log, which cannot be stopped.
    const double part = GetParam().isLogged ? 0.6 : 0.98;
    const double moment = whole * std::uniform_real_distribution<>(0, part)(random);
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
      outcome = import->DataSources();
    }
    const double taken = std::chrono::duration<double>(outcome.returned.time_since_epoch() -
                                                       Clock::duration(requested))
                             .count();
    // Cancelled too late, after everything was read.
    if (taken < 0 || outcome.errors.find("cancelled") == std::string::npos) continue;
    ++cancelled;
    longest = std::max(longest, taken);
    late += taken > 0.1 * Slack();
  }
  EXPECT_EQ(cancelled, moments) << "of those that take " << whole << " s";
  // Other load can delay a thread now and then. A log entry is written in one call of up to 16 MiB,
  // which the system does not interrupt.
  if (!GetParam().isLogged || !support::IsLong()) {
    EXPECT_LE(late, 1 + moments / 10);
  }
  EXPECT_LT(longest, 1 * Slack());
  isLarge = false;
  EXPECT_THAT(import->DataSources().names, testing::ElementsAre("next"));
  import.reset();
  for (const auto& file : logs.Files()) {
    const std::string log = support::ReadFile(file);
    EXPECT_EQ(log.find('\n', log.rfind("\nImport ends at ") + 1), log.size() - 1);
  }
  EXPECT_EQ(logs.Files().empty(), !GetParam().isLogged);
  Figure(Text("cancelled within ", bytes >> 20, " MB of ", GetParam().name),
         Text(cancelled, " moments of ", whole, " s: ended after at most ",
              static_cast<int>(longest * 1e3) + 1, " ms, ", late, " of them after more than ",
              100 * Slack(), " ms"));
}

INSTANTIATE_TEST_SUITE_P(Network, CancelledInLargeReply, testing::ValuesIn(kReplies),
                         [](const auto& test) {
                           std::string name = test.param.name;
                           std::erase_if(name, [](char c) { return !std::isalnum(c); });
                           return name;
                         });

}  // namespace
}  // namespace network
