#include "connection/LogicErrors.h"

#include <algorithm>

#include "Utility/Generic/ErrorMessage.h"
#include "base/Text.h"
#include "connection/Operation.h"

namespace {

// File and line of the logic error for two levels with the same number.
constexpr const wchar_t* kLevelNumbersFile = L"SUXMLASAXAnaTamImport";
constexpr int kLevelNumbersLine = 506;

}  // namespace

void OnLogicError(const String& file, int line, const String&) {
  if (!(file == kLevelNumbersFile) || line != kLevelNumbersLine) return;
  Operation* const operation = Operation::Current();
  const String hierarchy = HierarchyOfSubject(operation ? operation->Subject() : String());
  // No request failed.
  if (operation) operation->ClearSubject();
  throw ErrorMessage(L"the provider reports two levels with the same number in the hierarchy " +
                     hierarchy + L"; the cube is incomplete");
}
