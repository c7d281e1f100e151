#include "Utility/Generic/SystemUtility.h"

#include <cstdlib>

#include "Utility/Generic/BaseStringUtil.h"

namespace {

const char* Find(const String& name) {
  const NarrowString bytes = BaseStringUtil::ToUTF8(name);
  return std::getenv(bytes.c_str());
}

}  // namespace

bool SystemUtility::hasEnv(const String& name) { return Find(name) != nullptr; }

bool SystemUtility::Getenv(const String& name, String& value) {
  const char* const found = Find(name);
  if (!found) return false;
  value = BaseStringUtil::FromUTF8(found);
  return true;
}
