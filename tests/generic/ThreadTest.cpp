// Tests threads, their jobs and the execution state.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/String.h"
#include "Utility/Generic/VXThread.h"
#include "support/Settings.h"

namespace {

/// The object of a job. If told to, it runs until it is cancelled.
class Worker {
 public:
  bool Work(String first, String& second) {
    state = VXExecutionState::Current();
    id = std::this_thread::get_id();
    second = first + L"!";
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
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
  std::thread::id id;  // read after the end of the thread
  sigset_t blocked{};  // signals that the thread blocks; likewise
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

TEST(Thread, AnnouncesItsJobThenRunsItOnce) {
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

TEST(Thread, UsesItsOwnExecutionState) {
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

TEST(Thread, MayBeCancelledRepeatedly) {
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

TEST(Thread, LastReleaseCancelsAndJoins) {
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

TEST(Thread, ReleaseAfterTheEndDoesNotCancel) {
  // The object may already run another job.
  Worker worker;
  String result;
  {
    const auto thread = MakeThread(worker, result);
    thread->Start();
    thread->WaitUntilStopped();
  }
  EXPECT_EQ(worker.cancels, 0);
}

TEST(Thread, MayNeverBeStarted) {
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

TEST(Thread, ContinuesAfterARejectedSecondStart) {
  support::Settings settings;
  settings.onLogicError = [](const String&, int, const String& message) {
    throw ErrorMessage(message);
  };
  Worker worker;
  worker.waits = true;
  String result;
  const auto thread = MakeThread(worker, result);
  thread->Start();
  EXPECT_THROW(thread->Start(), ErrorMessage);
  thread->RequestCancellation(0, VXExecutionState::kCancelReasonHost);
  thread->WaitUntilStopped();
  EXPECT_EQ(worker.runs, 1);
}

TEST(Thread, BlocksAllSignalsAndKeepsTheStartersMask) {
  sigset_t before;
  pthread_sigmask(SIG_SETMASK, nullptr, &before);
  Worker worker;
  String result;
  const auto thread = MakeThread(worker, result);
  thread->Start();
  thread->WaitUntilStopped();
  sigset_t after;
  pthread_sigmask(SIG_SETMASK, nullptr, &after);
  for (int signal = 1; signal < SIGRTMAX; ++signal) {
    EXPECT_EQ(sigismember(&before, signal), sigismember(&after, signal)) << signal;
    // The C library reserves the signals between these.
    if (signal == SIGKILL || signal == SIGSTOP || (signal > SIGSYS && signal < SIGRTMIN)) continue;
    EXPECT_EQ(sigismember(&worker.blocked, signal), 1) << signal;
  }
}

TEST(ThreadDeathTest, ParentsThreadCountsAsStoppedInAForkedChild) {
  Worker worker;
  worker.waits = true;
  String result;
  auto thread = MakeThread(worker, result);
  thread->Start();
  const pid_t child = fork();
  if (child == 0) {
    alarm(10);
    thread->WaitUntilStopped();
    thread = {};
    _exit(worker.cancels == 0 ? 0 : 1);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  thread = {};
  EXPECT_EQ(worker.cancels, 1);
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

TEST(ExecutionState, AppliesToItsScopeAndThread) {
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
