// Threads, their jobs and the state of execution.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <set>

#include "Utility/Generic/String.h"
#include "Utility/Generic/VXThread.h"

namespace {

/// A job's object: runs until it is cancelled when asked to.
class Worker {
 public:
  bool Work(String first, String& second) {
    state = VXExecutionState::Current();
    id = std::this_thread::get_id();
    second = first + L"!";
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
  std::thread::id id;  // to be read after the end
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

TEST(ThreadCarrier, MayExpectAThreadThatComesSoonOrLateOrNever) {
  const std::size_t before = CountThreads();
  VXThreadCarrier carrier;
  carrier.Expect();
  EXPECT_EQ(CountThreads(), before);
  for (const auto pause : {0, 0, 1, 200, 2000}) {
    Worker worker;
    String result;
    const auto thread = MakeThread(worker, result);
    carrier.Expect();
    std::this_thread::sleep_for(std::chrono::microseconds(pause));
    thread->Start(carrier);
    thread->WaitUntilStopped();
    EXPECT_EQ(worker.runs, 1);
  }
  carrier.Expect();
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
