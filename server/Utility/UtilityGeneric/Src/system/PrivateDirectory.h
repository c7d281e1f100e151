#pragma once

#include "Utility/Generic/String.h"

/// Makes a directory for this user alone in a place where anybody may make one, or takes the one
/// that is there when it is this user's and no link; others then lose their rights to it. Throws
/// ErrorMessage when somebody else prepared it. A directory that cannot be made is no error yet:
/// whoever opens a file there is told.
void CreatePrivateDirectory(const String& directory);
