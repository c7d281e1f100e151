#pragma once

#include "Utility/Generic/String.h"

/// The unique name without "[" and "]".
String WithoutBrackets(const String& name);
/// A display name for an object without a caption, from its name without brackets: without blanks,
/// tabs, carriage returns and ".*?'", at most 128 characters.
String GeneratedName(const String& name);
