#include "base/Secret.h"

#include "Utility/Generic/BaseStringUtil.h"

String WideSecret(std::string&& bytes) {
  NarrowString copy(bytes);
  Erase(bytes);
  String wide = BaseStringUtil::StdStringToString(copy, BaseStringUtil::kCodePageUTF8);
  Erase(copy);
  return wide;
}
