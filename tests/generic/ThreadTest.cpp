// Threads, their jobs and the state of execution.
#include <gtest/gtest.h>

#include <atomic>

#include "Utility/Generic/String.h"
#include "Utility/Generic/VXThread.h"

namespace {

/// A job's object: runs until it is cancelled when asked to.
class Worker {
 public:
  bool Work(String first, String& second) {
    state = VXExecutionState::Current();
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
