#pragma once

#include <algorithm>
#include <iterator>
#include <ranges>
#include <string>
#include <vector>

#include "support/Sanitized.h"

namespace support {

/// True in the long form of the tests (`./check --long`, or XMLA_LONG_TESTS=1 in the environment).
/// The long form tries everything; the quick form tries a sample.
bool IsLong();

/// Number of repetitions: `quick`, or `whole` in the long form. A build with a sanitizer is several
/// times slower: it does a quarter of `quick` (at least 6, and half of 12 or less), or ten times
/// `quick` in the long form.
template <typename Number>
Number Effort(Number quick, Number whole) {
  if (IsLong()) return kIsSanitized ? std::min<Number>(whole, 10 * quick) : whole;
  if (!kIsSanitized) return quick;
  return quick > 12 ? std::max<Number>(6, (quick + 3) / 4) : (quick + 1) / 2;
}

/// The step for which about Effort(quick, total) of `total` items are tried.
template <typename Number>
Number Stride(Number total, Number quick) {
  return std::max<Number>(1, total / std::max<Number>(1, Effort(quick, total)));
}

/// The items of a long table of cases: all, or every fourth or so in the quick form with
/// sanitizers.
template <typename Items>
auto Sampled(const Items& items) {
  std::vector<std::ranges::range_value_t<const Items>> sample;
  const std::size_t total = std::ranges::size(items);
  for (std::size_t i = 0; i < total; i += Stride(total, total))
    sample.push_back(*std::next(std::ranges::begin(items), static_cast<std::ptrdiff_t>(i)));
  return sample;
}

/// Prints what was tried and its outcome on standard output, as one line "figure: WHAT: OUTCOME".
/// `./check` collects these lines, and docs/reliability.md quotes them. Prints nothing if the test
/// has failed.
void PrintFigure(const std::string& what, const std::string& outcome);

}  // namespace support
