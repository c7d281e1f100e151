#pragma once

#include "Utility/Generic/String.h"

/// The unique name without "[" and "]".
String WithoutBrackets(const String& name);
/// A display name for an object without a caption: its name without spaces, tabs, carriage returns
/// and ".*?'", truncated to 128 characters. `name` must not contain brackets.
String GeneratedName(const String& name);
