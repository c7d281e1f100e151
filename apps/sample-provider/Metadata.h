#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Rowsets.h"

namespace sample {

struct Cell {
  const Column* column = nullptr;
  std::string text;
};

// Cells in the rowset's column order; a column that the row does not have is absent.
struct Row {
  std::vector<Cell> cells;
  const std::string* Find(std::string_view column) const;
};

// Requests for one rowset that name all of these values are answered with a fault.
struct PlannedFault {
  std::string rowset;
  std::map<std::string, std::string> values;
  std::string text;
};

using RowsByRowset = std::map<std::string, std::vector<Row>, std::less<>>;

struct DataSource {
  Row row;            // of DISCOVER_DATASOURCES
  RowsByRowset rows;  // everything below the data source
  std::vector<PlannedFault> faults;
};

// All that one kind of server serves. Read from its data file:
//
//   {"defaults": {ROWSET: {COLUMN: VALUE...}...}, "shared": {NAME: DIMENSION...},
//    "properties": [ROW...], "sources": [ROW with "catalogs": [ROW with "cubes": [ROW with
//      "measures", "variables" and "dimensions": [ROW with "hierarchies": [ROW with "levels":
//        [ROW with "properties" and "members"]]]]]]}
//
// A ROW is an object of columns, or just a text, its name. A number and a boolean stand for their
// texts, an array for a repeated column, null for an absent column. A column that a row does not
// mention comes from the defaults, where {COLUMN} stands for a column of the row or of those
// around it (inside brackets its closing brackets are doubled) and {#} for the row's position,
// counted from 0; else a name of what is around it is inherited. A dimension may say
// {"use": NAME}: the shared one, with its own columns over it. "faults": {ROWSET: TEXT} makes
// requests for that rowset fail that name the row.
struct Metadata {
  std::vector<Row> properties;  // of DISCOVER_PROPERTIES
  std::vector<DataSource> sources;
};

// Throws std::runtime_error, with the place, when the text does not follow the above.
Metadata LoadMetadata(std::string_view json, Kind kind);

// The built-in metadata, read at the first call.
const Metadata& MetadataOf(Kind kind);

}  // namespace sample
