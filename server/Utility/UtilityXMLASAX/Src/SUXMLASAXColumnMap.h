#pragma once

#include <cstddef>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/String.h"

/// One line of a row object's column map: the rowset's column and what its value does to the row.
template <class Row>
struct Column {
  String::View name;
  void (*set)(Row& row, const String& value);
};

/// What the first line whose name equals `column` ignoring case does; null when there is none. An
/// unknown column is no error: providers add columns of their own.
template <class Row, std::size_t count>
auto FindSetter(const Column<Row> (&map)[count], const String& column) -> decltype(map[0].set) {
  for (const Column<Row>& line : map)
    if (BaseStringUtil::IsCaseInsensitiveMatch(column, line.name)) return line.set;
  return nullptr;
}

/// Gives the value to what FindColumn names.
template <class Row>
void SetColumn(Row& row, const String& column, const String& value) {
  if (const auto set = row.FindColumn(column)) set(row, value);
}

/// Stores the text as it is.
template <class Row, String Row::*field>
void SetText(Row& row, const String& value) {
  row.*field = value;
}
