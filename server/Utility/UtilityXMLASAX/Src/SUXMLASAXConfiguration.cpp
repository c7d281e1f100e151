#include "SUXMLASAXConfiguration.h"

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/SystemUtility.h"
#include "Utility/Generic/WholeNumber.h"

std::uint32_t g_kTimeoutDefault = 120;

bool g_bOverrideTimeout = [] {
  String value;
  if (!SystemUtility::Getenv(L"MORVEN_BI_XMLA_HTTP_TIMEOUT", value)) return false;
  if (IsWholeNumber(value)) g_kTimeoutDefault = BaseStringUtil::UIntFrom(value);
  return true;
}();
