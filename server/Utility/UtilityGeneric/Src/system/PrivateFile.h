#pragma once

#include <string>

/// Opens a file for writing that nobody else can have prepared or can exchange, and makes it (mode
/// 0600) with its missing directories (mode 0700) when it is not there. Nothing that exists is
/// changed before it was checked through its descriptor, and nothing makes the caller wait.
///
/// The directory must belong to the user or to root, and nobody else may write to it unless its
/// sticky bit keeps them from each other's files. A symbolic link on the way to it must belong to
/// the user or to root. Otherwise the directories above it are not checked: who names a path says
/// by that whom they trust. An existing file must be a regular one without other names (hard links)
/// that belongs to the user and that nobody else can write to.
///
/// Returns the descriptor. Throws ErrorMessage, one line that says what is wrong and what to do.
int OpenPrivateFile(const std::string& path);
