#include "SUXMLASAXStop.h"

#include "Utility/Generic/Cancellation.h"
#include "Utility/Generic/ErrorMessage.h"
#include "Utility/Generic/ImportOperation.h"
#include "Utility/Generic/MessageNumbers.h"

void ThrowIfStopped() {
  if (!IsThreadToStop()) return;
  const ImportOperation* const operation = ImportOperation::Current();
  if (operation && operation->IsPastDeadline())
    SUGThrow(ErrorMessage(operation->DeadlineText()), kSourceFile, __LINE__);
  SUGThrow(ErrorMessage(kMessageReadCancelled), kSourceFile, __LINE__);
}
