#pragma once

#include <string>

namespace support {

/// True when the tests run in their long form (`./check --long`, or XMLA_LONG_TESTS=1 in the
/// environment): everything is tried, where the quick form tries a sample of it.
bool IsLong();

/// How often to try something: `quick` times, or `whole` times in the long form.
template <typename Number>
Number Effort(Number quick, Number whole) {
  return IsLong() ? whole : quick;
}

/// Prints what was tried and what came of it, as one line "figure: WHAT: OUTCOME" on standard
/// output: `./check` gathers these lines, and docs/reliability.md quotes them.
void PrintFigure(const std::string& what, const std::string& outcome);

}  // namespace support
