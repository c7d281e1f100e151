#pragma once

#include <algorithm>
#include <string>

#include "support/Sanitized.h"

namespace support {

/// True when the tests run in their long form (`./check --long`, or XMLA_LONG_TESTS=1 in the
/// environment): everything is tried, where the quick form tries a sample of it.
bool IsLong();

/// How often to try something: `quick` times, half as often in a build with a sanitizer, or `whole`
/// times in the long form.
template <typename Number>
Number Effort(Number quick, Number whole) {
  if (IsLong()) return whole;
  return kIsSanitized ? (quick + 1) / 2 : quick;
}

/// The step from one to the next so that about `quick` of `total` are tried, or all of them in the
/// long form.
template <typename Number>
Number Stride(Number total, Number quick) {
  return std::max<Number>(1, total / std::max<Number>(1, Effort(quick, total)));
}

/// Prints what was tried and what came of it, as one line "figure: WHAT: OUTCOME" on standard
/// output: `./check` gathers these lines, and docs/reliability.md quotes them. A test that has
/// failed prints none.
void PrintFigure(const std::string& what, const std::string& outcome);

}  // namespace support
