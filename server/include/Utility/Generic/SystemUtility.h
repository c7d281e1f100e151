#pragma once

#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// The environment of the process. Values are read as UTF-8. Not to be called while another thread
/// changes the environment.
class XMLAHOST_API SystemUtility {
 public:
  /// True when the variable exists, whatever its value.
  static bool hasEnv(const String& name);
  /// True and the value when the variable exists; false and `value` untouched otherwise.
  static bool Getenv(const String& name, String& value);
};
