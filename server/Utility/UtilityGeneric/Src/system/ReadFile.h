#pragma once

#include "Utility/Generic/String.h"

/// Reads a whole file. On failure, returns false and sets `error` to the file and the reason.
bool ReadFile(const String& name, NarrowString& bytes, String& error);
