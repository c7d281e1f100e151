// With read-ahead, only the time changes: imports of sample cubes and of random metadata, with
// faults at every position, are compared with imports of one request at a time.

#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <sstream>

#include "DiscoverService.h"
#include "Moods.h"
#include "NetworkSupport.h"
#include "RandomCubeSupport.h"
#include "ReadAheadSupport.h"
#include "support/Effort.h"
#include "support/ScriptedServer.h"

namespace readahead {
namespace {

constexpr unsigned int kNumbers[] = {2, 7, 32};

/// Answers like the sample provider. Requests with one body, or one request, get the reply of a
/// mood.
class SampleServer {
 public:
  explicit SampleServer(const SampleCube& cube) : m_cube(cube) {}

  Server& Wire() { return m_server; }
  void SetMood(const std::string& mood, std::string body) {
    const std::lock_guard lock(m_mutex);  // a request that was cancelled may still be in progress
    m_mood = sample::ParseMood(mood);
    m_body = std::move(body);
  }
  /// Only request number `position`, from 0, gets the reply of the mood.
  void SetMoodOnce(const std::string& mood, int position) {
    SetMood(mood, "");
    m_untilMood = position;
  }

 private:
  void Serve(loopback::Connection& connection, const loopback::Request& request) {
    const auto kind = *sample::KindFromName(m_cube.path + 1);
    const sample::HttpReply proper = sample::Answer(kind, request.body);
    std::unique_lock lock(m_mutex);
    const bool isOnce = m_body.empty() && m_untilMood-- == 0;
    const std::optional<sample::Mood> mood =
        isOnce || request.body == m_body ? m_mood : std::nullopt;
    lock.unlock();
    if (!mood) {
      connection.Send(loopback::Answer(proper.body, proper.status, "Content-Type: text/xml\r\n"));
      return;
    }
    sample::SendReply(connection, m_server.Wire().Stop(), sample::InMood(*mood, kind, proper));
  }

  const SampleCube& m_cube;
  std::mutex m_mutex;
  std::optional<sample::Mood> m_mood;  // guarded by m_mutex, like m_body
  std::string m_body;
  int m_untilMood = -1;
  Server m_server{[this](loopback::Connection& connection, const loopback::Request& request) {
    Serve(connection, request);
  }};
};

std::vector<std::string> Bodies(const std::vector<loopback::Request>& requests) {
  std::vector<std::string> bodies;
  for (const loopback::Request& request : requests) bodies.push_back(request.body);
  return bodies;
}

TEST(ReadAheadEqual, SampleCubesOfAllKinds) {
  for (const SampleCube& cube : kSampleCubes) {
    SampleServer server(cube);
    for (const bool isLogged : {false, true}) {
      std::size_t used = 0;
      const Outcome one = Import(server.Wire().Url(), cube.cube, {.isLogged = isLogged});
      EXPECT_GT(one.exchanges.size(), 10u);
      EXPECT_EQ(one.ahead.sent, 0u);
      const auto alone = Bodies(server.Wire().Wire().TakeRequests());
      const std::set expected(alone.begin(), alone.end());
      for (const unsigned int number : kNumbers)
        for (const int delay : {0, 3000}) {
          server.Wire().maxDelay = delay;
          server.Wire().TakeMostInProgress();
          const Outcome many =
              Import(server.Wire().Url(), cube.cube, {.requests = number, .isLogged = isLogged});
          EXPECT_EQ(Difference(many, one), "") << cube.path << ", " << number;
          if (delay > 0) used += many.ahead.used;
          EXPECT_LE(many.ahead.unused, many.ahead.repeated) << cube.path;
          if (many.ahead.unused == 0) {
            EXPECT_LE(server.Wire().TakeMostInProgress(), static_cast<int>(number));
          }
          // The same requests, in another order.
          const auto sent = Bodies(server.Wire().Wire().TakeRequests());
          EXPECT_EQ(sent.size(), one.exchanges.size() + many.ahead.repeated + many.ahead.unused)
              << cube.path << ", " << number;
          EXPECT_EQ(std::set(sent.begin(), sent.end()), expected) << cube.path << ", " << number;
        }
      server.Wire().maxDelay = 0;
      EXPECT_GT(used, 0u) << cube.path;  // on a busy machine, one import may use none
    }
  }
}

/// Moods that need no time.
const std::vector<std::string> kQuickMoods = {
    "cut:20",        "cut:60",       "truncate",   "truncate:0",   "reset:20",
    "reset:500",     "chunked",      "no-length",  "wrong-length", "wrong-length:-10",
    "broken-chunks", "fault",        "fault-500",  "garble",       "html",
    "empty",         "redirect",     "status:401", "status:403",   "status:404",
    "status:407",    "status:413",   "status:429", "status:500",   "status:503",
    "status:504",    "latin-1",      "utf-16",     "slow:30",      "double-declaration",
    "bomb:1",        "endless-head", "cut:0",      "reset",        "endless"};
/// Moods that end with a time-out.
const std::vector<std::string> kSlowMoods = {"stall", "stall-head", "stall-body", "drip:1",
                                             "wrong-length:1000000"};

/// The quick moods, and in the long form the slow ones.
std::vector<std::string> Moods() {
  std::vector<std::string> moods = kQuickMoods;
  if (support::IsLong()) moods.insert(moods.end(), kSlowMoods.begin(), kSlowMoods.end());
  return moods;
}

TEST(ReadAheadEqual, TriesEveryMood) {
  std::set<std::string> tried{"random"};  // selects among the others
  for (const auto* const moods : {&kQuickMoods, &kSlowMoods})
    for (const std::string& mood : *moods) tried.insert(mood.substr(0, mood.find(':')));
  std::set<std::string> all;
  std::istringstream help(sample::MoodHelp());
  for (std::string line, name; std::getline(help, line);)
    if (std::istringstream(line) >> name) all.insert(name.substr(0, name.find_first_of("[:")));
  EXPECT_EQ(tried, all);
}

/// The limits make moods without an end short.
Way WayWithMoods() {
  Way way;
  way.http.timeoutSeconds = 1;
  way.http.maxReplyBytes = 4 << 20;
  return way;
}

/// The parameter is the number of a sample cube.
class ReadAheadFaults : public testing::TestWithParam<int> {};

TEST_P(ReadAheadFaults, EveryModeAtEveryPosition) {
  const SampleCube& cube = kSampleCubes[GetParam()];
  long imports = 0;
  long discarded = 0;
  SampleServer server(cube);
  Way way = WayWithMoods();
  Import(server.Wire().Url(), cube.cube, way);
  const std::vector<std::string> bodies = Bodies(server.Wire().Wire().TakeRequests());
  const std::vector<std::string> moods = Moods();
  const std::size_t total = bodies.size() * moods.size();
  // A quarter of 80, as with sanitizers, would be too few for the number of dropped replies.
  std::size_t step = support::Stride<std::size_t>(total, support::kIsSanitized ? 160 : 80);
  // A step without common divisors visits moods and positions in different combinations.
  while (step > 1 && (moods.size() % step == 0 || bodies.size() % step == 0)) ++step;
  for (std::size_t i = 0; i < total; i += step) {
    const std::string& mood = moods[i % moods.size()];
    const std::size_t position = i / moods.size();
    server.SetMood(mood, bodies[position]);
    way.requests = 1;
    const Outcome one = Import(server.Wire().Url(), cube.cube, way);
    way.requests = kNumbers[i / step % 3];
    const Outcome many = Import(server.Wire().Url(), cube.cube, way);
    ASSERT_EQ(Difference(many, one), "") << mood << " at " << position << ", " << way.requests;
    discarded += static_cast<long>(many.ahead.repeated);
    ++imports;
  }
  EXPECT_GT(discarded, imports / 4);
  network::Figure(network::Text("imports from ", cube.path + 1,
                                " with a fault at one position, with and without read-ahead"),
                  network::Text(imports, " pairs, equal; ", discarded,
                                " replies that were read ahead were dropped and requested again"));
}

/// A fault that happens once, to a request number, hits another request if several are in progress.
/// The outcome is that without the fault, or that of one request at a time with the fault at one of
/// the positions.
TEST_P(ReadAheadFaults, AFaultThatHappensOnceHitsOneRequestOrNone) {
  const SampleCube& cube = kSampleCubes[GetParam()];
  SampleServer server(cube);
  Way way = WayWithMoods();
  const Outcome healthy = Import(server.Wire().Url(), cube.cube, way);
  const int positions = static_cast<int>(server.Wire().Wire().TakeRequests().size());
  const std::vector<std::string> moods =
      support::IsLong() ? kQuickMoods
                        : std::vector<std::string>{"status:503", "reset", "fault", "truncate"};
  long unseen = 0;
  long seen = 0;
  for (const std::string& mood : moods) {
    const auto import = [&](int position, unsigned int requests) {
      server.SetMoodOnce(mood, position);
      way.requests = requests;
      return Import(server.Wire().Url(), cube.cube, way);
    };
    // With one request at a time: the outcome for each position of the fault, once it is needed.
    std::map<int, Outcome> outcomes;
    const auto isOutcomeOf = [&](const Outcome& many, int position) {
      if (position < 0 || position >= positions) return false;
      if (!outcomes.contains(position)) outcomes.emplace(position, import(position, 1));
      return Difference(many, outcomes.at(position)).empty();
    };
    const int step = support::Stride(positions, 12);
    for (int position = 0; position < positions; position += step) {
      const unsigned int requests = kNumbers[position / step % 3];
      const Outcome many = import(position, requests);
      if (Difference(many, healthy).empty()) {
        ++unseen;
        continue;
      }
      ++seen;
      // A request nearby was hit.
      int distance = 0;
      while (distance < positions && !isOutcomeOf(many, position - distance) &&
             !isOutcomeOf(many, position + distance))
        ++distance;
      ASSERT_LT(distance, positions) << mood << ", request " << position << ", " << requests
                                     << " requests at a time: " << many.errors << many.warnings;
    }
  }
  EXPECT_GT(unseen, 0);
  EXPECT_GT(seen, 0);
  network::Figure(network::Text("imports from ", cube.path + 1, " with a fault that happens once"),
                  network::Text(unseen + seen, " imports: ", unseen, " without a trace of it, ",
                                seen, " as with one request at a time"));
}

// The cubes themselves do not exist yet when the tests are listed.
INSTANTIATE_TEST_SUITE_P(Kind, ReadAheadFaults, testing::Range(0, 3));

TEST(ReadAheadEqual, RandomMetadataWithRandomDelays) {
  std::mutex mutex;
  auto script = std::make_shared<const CubeScript>();  // guarded by mutex
  Server server([&](loopback::Connection& connection, const loopback::Request& request) {
    std::unique_lock lock(mutex);
    const auto current = script;
    lock.unlock();
    const support::Reply reply = (*current)(request);
    connection.Send(loopback::Answer(reply.body, reply.status, "Content-Type: text/xml\r\n"));
  });
  long complete = 0;
  long failed = 0;
  long thrown = 0;
  std::uint64_t unused = 0;
  const unsigned int rounds = support::Effort(60U, 1500U);
  for (unsigned int seed = 0; seed < rounds; ++seed) {
    {
      const std::lock_guard lock(mutex);
      script = std::make_shared<const CubeScript>(RandomCube(seed).Make());
    }
    const Cube cube{.target = kTargets[seed % std::size(kTargets)]};
    server.maxDelay = 0;
    const bool isLogged = seed % 7 == 0;
    const Outcome one = Import(server.Url(), cube, {.isLogged = isLogged});
    (one.errors.empty() ? complete : failed) += 1;
    thrown += one.thrown.empty() ? 0 : 1;
    server.maxDelay = seed % 2 == 0 ? 2000 : 0;
    for (const unsigned int number : kNumbers) {
      server.TakeMostInProgress();
      const Outcome many = Import(server.Url(), cube, {.requests = number, .isLogged = isLogged});
      ASSERT_EQ(Difference(many, one), "") << "seed " << seed << ", " << number;
      // The server may still work on a request that was cancelled.
      if (many.ahead.unused == 0) {
        EXPECT_LE(server.TakeMostInProgress(), static_cast<int>(number)) << "seed " << seed;
      }
      // A repeated request needs the client's connection at once, which can end another request.
      if (one.errors.empty() && one.thrown.empty() && many.ahead.repeated == 0) {
        EXPECT_EQ(many.ahead.unused, 0u) << "seed " << seed << ", " << number;
      }
      unused += many.ahead.unused;
    }
  }
  EXPECT_GT(complete, 0);
  EXPECT_GT(failed, 0);
  EXPECT_GT(unused, 0u);
  network::Figure(
      "imports of random metadata with random delays, with and without read-ahead",
      network::Text(rounds, " cubes, each with 1, 2, 7 and 32 requests at a time, equal; ", failed,
                    " end with an error, ", thrown, " with a logic error"));
}

}  // namespace
}  // namespace readahead
