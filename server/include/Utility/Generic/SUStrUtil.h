#pragma once

/// \file
/// The texts of the host's message catalogue.

#include <vector>

#include "Utility/Generic/HostExport.h"
#include "Utility/Generic/String.h"

/// Texts of the host's message catalogue.
class XMLAHOST_API SUStrUtil {
 public:
  /// The message as one line "[NUMBER] text", with its arguments filled in. Line breaks and tabs in
  /// an argument become spaces. An argument longer than 512 characters is truncated, and the text
  /// says how many are missing. A missing argument is empty, and a surplus one is ignored. A number
  /// that is not in the catalogue gives "[NUMBER] " and the arguments.
  static String LoadMsgStringOnly(int number, const std::vector<String>& arguments);
};
