#include "Utility/Generic/VXThread.h"

#include <pthread.h>
#include <sched.h>

#include <chrono>
#include <system_error>

#include "Utility/Generic/ErrorMessage.h"

VXThreadCarrier::VXThreadCarrier() noexcept = default;

VXThreadCarrier::~VXThreadCarrier() {
  {
    const std::lock_guard lock(m_mutex);
    m_isEnding = true;
  }
  m_wakeCarrier.notify_one();
  if (m_thread.joinable()) m_thread.join();
}

void VXThreadCarrier::Carry(VXThread& thread, Place place) {
  std::unique_lock lock(m_mutex);
  m_wakeWaiting.wait(lock, [this] { return m_carried == nullptr; });
  if (!m_thread.joinable()) m_thread = std::thread([this] { Loop(); });
  PutLocked(place);
  m_carried = &thread;
  const bool givesWay = place == Place::kHere && m_stays == 0;
  if (m_stays > 0) --m_stays;
  lock.unlock();
  m_wakeCarrier.notify_one();
  if (givesWay) GiveWay();
}

/// Lets the thread run at once. It would wake the starter later, on another processor, if one is
/// idle, and that takes longer. But where there is other work the processor may go to that, for
/// milliseconds.
void VXThreadCarrier::GiveWay() noexcept {
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::milliseconds kShortJob{1};
  constexpr int kStays = 1000;
  const Clock::time_point begin = Clock::now();
  std::this_thread::yield();
  if (Clock::now() - begin <= kShortJob) return;
  const std::lock_guard lock(m_mutex);
  m_stays = kStays;
}

/// Where the system does not let a thread be put, it runs anywhere.
void VXThreadCarrier::PutLocked(Place place) noexcept {
  const int processor = place == Place::kHere ? sched_getcpu() : kAllProcessors;
  if (processor == m_processor && processor != kAllProcessors) return;
  // What cannot be undone is not done: on more processors than the set holds, this fails.
  cpu_set_t processors;
  if (pthread_getaffinity_np(pthread_self(), sizeof processors, &processors) != 0) return;
  if (processor != kAllProcessors) {
    CPU_ZERO(&processors);
    CPU_SET(processor, &processors);
  }
  if (pthread_setaffinity_np(m_thread.native_handle(), sizeof processors, &processors) == 0)
    m_processor = processor;
}

bool VXThreadCarrier::IsCarrying(const VXThread& thread) noexcept {
  const std::lock_guard lock(m_mutex);
  return m_carried == &thread;
}

void VXThreadCarrier::AwaitEndOf(const VXThread& thread) noexcept {
  std::unique_lock lock(m_mutex);
  m_wakeWaiting.wait(lock, [&] { return m_carried != &thread; });
}

void VXThreadCarrier::Loop() noexcept {
  std::unique_lock lock(m_mutex);
  for (;;) {
    m_wakeCarrier.wait(lock, [this] { return m_carried || m_isEnding; });
    if (!m_carried) return;
    VXThread& thread = *m_carried;
    lock.unlock();
    thread.RunInItsState();
    lock.lock();
    m_carried = nullptr;
    m_wakeWaiting.notify_all();
  }
}

VXThread::VXThread() noexcept = default;

VXThread::~VXThread() = default;

void VXThread::RunInItsState() noexcept {
  const VXExecutionState::Scope scope(m_state);
  Run();
}

void VXThread::Start() { Start(m_own); }

void VXThread::Start(VXThreadCarrier& carrier, VXThreadCarrier::Place place) {
  VXThreadCarrier* none = nullptr;
  if (!m_carrier.compare_exchange_strong(none, &carrier))
    VXAssert::handleLogicError(L"VXThread.cpp", __LINE__, L"thread started a second time");
  Announce();
  try {
    carrier.Carry(*this, place);
  } catch (const std::system_error&) {
    Cancel();  // nobody is to wait for the job that was announced
    SUGThrow(ErrorMessage(String(L"The system has no thread left to read the server's reply; close "
                                 L"other programs or raise the limit of threads.")),
             L"VXThread.cpp", __LINE__);
  } catch (...) {
    Cancel();
    throw;
  }
}

void VXThread::RequestCancellation(unsigned long, VXExecutionState::CancelReason reason) noexcept {
  m_state.RequestCancellation(reason);
  Cancel();
}

void VXThread::WaitUntilStopped() noexcept {
  if (VXThreadCarrier* const carrier = m_carrier.load()) carrier->AwaitEndOf(*this);
}

void VXThread::CancelAndWait() noexcept {
  VXThreadCarrier* const carrier = m_carrier.load();
  if (!carrier || !carrier->IsCarrying(*this)) return;
  RequestCancellation(0, VXExecutionState::kCancelReasonUnknown);
  WaitUntilStopped();
}
