#include "system/SystemErrorText.h"

#include <cstring>

#include "Utility/Generic/BaseStringUtil.h"

String SystemErrorText(int error) {
  // strerror depends on the locale.
  const char* const text = strerrordesc_np(error);
  if (text) return BaseStringUtil::FromUTF8(text);
  return String(L"error ") + BaseStringUtil::StringFrom(static_cast<std::uint64_t>(error));
}
