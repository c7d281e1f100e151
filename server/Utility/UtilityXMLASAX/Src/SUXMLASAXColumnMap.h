#pragma once

#include <cstddef>

#include "Utility/Generic/BaseStringUtil.h"
#include "Utility/Generic/String.h"

/// One line of a row object's column map: the rowset's column and what its value does to the row.
template <class Row>
struct Column {
  const wchar_t* name;
  void (*take)(Row& row, const String& value);
};

/// Gives the value to the first line whose name equals `column` ignoring case. An unknown column is
/// no error: providers add columns of their own.
template <class Row, std::size_t count>
void TakeColumn(const Column<Row> (&map)[count], Row& row, const String& column,
                const String& value) {
  for (const Column<Row>& line : map) {
    if (BaseStringUtil::IsCaseInsensitiveMatch(column, line.name)) {
      line.take(row, value);
      return;
    }
  }
}

/// Stores the text as it is.
template <class Row, String Row::*field>
void TakeText(Row& row, const String& value) {
  row.*field = value;
}
