#include "system/SystemReason.h"

#include <cstring>

#include "Utility/Generic/BaseStringUtil.h"

String SystemReason(int error) {
  // strerror would translate the text into the language of the process's locale.
  const char* const text = strerrordesc_np(error);
  if (text)
    return BaseStringUtil::StdStringToString(NarrowString(text), BaseStringUtil::kCodePageUTF8);
  return String(L"error ") + BaseStringUtil::StringFrom(static_cast<std::uint64_t>(error));
}
