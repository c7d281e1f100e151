#pragma once

#include "Import/XmlACubeVariable.h"

/// The column map of SAP_VARIABLES.
class XmlACubeVariableUtility {
 public:
  /// Sets one column of `variable`. Compares names ignoring case, ignores unknown ones, and does
  /// not check the range of codes.
  static void AppendValueName(XmlACubeVariable& variable, const String& column,
                              const String& value);
  /// The setter of a column, for use with many rows; null for an unknown column.
  using Setter = void (*)(XmlACubeVariable& variable, const String& value);
  static Setter FindColumn(const String& column);
};
