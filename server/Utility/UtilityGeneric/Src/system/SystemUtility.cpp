#include "Utility/Generic/SystemUtility.h"

#include <cstdlib>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/Secret.h"

namespace {

const char* Find(const String& name) {
  const NarrowString bytes = BaseStringUtil::StringToStdString(name, BaseStringUtil::kCodePageUTF8);
  return std::getenv(bytes.c_str());
}

}  // namespace

bool SystemUtility::hasEnv(const String& name) { return Find(name) != nullptr; }

bool SystemUtility::Getenv(const String& name, String& value) {
  const char* const found = Find(name);
  if (!found) return false;
  const Secret<NarrowString> bytes(NarrowString{found});  // the URL of a proxy has a password
  value = BaseStringUtil::StdStringToString(bytes, BaseStringUtil::kCodePageUTF8);
  return true;
}
