#include "SUXMLASAXStop.h"

#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/ImportOperation.h"
#include "Utility/Generic/VXExecutionState.h"

void ThrowIfStopped() {
  const ImportOperation* const operation = ImportOperation::Current();
  if (operation && operation->IsPastDeadline())
    SUGThrow(ErrorMessage(operation->DeadlineText()), kSourceFile, __LINE__);
  const VXExecutionState* const state = VXExecutionState::Current();
  if (state && state->IsCancellationRequested())
    SUGThrow(ErrorMessage(kMessageReadCancelled), kSourceFile, __LINE__);
}
