#include "Utility/Generic/VXExecutionState.h"

namespace {

// A plain pointer: a thread-local object with a destructor would keep the library loaded.
thread_local VXExecutionState* g_state = nullptr;

}  // namespace

static_assert(std::atomic<int>::is_always_lock_free, "set from signal handlers");

void VXExecutionState::RequestCancellation(CancelReason reason) noexcept {
  int none = -1;
  m_request.compare_exchange_strong(none, static_cast<int>(reason), std::memory_order_acq_rel);
}

bool VXExecutionState::IsCancellationRequested() const noexcept {
  return m_request.load(std::memory_order_acquire) != -1;
}

VXExecutionState::CancelReason VXExecutionState::GetCancelReason() const noexcept {
  const int request = m_request.load(std::memory_order_acquire);
  return request < 0 ? kCancelReasonUnknown : static_cast<CancelReason>(request);
}

VXExecutionState* VXExecutionState::Current() noexcept { return g_state; }

VXExecutionState::Scope::Scope(VXExecutionState& state) noexcept : m_previous(g_state) {
  g_state = &state;
}

VXExecutionState::Scope::~Scope() { g_state = m_previous; }
