#pragma once

#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// The host's fatal assertions.
class XMLAHOST_API VXAssert {
 public:
  /// Writes one line "FILE:LINE: MESSAGE" on standard error and aborts the process. For broken
  /// invariants only, never for bad input.
  [[noreturn]] static void handleLogicError(const String& file, int line, const String& message);
};
