#pragma once

#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// The host's fatal assertions.
class XMLAHOST_API VXAssert {
 public:
  /// Calls the onLogicError of the calling thread's ImportSettings, which may throw. Without one,
  /// or when it returns, writes one line "FILE:LINE: MESSAGE" on standard error and aborts the
  /// process. For broken invariants only, never for bad input.
  [[noreturn]] static void handleLogicError(const String& file, int line, const String& message);
};
