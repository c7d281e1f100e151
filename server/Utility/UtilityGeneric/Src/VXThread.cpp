#include "Utility/Generic/VXThread.h"

#include <system_error>

#include "Utility/Generic/ErrorMessage.h"

VXThread::VXThread() noexcept = default;

VXThread::~VXThread() {
  if (m_thread.joinable())
    VXAssert::handleLogicError(L"VXThread.cpp", __LINE__, L"thread destroyed while it may run");
}

void VXThread::Start() {
  const std::lock_guard lock(m_joining);
  if (m_started)
    VXAssert::handleLogicError(L"VXThread.cpp", __LINE__, L"thread started a second time");
  m_started = true;
  Announce();
  try {
    m_thread = std::thread([this] {
      const VXExecutionState::Scope scope(m_state);
      Run();
    });
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
  const std::lock_guard lock(m_joining);
  if (m_thread.joinable()) m_thread.join();
}

void VXThread::CancelAndWait() noexcept {
  {
    const std::lock_guard lock(m_joining);
    if (!m_thread.joinable()) return;
  }
  RequestCancellation(0, VXExecutionState::kCancelReasonUnknown);
  WaitUntilStopped();
}
