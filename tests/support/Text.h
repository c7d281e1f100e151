#pragma once

#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/String.h"

namespace support {

inline std::string Narrow(const String& text) {
  const NarrowString bytes = BaseStringUtil::StringToStdString(text, BaseStringUtil::kCodePageUTF8);
  return {bytes.data(), bytes.size()};
}

inline String Wide(const std::string& bytes) {
  return BaseStringUtil::StdStringToString(NarrowString(bytes.data(), bytes.size()),
                                           BaseStringUtil::kCodePageUTF8);
}

}  // namespace support

/// Prints the text in a failed comparison.
inline void PrintTo(const String& text, std::ostream* out) {
  *out << '"' << support::Narrow(text) << '"';
}
