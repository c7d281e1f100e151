#pragma once

#include <cstddef>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/String.h"

/// A line of a column map: the column of a rowset and the setter of the row object.
template <class Row>
struct Column {
  String::View name;
  void (*set)(Row& row, const String& value);
};

/// The setter of the first line whose name equals `column` ignoring case; null if there is none.
/// Unknown columns are ignored, because providers add their own.
template <class Row, std::size_t count>
auto FindSetter(const Column<Row> (&map)[count], const String& column) -> decltype(map[0].set) {
  for (const Column<Row>& line : map)
    if (BaseStringUtil::IsCaseInsensitiveMatch(column, line.name)) return line.set;
  return nullptr;
}

/// Sets the column of a row object. Unknown columns are ignored.
template <class Row>
void SetColumn(Row& row, const String& column, const String& value) {
  if (const auto set = row.FindColumn(column)) set(row, value);
}

/// Sets a text field.
template <class Row, String Row::*field>
void SetText(Row& row, const String& value) {
  row.*field = value;
}
