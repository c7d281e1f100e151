// Threads, their jobs and the state of execution.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <set>

#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/String.h"
#include "Utility/Generic/VXThread.h"
#include "support/Settings.h"

namespace {

// How the system's yield goes.
std::atomic<int> g_yields{0};
std::chrono::microseconds g_yieldTakes{0};

}  // namespace

/// In place of the C library's.
extern "C" int sched_yield() {
  ++g_yields;
  if (g_yieldTakes.count() > 0) std::this_thread::sleep_for(g_yieldTakes);
  return static_cast<int>(syscall(SYS_sched_yield));
}

namespace {

/// The processors that the calling thread may use.
std::set<int> UsableProcessors() {
  cpu_set_t processors;
  CPU_ZERO(&processors);
  EXPECT_EQ(sched_getaffinity(0, sizeof processors, &processors), 0);
  std::set<int> numbers;
  for (int i = 0; i < CPU_SETSIZE; ++i)
    if (CPU_ISSET(i, &processors)) numbers.insert(i);
  return numbers;
}

/// A job's object: runs until it is cancelled when asked to.
class Worker {
 public:
  bool Work(String first, String& second) {
    state = VXExecutionState::Current();
    id = std::this_thread::get_id();
    second = first + L"!";
    processors = UsableProcessors();
    if (waits) cancelled.wait(false);
    ++runs;
    return true;
  }
  void Announce() { ++announcements; }
  void Cancel() noexcept {
    ++cancels;
    cancelled = true;
    cancelled.notify_all();
  }

  bool waits = false;
  std::thread::id id;        // to be read after the end
  std::set<int> processors;  // likewise: those that the thread may use
  std::atomic<bool> cancelled{false};
  std::atomic<int> runs{0};
  std::atomic<int> announcements{0};
  std::atomic<int> cancels{0};
  std::atomic<VXExecutionState*> state{nullptr};
};

RefCnt<VXThread> MakeThread(Worker& worker, String& result) {
  const RefCnt<VXThreadJob> job(
      new VXThreadJob_TwoArg<Worker, String, String>(&worker, &Worker::Work, L"job", result));
  return RefCnt<VXThread>(new VXUserThread<ManagedJobFunctor>(ManagedJobFunctor(job)));
}

TEST(Thread, RunsItsJobOnceAfterAnnouncingIt) {
  Worker worker;
  String result;
  const auto thread = MakeThread(worker, result);
  EXPECT_EQ(worker.announcements, 0);
  thread->Start();
  EXPECT_EQ(worker.announcements, 1);
  thread->WaitUntilStopped();
  thread->WaitUntilStopped();
  EXPECT_EQ(worker.runs, 1);
  EXPECT_TRUE(result == L"job!");
}

TEST(Thread, HasAStateOfItsOwnInForce) {
  Worker worker;
  String result;
  VXExecutionState mine;
  const VXExecutionState::Scope scope(mine);
  const auto thread = MakeThread(worker, result);
  thread->Start();
  thread->WaitUntilStopped();
  EXPECT_NE(worker.state, nullptr);
  EXPECT_NE(worker.state, &mine);
}

TEST(Thread, IsCancelledFromOutsideAnyNumberOfTimes) {
  Worker worker;
  worker.waits = true;
  String result;
  const auto thread = MakeThread(worker, result);
  thread->Start();
  thread->RequestCancellation(0, VXExecutionState::kCancelReasonUnknown);
  thread->RequestCancellation(0, VXExecutionState::kCancelReasonHost);
  thread->WaitUntilStopped();
  EXPECT_EQ(worker.runs, 1);
  thread->RequestCancellation(0, VXExecutionState::kCancelReasonHost);
}

TEST(Thread, LastReleaseCancelsAndWaits) {
  Worker worker;
  worker.waits = true;
  String result;
  {
    const auto thread = MakeThread(worker, result);
    thread->Start();
  }
  EXPECT_EQ(worker.runs, 1);
  EXPECT_EQ(worker.cancels, 1);
}

TEST(Thread, ReleaseAfterItsEndCancelsNothing) {
  // The object may be at another job's work by then.
  Worker worker;
  String result;
  {
    const auto thread = MakeThread(worker, result);
    thread->Start();
    thread->WaitUntilStopped();
  }
  EXPECT_EQ(worker.cancels, 0);
}

TEST(Thread, NeverStartedIsHarmless) {
  Worker worker;
  String result;
  {
    const auto thread = MakeThread(worker, result);
    thread->WaitUntilStopped();
  }
  EXPECT_EQ(worker.runs, 0);
}

TEST(ThreadDeathTest, SecondStartIsALogicError) {
  Worker worker;
  String result;
  const auto thread = MakeThread(worker, result);
  EXPECT_DEATH(
      {
        thread->Start();
        thread->Start();
      },
      "thread started a second time");
}

TEST(Thread, RunsOnAfterASecondStartThatTheHostSurvives) {
  support::Settings settings;
  settings.onLogicError = [](const String&, int, const String& message) {
    throw ErrorMessage(message);
  };
  Worker worker;
  worker.waits = true;
  String result;
  VXThreadCarrier other;
  const auto thread = MakeThread(worker, result);
  thread->Start();
  EXPECT_THROW(thread->Start(other), ErrorMessage);
  thread->RequestCancellation(0, VXExecutionState::kCancelReasonHost);
  thread->WaitUntilStopped();
  EXPECT_EQ(worker.runs, 1);
}

/// The number of this process's threads.
std::size_t CountThreads() {
  const std::filesystem::directory_iterator tasks("/proc/self/task");
  return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

TEST(ThreadCarrier, RunsThreadsOneAfterTheOtherOnOneThreadOfTheSystem) {
  const std::size_t before = CountThreads();
  {
    VXThreadCarrier carrier;
    EXPECT_EQ(CountThreads(), before);  // none until it is needed
    std::set<std::thread::id> ids;
    for (int i = 0; i < 3; ++i) {
      Worker worker;
      String result;
      const auto thread = MakeThread(worker, result);
      thread->Start(carrier);
      thread->WaitUntilStopped();
      EXPECT_EQ(worker.runs, 1);
      ids.insert(worker.id);
      EXPECT_EQ(CountThreads(), before + 1);
    }
    EXPECT_EQ(ids.size(), 1u);
    EXPECT_EQ(ids.count(std::this_thread::get_id()), 0u);
  }
  EXPECT_EQ(CountThreads(), before);
}

TEST(ThreadCarrier, StartsTheNextWhenTheOneBeforeHasEnded) {
  VXThreadCarrier carrier;
  Worker first;
  first.waits = true;
  Worker second;
  String result;
  const auto running = MakeThread(first, result);
  running->Start(carrier);
  std::thread other([&] { running->RequestCancellation(0, VXExecutionState::kCancelReasonHost); });
  const auto next = MakeThread(second, result);
  next->Start(carrier);
  EXPECT_EQ(first.runs, 1);
  other.join();
  next->WaitUntilStopped();
  EXPECT_EQ(second.runs, 1);
}

void KeepTo(const std::set<int>& numbers) {
  cpu_set_t processors;
  CPU_ZERO(&processors);
  for (const int number : numbers) CPU_SET(number, &processors);
  ASSERT_EQ(sched_setaffinity(0, sizeof processors, &processors), 0);
}

/// Where a thread runs that is started so.
std::set<int> ProcessorsOfThread(VXThreadCarrier& carrier, VXThreadCarrier::Place place) {
  Worker worker;
  String result;
  const auto thread = MakeThread(worker, result);
  thread->Start(carrier, place);
  thread->WaitUntilStopped();
  EXPECT_EQ(worker.runs, 1);
  return worker.processors;
}

TEST(ThreadCarrier, RunsAThreadOnItsStartersProcessorOrOnAnyThatThisOneMayUse) {
  using enum VXThreadCarrier::Place;
  const std::set<int> all = UsableProcessors();
  if (all.size() < 2) GTEST_SKIP() << "needs two processors";
  const std::set<int> first{*all.begin()};
  const std::set<int> last{*all.rbegin()};
  VXThreadCarrier carrier;
  EXPECT_EQ(ProcessorsOfThread(carrier, kAnywhere), all);
  KeepTo(first);
  EXPECT_EQ(ProcessorsOfThread(carrier, kAnywhere), first);
  KeepTo(all);
  EXPECT_EQ(ProcessorsOfThread(carrier, kAnywhere), all);
  for (int round = 0; round < 3; ++round) {
    for (const std::set<int>& one : {first, last}) {
      KeepTo(one);
      EXPECT_EQ(ProcessorsOfThread(carrier, kHere), one);
      EXPECT_EQ(ProcessorsOfThread(carrier, kHere), one);
      EXPECT_EQ(ProcessorsOfThread(carrier, kAnywhere), one);
      KeepTo(all);
      EXPECT_EQ(ProcessorsOfThread(carrier, kHere).size(), 1u);
      EXPECT_EQ(ProcessorsOfThread(carrier, kAnywhere), all);
    }
  }
  EXPECT_EQ(UsableProcessors(), all);
}

TEST(ThreadCarrier, StartHereGivesWayUntilThatTakesLong) {
  using enum VXThreadCarrier::Place;
  VXThreadCarrier carrier;
  const auto yieldsOf = [&](VXThreadCarrier::Place place) {
    const int before = g_yields;
    ProcessorsOfThread(carrier, place);
    return g_yields - before;
  };
  EXPECT_EQ(yieldsOf(kAnywhere), 0);
  g_yieldTakes = std::chrono::milliseconds(3);
  EXPECT_EQ(yieldsOf(kHere), 1);
  g_yieldTakes = {};
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(yieldsOf(kHere), 0) << i;
  int yields = 0;
  constexpr int kRounds = 20;
  for (int i = 0; i < kRounds; ++i) yields += yieldsOf(kHere);
  EXPECT_GE(yields, 1);
  EXPECT_LE(yields, kRounds);
}

TEST(ThreadCarrier, ReleaseOfAThreadThatRunsCancelsItAlone) {
  VXThreadCarrier carrier;
  Worker first;
  first.waits = true;
  String result;
  {
    const auto thread = MakeThread(first, result);
    thread->Start(carrier);
  }
  EXPECT_EQ(first.runs, 1);
  EXPECT_EQ(first.cancels, 1);
  Worker second;
  const auto next = MakeThread(second, result);
  next->Start(carrier);
  next->WaitUntilStopped();
  EXPECT_EQ(second.runs, 1);
}

TEST(ExecutionState, KeepsTheFirstRequest) {
  VXExecutionState state;
  EXPECT_FALSE(state.IsCancellationRequested());
  EXPECT_EQ(state.GetCancelReason(), VXExecutionState::kCancelReasonUnknown);
  state.RequestCancellation(VXExecutionState::kCancelReasonHost);
  state.RequestCancellation(VXExecutionState::kCancelReasonUnknown);
  EXPECT_TRUE(state.IsCancellationRequested());
  EXPECT_EQ(state.GetCancelReason(), VXExecutionState::kCancelReasonHost);
}

TEST(ExecutionState, IsInForceWithinItsScopeOnItsThread) {
  EXPECT_EQ(VXExecutionState::Current(), nullptr);
  VXExecutionState outer;
  VXExecutionState inner;
  {
    const VXExecutionState::Scope first(outer);
    {
      const VXExecutionState::Scope second(inner);
      EXPECT_EQ(VXExecutionState::Current(), &inner);
    }
    EXPECT_EQ(VXExecutionState::Current(), &outer);
    std::thread([] { EXPECT_EQ(VXExecutionState::Current(), nullptr); }).join();
  }
  EXPECT_EQ(VXExecutionState::Current(), nullptr);
}

}  // namespace
