#pragma once

/// \file
/// The report of logic errors.

#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// The host's assertions.
class XMLAHOST_API VXAssert {
 public:
  /// Calls ImportSettings::onLogicError of the calling thread, which may throw. If there is none or
  /// it returns, writes the line "FILE:LINE: MESSAGE" to standard error and aborts the process.
  /// Only for broken invariants, never for bad input.
  [[noreturn]] static void handleLogicError(const String& file, int line, const String& message);
};
