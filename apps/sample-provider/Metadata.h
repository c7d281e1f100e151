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

/// The cells in the rowset's column order. Absent columns have no cell.
struct Row {
  std::vector<Cell> cells;
  const std::string* Find(std::string_view column) const;
};

/// Requests for this rowset whose restrictions contain all these values are answered with a fault.
struct PlannedFault {
  std::string rowset;
  std::map<std::string, std::string> values;
  std::string text;
};

using RowsByRowset = std::map<std::string, std::vector<Row>, std::less<>>;

struct DataSource {
  Row row;            ///< of DISCOVER_DATASOURCES
  RowsByRowset rows;  ///< all rows of this data source
  std::vector<PlannedFault> faults;
};

/// The metadata of one kind of server. Format of the data file:
///
///   {"defaults": {ROWSET: {COLUMN: VALUE...}...}, "shared": {NAME: DIMENSION...},
///    "properties": [ROW...], "sources": [ROW with "catalogs": [ROW with "cubes": [ROW with
///      "measures", "variables" and "dimensions": [ROW with "hierarchies": [ROW with "levels":
///        [ROW with "properties" and "members"]]]]]]}
///
/// A ROW is an object of columns, or a string, which is the row's name. Numbers and booleans are
/// converted to text. An array is a repeated column, null an absent one. Columns that a row does
/// not have come from the defaults. In a default, {COLUMN} stands for that column of the row or of
/// an enclosing row, and {#} for the row's index from 0. If {COLUMN} is in brackets, its closing
/// brackets are doubled. Without a default, names are inherited from enclosing rows. A dimension
/// with {"use": NAME} is a copy of the shared one; its own columns override. "faults": {ROWSET:
/// TEXT} makes requests for that rowset fail if they name this row.
struct Metadata {
  std::vector<Row> properties;  ///< of DISCOVER_PROPERTIES
  std::vector<DataSource> sources;
};

/// Throws std::runtime_error with the position if the text does not have this format.
Metadata LoadMetadata(std::string_view json, Kind kind);

/// The embedded metadata, parsed on the first call.
const Metadata& MetadataOf(Kind kind);

/// The same with one more cube in the first catalog, kWideCube: 25 dimensions with 7 hierarchies of
/// 3 levels each, and 2 properties for each level. An import sends about 900 requests for it.
Metadata MetadataWithWideCube(Kind kind);

}  // namespace sample
