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
  /// Numbers of records that both documents have.
  std::vector<std::pair<std::string, std::size_t>> compared = {
      {"data sources", 0}, {"catalogs", 0},   {"cubes", 0},    {"hierarchies", 0},
      {"levels", 0},       {"properties", 0}, {"measures", 0}, {"variables", 0}};
};

Comparison Compare(const Document& before, const Document& after);
