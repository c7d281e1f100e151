#pragma once

/// \file
/// The check whether the running operation must end.

#include "Utility/Generic/ImportOperation.h"
#include "Utility/Generic/VXExecutionState.h"

/// The one check for cancellation. True if the calling thread must end its operation: the host has
/// requested cancellation, or the deadline has passed. Cheap enough to be called for every row.
inline bool IsThreadToStop() noexcept {
  const VXExecutionState* const state = VXExecutionState::Current();
  if (state && state->IsCancellationRequested()) return true;
  const ImportOperation* const operation = ImportOperation::Current();
  return operation && operation->IsPastDeadline();
}

/// The error text of a transfer that ended because IsThreadToStop is true.
inline String StopText() {
  const ImportOperation* const operation = ImportOperation::Current();
  if (operation && operation->IsPastDeadline()) return operation->DeadlineText();
  return L"interrupted: the request was cancelled before its reply was complete";
}
