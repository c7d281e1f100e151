#pragma once

#include "Utility/Generic/ImportOperation.h"
#include "Utility/Generic/VXExecutionState.h"

/// True when the work on the calling thread is to end now: the host has requested cancellation, or
/// the operation is past its deadline. Cheap: may be called for every piece of a reply.
inline bool IsThreadToStop() noexcept {
  const VXExecutionState* const state = VXExecutionState::Current();
  if (state && state->IsCancellationRequested()) return true;
  const ImportOperation* const operation = ImportOperation::Current();
  return operation && operation->IsPastDeadline();
}

/// The error text of a transfer that ended because IsThreadToStop.
inline String StopText() {
  const ImportOperation* const operation = ImportOperation::Current();
  if (operation && operation->IsPastDeadline()) return operation->DeadlineText();
  return L"The request was cancelled before its reply was complete";
}
