#include "SUXMLASAXConfiguration.h"

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/SystemUtility.h"

namespace {

/// True for digits with optional white space around them. UIntFrom alone would read "abc" as 0,
/// which means no limit.
bool IsWholeNumber(String::View text) {
  static constexpr String::View kWhiteSpace = L" \t\r\n";
  const std::size_t first = text.find_first_not_of(kWhiteSpace);
  if (first == String::npos) return false;
  text = text.substr(first, text.find_last_not_of(kWhiteSpace) + 1 - first);
  return text.find_first_not_of(L"0123456789") == String::npos;
}

}  // namespace

std::uint32_t g_kTimeoutDefault = 120;

bool g_bOverrideTimeout = [] {
  String value;
  if (!SystemUtility::Getenv(L"MORVEN_BI_XMLA_HTTP_TIMEOUT", value) || !IsWholeNumber(value))
    return false;
  g_kTimeoutDefault = BaseStringUtil::UIntFrom(value);
  return true;
}();
