#pragma once

#include <algorithm>
#include <string>

#include "support/Sanitized.h"

namespace support {

/// True when the tests run in their long form (`./check --long`, or XMLA_LONG_TESTS=1 in the
/// environment): everything is tried, where the quick form tries a sample of it.
bool IsLong();

/// How often to try something: `quick` times, or `whole` times in the long form. A build with a
/// sanitizer is several times slower: it tries half as often, and in the long form ten times as
/// often as the quick one.
template <typename Number>
Number Effort(Number quick, Number whole) {
  if (IsLong()) return kIsSanitized ? std::min<Number>(whole, 10 * quick) : whole;
  return kIsSanitized ? (quick + 1) / 2 : quick;
}

/// The step from one to the next so that about Effort(quick, total) of `total` are tried.
template <typename Number>
Number Stride(Number total, Number quick) {
  return std::max<Number>(1, total / std::max<Number>(1, Effort(quick, total)));
}

/// Prints what was tried and what came of it, as one line "figure: WHAT: OUTCOME" on standard
/// output: `./check` gathers these lines, and docs/reliability.md quotes them. A test that has
/// failed prints none.
void PrintFigure(const std::string& what, const std::string& outcome);

}  // namespace support
