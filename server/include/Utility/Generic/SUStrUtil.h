#pragma once

#include <vector>

#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// Texts of the host's message catalogue.
class XMLAHOST_API SUStrUtil {
 public:
  /// The message as one line "[NUMBER] text" with its arguments filled in; line breaks and tabs
  /// inside an argument become blanks; of an argument longer than 512 characters the first 512 are
  /// shown, and how many are missing. A missing argument is shown empty, a surplus one is left
  /// out. A number that the catalogue does not hold gives "[NUMBER] " and the arguments.
  static String LoadMsgStringOnly(int number, const std::vector<String>& arguments);
};
