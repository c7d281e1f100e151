#include "Utility/Generic/VXThread.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <mutex>

#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/VXAssert.h"

/// The POSIX thread of a VXThread.
class VXThread::SystemThread {
 public:
  explicit SystemThread(std::function<void()> work) : m_work(std::move(work)) {}

  /// True for the first call.
  bool ClaimStart() noexcept { return !m_isStartClaimed.exchange(true); }

  /// False if the system cannot create a thread.
  bool Start() noexcept {
    const std::lock_guard lock(m_mutex);
    sigset_t all;
    sigfillset(&all);
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) return false;
    const bool isStarted = pthread_attr_setsigmask_np(&attributes, &all) == 0 &&
                           pthread_create(&m_thread, &attributes, &Main, this) == 0;
    pthread_attr_destroy(&attributes);
    if (isStarted) m_process = getpid();
    m_isJoinable = isStarted;
    return isStarted;
  }

  bool IsRunning() const noexcept { return IsInThisProcess() && !m_hasEnded.load(); }

  /// True in a forked child of the process in which the thread runs.
  bool IsInOtherProcess() const noexcept { return m_process.load() != 0 && !IsInThisProcess(); }

  void Join() noexcept {
    if (!IsInThisProcess()) return;
    const std::lock_guard lock(m_mutex);
    if (m_isJoinable) pthread_join(m_thread, nullptr);
    m_isJoinable = false;
  }

 private:
  /// False before the start and in a forked child. In a child, the thread does not exist, and the
  /// mutex may never be unlocked.
  bool IsInThisProcess() const noexcept { return m_process.load() == getpid(); }

  static void* Main(void* self) {
    auto& thread = *static_cast<SystemThread*>(self);
    thread.m_work();
    thread.m_hasEnded.store(true);
    return nullptr;
  }

  const std::function<void()> m_work;
  std::atomic<bool> m_isStartClaimed{false};
  std::atomic<pid_t> m_process{0};  // in which the thread runs
  std::atomic<bool> m_hasEnded{false};
  std::mutex m_mutex;
  bool m_isJoinable = false;  // guarded by m_mutex
  pthread_t m_thread{};       // guarded by m_mutex
};

VXThread::VXThread()
    : m_thread(std::make_unique<SystemThread>([this] {
        const VXExecutionState::Scope scope(m_state);
        Run();
      })) {}

VXThread::~VXThread() = default;

void VXThread::Start() {
  if (!m_thread->ClaimStart())
    VXAssert::handleLogicError(L"VXThread.cpp", __LINE__, L"thread started a second time");
  Announce();
  if (m_thread->Start()) return;
  Cancel();  // the announced job will not run
  SUGThrow(ErrorMessage(String(L"The system has no thread left to read the server's reply; close "
                               L"other programs or raise the limit of threads.")),
           L"VXThread.cpp", __LINE__);
}

void VXThread::RequestCancellation(unsigned long, VXExecutionState::CancelReason reason) noexcept {
  if (m_thread->IsInOtherProcess())
    return;  // threads that do not exist here may hold the job's locks
  m_state.RequestCancellation(reason);
  Cancel();
}

void VXThread::WaitUntilStopped() noexcept { m_thread->Join(); }

void VXThread::CancelAndWait() noexcept {
  if (m_thread->IsRunning()) RequestCancellation(0, VXExecutionState::kCancelReasonUnknown);
  m_thread->Join();
}
