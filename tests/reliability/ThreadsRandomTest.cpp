// Cancellation by the host at random moments of any operation. Counts no allocations, so it also
// runs under ThreadSanitizer.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "ExemptServerSupport.h"
#include "NetworkSupport.h"
#include "OperationsSupport.h"
#include "Utility/Generic/VXThread.h"
#include "support/Effort.h"

namespace reliability {
namespace {

Outcome RunUnder(VXExecutionState& state, const Operation& operation, Subject& subject) {
  const VXExecutionState::Scope scope(state);
  Outputs outputs;
  return OutcomeOf(outputs, [&] { operation.run(subject, outputs); });
}

bool AreSame(const Outcome& a, const Outcome& b) { return a == b && a.thrown == b.thrown; }

TEST(CancellingAtRandom, EndsAnyOperationAndLeavesAUsableObject) {
  ExemptServer server;
  const unsigned int seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const long times = support::Effort(6L, 300L);
  long tries = 0;
  long cancelled = 0;
  for (const Kind& kind : kKinds)
    for (const Operation& operation : kOperations) {
      SCOPED_TRACE(std::string(kind.name) + ", " + operation.name);
      const std::string url = server.Url(kind.path);
      VXExecutionState never;
      Outcome whole;
      double shortest = 1;  // seconds
      for (int i = 0; i < 2; ++i) {
        Subject subject(kind, url);
        const auto begin = network::Clock::now();
        whole = RunUnder(never, operation, subject);
        shortest = std::min(shortest, network::SecondsSince(begin));
      }
      for (long i = 0; i < times; ++i, ++tries) {
        Subject subject(kind, url);
        VXExecutionState state;
        const double moment = shortest * std::uniform_real_distribution<>(0, 0.8)(random);
        std::atomic<bool> isReady{false};
        std::atomic<bool> begins{false};
        std::jthread host([&] {
          isReady = true;
          while (!begins) std::this_thread::yield();
          const auto begin = network::Clock::now();
          while (network::SecondsSince(begin) < moment) std::this_thread::yield();
          state.RequestCancellation(VXExecutionState::kCancelReasonHost);
        });
        while (!isReady) std::this_thread::yield();
        begins = true;
        const Outcome outcome = RunUnder(state, operation, subject);
        host.join();
        ASSERT_EQ(Violation(operation, outcome, whole), "") << ToText(outcome);
        if (!AreSame(outcome, whole)) {
          ++cancelled;
          ASSERT_THAT(outcome.thrown + outcome.errors + outcome.warnings,
                      testing::AnyOf(testing::HasSubstr("the request was cancelled"),
                                     testing::HasSubstr("[46066]")));
        }
        if (i % 2 == 0) {
          ASSERT_TRUE(AreSame(RunUnder(never, operation, subject), whole))
              << "the object is not usable";
        }
      }
    }
  EXPECT_GT(cancelled * 20, tries);  // fewer on a busy machine
  network::Figure("cancelled at a random moment of an operation",
                  network::Text(tries, " tried: ", cancelled,
                                " ended by an error text, the others were done already; every "
                                "second object destroyed at once, the others usable"));
}

}  // namespace
}  // namespace reliability
