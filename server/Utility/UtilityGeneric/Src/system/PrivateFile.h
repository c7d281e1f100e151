#pragma once

#include <string>

/// Opens a file for writing that no other user can have prepared or can replace. Creates a missing
/// file with mode 0600, and missing directories with mode 0700. Checks existing files through their
/// descriptor before it changes them. Never waits.
///
/// The directory must belong to the user or to root, and must not be writable by others unless it
/// is sticky. A symbolic link in its path must belong to the user or to root. Its parent
/// directories are not checked further: use a path that only trusted users can rename. An existing
/// file must be a regular file that belongs to the user, has one hard link, and is not writable by
/// others.
///
/// Returns the descriptor. Throws ErrorMessage with one line that says what is wrong and what to
/// do.
int OpenPrivateFile(const std::string& path);
