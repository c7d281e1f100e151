#include "connection/LogicErrors.h"

#include <algorithm>

#include "Utility/Generic/ErrorMessage.h"
#include "base/Text.h"
#include "connection/Operation.h"

namespace {

// File and line of the logic error for two levels with the same number.
constexpr const wchar_t* kLevelNumbersFile = L"SUXMLASAXAnaTamImport";
constexpr int kLevelNumbersLine = 506;

/// Extracts the quoted hierarchy name from a request's subject.
String HierarchyOf(const String& subject) {
  constexpr String::View kBefore = L", hierarchy ";
  constexpr String::View kFollowing[] = {L", level \"", L", member \""};
  const String::View text = subject.view();
  const std::size_t at = text.find(kBefore);
  if (at == text.npos) return L"unknown";
  String::View name = text.substr(at + kBefore.size());
  for (const String::View behind : kFollowing) name = name.substr(0, name.rfind(behind));
  return Shortened(String(name));
}

}  // namespace

void OnLogicError(const String& file, int line, const String&) {
  if (!(file == kLevelNumbersFile) || line != kLevelNumbersLine) return;
  Operation* const operation = Operation::Current();
  const String hierarchy = HierarchyOf(operation ? operation->Subject() : String());
  // No request failed.
  if (operation) operation->ClearSubject();
  throw ErrorMessage(L"the provider reports two levels with the same number in the hierarchy " +
                     hierarchy + L"; the cube is incomplete");
}
