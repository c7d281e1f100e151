#pragma once

#include "Utility/XMLASAX/XmlACubeVariable.h"

/// The column map of SAP_VARIABLES.
class XmlACubeVariableUtility {
 public:
  /// Puts one column into `variable`. Names are matched ignoring case, unknown ones ignored, a
  /// repeated column keeps the last value; codes are not checked for range.
  static void AppendValueName(XmlACubeVariable& variable, const String& column,
                              const String& value);
};
