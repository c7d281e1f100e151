#pragma once

/// \file
/// Reading of environment variables.

#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// The environment of the process. Values are UTF-8. Do not call while another thread changes the
/// environment.
class XMLAHOST_API SystemUtility {
 public:
  /// True if the variable exists, even if it is empty.
  static bool hasEnv(const String& name);
  /// If the variable exists, sets `value` and returns true. Otherwise returns false.
  static bool Getenv(const String& name, String& value);
};
