// Cancellation by the host: at every allocation of an operation, and at every element of a
// document; and destruction of a reader at every element.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "ExemptServerSupport.h"
#include "OperationsSupport.h"
#include "Utility/Generic/SAX2XmlReadDriver.h"
#include "Utility/Generic/VXThread.h"
#include "support/Effort.h"
#include "support/FailingAllocation.h"
#include "support/Text.h"

namespace reliability {
namespace {

TEST(Cancelling, AtAnyAllocationOfAnyThreadEndsTheOperationAndLeavesAUsableObject) {
  if (!FailingAllocation::kIsPossible) GTEST_SKIP() << "allocations cannot be made to fail";
  ExemptServer server;
  std::minstd_rand random(std::random_device{}());
  long tries = 0;
  long cancelled = 0;
  for (const Kind& kind : kKinds)
    for (const Operation& operation : kOperations) {
      const auto run = [&](Subject& subject, VXExecutionState& state, long nth) {
        Outputs outputs;
        return OutcomeOf(outputs, [&] {
          const VXExecutionState::Scope scope(state);
          const auto cancel = [](void* context) noexcept {
            static_cast<VXExecutionState*>(context)->RequestCancellation(
                VXExecutionState::kCancelReasonHost);
          };
          const FailingAllocation event(nth, cancel, &state);
          operation.run(subject, outputs);
        });
      };
      VXExecutionState never;
      Subject first(kind, server.Url(kind.path));
      const Outcome whole = run(first, never, 1L << 40);
      const long count = FailingAllocation::Seen();
      const long step = support::Stride(count, 3L);
      for (long nth = 1 + static_cast<long>(random()) % step; nth <= count; nth += step) {
        SCOPED_TRACE(std::string(kind.name) + ", " + operation.name + ", at allocation " +
                     std::to_string(nth) + " of " + std::to_string(count));
        VXExecutionState state;
        Subject subject(kind, server.Url(kind.path));
        const Outcome outcome = run(subject, state, nth);
        ASSERT_EQ(Violation(operation, outcome, whole), "");
        ASSERT_NE(outcome.end, Outcome::End::kOutOfMemory);
        if (!(outcome == whole)) {
          ASSERT_THAT(
              outcome.thrown + outcome.errors + outcome.warnings,
              testing::AnyOf(testing::HasSubstr("cancelled"), testing::HasSubstr("[46066] ")));
          ++cancelled;
        }
        ++tries;
        ASSERT_TRUE(run(subject, never, 1L << 40) == whole) << "the object is not usable";
      }
    }
  EXPECT_GT(cancelled, tries / 2);
  support::PrintFigure("cancelled at an allocation of an operation, on any thread",
                       std::to_string(tries) + " tried: " + std::to_string(cancelled) +
                           " ended by an error text, the others had finished; every object "
                           "usable");
}

/// A driver whose thread parses a document with that many elements.
class Reading {
 public:
  explicit Reading(long elements)
      : m_size(elements), m_driver(SAX2XmlReadDriverFactory::CreateSAX2XmlReadDriver(1)) {
    std::string text = "<r>";
    for (long i = 1; i < elements; ++i) text += "<e>" + std::to_string(i) + "</e>";
    m_text = NarrowString((text + "</r>").c_str());
    Start();
  }
  void Start() {
    using Job = VXThreadJob_TwoArg<SAX2XmlReadDriver, NarrowString, String>;
    const RefCnt<VXThreadJob> job(
        new Job(m_driver.get(), &SAX2XmlReadDriver::ParseBytesInMem, m_text, m_error));
    m_thread = RefCnt<VXThread>(new VXUserThread<ManagedJobFunctor>(ManagedJobFunctor(job)));
    m_thread->Start();
  }
  void Cancel() { m_thread->RequestCancellation(0, VXExecutionState::kCancelReasonHost); }
  /// Reads `count` elements and checks each.
  bool Read(long count) {
    for (long i = 1; i <= count; ++i) {
      const RefCnt<SAX2XmlElement> element = m_driver->Read();
      if (!element || element->IsCancel() || element->HasError()) return false;
      if (i < m_size && i < 10 && support::Narrow(element->GetValue()) != std::to_string(i))
        return false;
    }
    return true;
  }
  RefCnt<SAX2XmlElement> Next() { return m_driver->Read(); }

 private:
  const long m_size;
  Heap<SAX2XmlReadDriver> m_driver;
  NarrowString m_text;
  String m_error;
  RefCnt<VXThread> m_thread;
};

/// Sizes of documents: delivered at once, in blocks, and in more blocks than the queue holds.
class CancellingAtElements : public testing::TestWithParam<long> {};

TEST_P(CancellingAtElements, EndsReadingAndLeavesAUsableReader) {
  const long size = GetParam();
  const long step = support::Stride(size, 25L);
  long tries = 0;
  long dropped = 0;
  Reading reading(size);
  for (long k = 0; k <= size; k += step) {
    ASSERT_TRUE(reading.Read(k)) << k;
    reading.Cancel();
    // The queued elements are dropped: next comes the cancelled element, or the end.
    const RefCnt<SAX2XmlElement> next = reading.Next();
    ASSERT_TRUE(!next || next->IsCancel()) << k;
    ASSERT_TRUE(k == size || next) << k;
    ASSERT_FALSE(reading.Next()) << k;
    dropped += next ? 1 : 0;
    ++tries;
    reading.Start();
    ASSERT_TRUE(reading.Read(size)) << "the reader is not usable after " << k;
    ASSERT_FALSE(reading.Next());
    reading.Start();
  }
  support::PrintFigure(
      "cancelled at an element of a document of " + std::to_string(size),
      std::to_string(tries) + " tried: " + std::to_string(dropped) +
          " ended by a cancelled element, none by a wrong one; every reader usable");
}

TEST_P(CancellingAtElements, ReaderMayBeDestroyedAtAnyElement) {
  const long size = GetParam();
  const long step = support::Stride(size, 15L);
  long tries = 0;
  for (long k = 0; k <= size; k += step, ++tries) {
    Reading reading(size);
    ASSERT_TRUE(reading.Read(k)) << k;
  }
  support::PrintFigure("destroyed at an element of a document of " + std::to_string(size),
                       std::to_string(tries) + " tried, 0 hangs or crashes");
}

TEST_P(CancellingAtElements, CallersStateEndsReadingAtAnyElement) {
  const long size = GetParam();
  const long step = support::Stride(size, 15L);
  for (long k = 0; k < size; k += step) {
    Reading reading(size);
    VXExecutionState state;
    const VXExecutionState::Scope scope(state);
    ASSERT_TRUE(reading.Read(k)) << k;
    state.RequestCancellation(VXExecutionState::kCancelReasonHost);
    const RefCnt<SAX2XmlElement> next = reading.Next();
    ASSERT_TRUE(next && next->IsCancel()) << k;
    ASSERT_FALSE(reading.Next()) << k;
  }
}

INSTANTIATE_TEST_SUITE_P(Sizes, CancellingAtElements, testing::Values(5L, 600L, 5000L));

}  // namespace
}  // namespace reliability
