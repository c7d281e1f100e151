#pragma once

#include "Import/XmlACubeVariable.h"

/// The column map of SAP_VARIABLES.
class XmlACubeVariableUtility {
 public:
  /// Puts one column into `variable`. Names are matched ignoring case, unknown ones ignored, a
  /// repeated column keeps the last value; codes are not checked for range.
  static void AppendValueName(XmlACubeVariable& variable, const String& column,
                              const String& value);
  /// The operation that takes this column's values, for many rows; null for an unknown column.
  using Setter = void (*)(XmlACubeVariable& variable, const String& value);
  static Setter FindColumn(const String& column);
};
