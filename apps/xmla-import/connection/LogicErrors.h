#pragma once

#include "Utility/Generic/String.h"

/// Handler for logic errors of the library (ImportSettings::onLogicError). A provider can cause one
/// of them: two levels with the same number in a hierarchy. For it, throws an ErrorMessage that
/// names the hierarchy. Any other logic error ends the process.
void OnLogicError(const String& file, int line, const String& message);
