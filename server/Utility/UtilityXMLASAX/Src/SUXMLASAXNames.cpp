#include "SUXMLASAXNames.h"

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/HostConstants.h"

namespace {

constexpr std::size_t kMaxGeneratedName = 128;  // characters

}  // namespace

String WithoutBrackets(String name) {
  for (const wchar_t* const bracket : {L"[", L"]"})
    BaseStringUtil::ReplacePatternInString(name, bracket, L"");
  return name;
}

String GeneratedName(String name) {
  for (const wchar_t* const unwanted : {s_ksBlank, L"\t", L"\r", L".", L"*", L"?", L"'"})
    BaseStringUtil::ReplacePatternInString(name, unwanted, L"");
  return name.substr(0, kMaxGeneratedName);
}
