#pragma once

#include "Utility/Generic/VXThread.h"

/// True when the host has asked the calling thread to stop. Cheap: may be asked for every piece of
/// a reply.
inline bool IsThreadToStop() noexcept {
  const VXExecutionState* const state = VXExecutionState::Current();
  return state && state->IsCancellationRequested();
}
