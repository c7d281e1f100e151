#include "Utility/Generic/VXAssert.h"

#include <unistd.h>

#include <cstdlib>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/ImportSettings.h"

void VXAssert::handleLogicError(const String& file, int line, const String& message) {
  if (const auto& handler = ImportSettings::Current().onLogicError) handler(file, line, message);
  String text = file + L":" + BaseStringUtil::StringFrom(static_cast<unsigned int>(line)) + L": ";
  text += message;
  text += L'\n';
  const NarrowString bytes = BaseStringUtil::ToUTF8(text);
  // Bypasses the streams, which may be broken or locked by this thread.
  [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, bytes.data(), bytes.size());
  std::abort();
}
