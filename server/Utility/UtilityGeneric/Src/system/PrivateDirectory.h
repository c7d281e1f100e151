#pragma once

#include "Utility/Generic/String.h"

/// Creates a directory with mode 0700 inside a directory that everybody can write to. An existing
/// directory is used if it belongs to this user and is not a symbolic link; permissions of others
/// are removed. Throws ErrorMessage if another user has prepared it. If the directory cannot be
/// created, the error is reported later, when a file is opened in it.
void CreatePrivateDirectory(const String& directory);
