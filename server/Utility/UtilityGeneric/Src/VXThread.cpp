#include "Utility/Generic/VXThread.h"

#include <system_error>
#include <utility>

#include "BriefWait.h"
#include "Utility/Generic/ErrorMessage.h"

VXThreadCarrier::VXThreadCarrier() noexcept = default;

VXThreadCarrier::~VXThreadCarrier() {
  {
    const std::lock_guard lock(m_mutex);
    m_ending = true;
  }
  m_wakeCarrier.notify_one();
  if (m_thread.joinable()) m_thread.join();
}

void VXThreadCarrier::Carry(VXThread& thread) {
  std::unique_lock lock(m_mutex);
  m_wakeWaiting.wait(lock, [this] { return m_carried == nullptr; });
  if (!m_thread.joinable()) m_thread = std::thread([this] { Loop(); });
  m_carried = &thread;
  lock.unlock();
  m_wakeCarrier.notify_one();
}

void VXThreadCarrier::Expect() noexcept {
  {
    const std::lock_guard lock(m_mutex);
    m_isExpected = true;
  }
  m_wakeCarrier.notify_one();
}

bool VXThreadCarrier::IsCarrying(const VXThread& thread) noexcept {
  const std::lock_guard lock(m_mutex);
  return m_carried == &thread;
}

void VXThreadCarrier::AwaitEndOf(const VXThread& thread) noexcept {
  const auto hasEnded = [&] { return m_carried != &thread; };
  WaitBriefly(hasEnded);
  std::unique_lock lock(m_mutex);
  m_wakeWaiting.wait(lock, hasEnded);
}

void VXThreadCarrier::Loop() noexcept {
  std::unique_lock lock(m_mutex);
  for (;;) {
    m_wakeCarrier.wait(lock, [this] { return m_carried != nullptr || m_ending || m_isExpected; });
    if (m_ending && !m_carried) return;
    if (std::exchange(m_isExpected, false) && !m_carried) {
      lock.unlock();
      WaitBriefly([this] { return m_carried != nullptr; });
      lock.lock();
      continue;
    }
    lock.unlock();
    m_carried.load()->RunInItsState();
    lock.lock();
    m_carried = nullptr;
    lock.unlock();
    m_wakeWaiting.notify_all();
    WaitBriefly([this] { return m_carried != nullptr; });
    lock.lock();
  }
}

VXThread::VXThread() noexcept = default;

VXThread::~VXThread() = default;

void VXThread::RunInItsState() noexcept {
  const VXExecutionState::Scope scope(m_state);
  Run();
}

void VXThread::Start() { Start(m_own); }

void VXThread::Start(VXThreadCarrier& carrier) {
  if (m_carrier.exchange(&carrier) != nullptr)
    VXAssert::handleLogicError(L"VXThread.cpp", __LINE__, L"thread started a second time");
  Announce();
  try {
    carrier.Carry(*this);
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
