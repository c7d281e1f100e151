#pragma once

#include "Utility/Generic/String.h"

/// What the tool does when the library meets a logic error (ImportSettings::onLogicError). Two
/// levels with the same number in a hierarchy, which a provider can bring about, become an
/// ErrorMessage that names the hierarchy; any other one ends the process.
void OnLogicError(const String& file, int line, const String& message);
