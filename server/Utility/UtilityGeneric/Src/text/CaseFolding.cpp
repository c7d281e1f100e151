#include "text/CaseFolding.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace CaseFolding {
namespace {

/// Characters first, first + step, ..., last. Adding `distance` to one of them folds it.
struct Range {
  std::uint32_t first;
  std::uint32_t last;
  std::uint32_t step;
  std::int32_t distance;
};

constexpr Range kRanges[] = {
#include "text/CaseFoldingTable.inc"
};

}  // namespace

wchar_t FoldBeyondASCII(wchar_t character) noexcept {
  const auto code = static_cast<std::uint32_t>(character);
  const Range* const range =
      std::lower_bound(std::begin(kRanges), std::end(kRanges), code,
                       [](const Range& entry, std::uint32_t key) { return entry.last < key; });
  if (range == std::end(kRanges) || code < range->first || (code - range->first) % range->step != 0)
    return character;
  return static_cast<wchar_t>(static_cast<std::int32_t>(code) + range->distance);
}

}  // namespace CaseFolding
