#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "diff/Change.h"
#include "diff/Document.h"

/// The differences of two documents of the same kind.
struct Comparison {
  std::vector<Change> changes;  ///< in the order of the new document; removed records first
  /// Numbers of records that both documents have, with their names, such as {"cubes", 12}.
  std::vector<std::pair<std::string, std::size_t>> compared;
};

Comparison Compare(const Document& before, const Document& after);
