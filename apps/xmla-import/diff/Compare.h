#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "diff/Change.h"
#include "diff/Document.h"

struct ComparedRecords {
  std::string_view kind;
  std::string_view plural;
  std::size_t count = 0;
};

/// The differences of two documents of the same kind.
struct Comparison {
  std::vector<Change> changes;  ///< in the order of the new document; removed records first
  /// Records that both documents have.
  std::vector<ComparedRecords> compared = {
      {"data source", "data sources"}, {"catalog", "catalogs"},  {"cube", "cubes"},
      {"hierarchy", "hierarchies"},    {"level", "levels"},      {"property", "properties"},
      {"measure", "measures"},         {"variable", "variables"}};
};

Comparison Compare(const Document& before, const Document& after);
