#include "base/Interrupt.h"

#include <atomic>
#include <csignal>

namespace {

std::atomic<bool> g_happened{false};
std::atomic<VXExecutionState*> g_interrupted{nullptr};
static_assert(std::atomic<VXExecutionState*>::is_always_lock_free, "used in a signal handler");

constexpr int kSignals[] = {SIGINT, SIGTERM};

extern "C" void OnSignal(int) {
  g_happened.store(true);
  if (VXExecutionState* const state = g_interrupted.load())
    state->RequestCancellation(VXExecutionState::kCancelReasonHost);
}

}  // namespace

Interrupt::Interrupt() : m_state(new VXExecutionState) {
  g_interrupted.store(m_state.get());
  struct sigaction action {};
  action.sa_handler = OnSignal;
  sigemptyset(&action.sa_mask);
  // Without SA_RESTART a signal also interrupts a read from the terminal.
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  for (const int number : kSignals) {
    struct sigaction former {};
    // Signals that the parent process ignores (background job, nohup) stay ignored.
    if (sigaction(number, nullptr, &former) == 0 && former.sa_handler == SIG_IGN) continue;
    sigaction(number, &action, nullptr);
  }
}

Interrupt::~Interrupt() { g_interrupted.store(nullptr); }

bool Interrupt::Happened() { return g_happened.load(); }

bool MustStop() {
  const VXExecutionState* const state = VXExecutionState::Current();
  return state && state->IsCancellationRequested();
}
