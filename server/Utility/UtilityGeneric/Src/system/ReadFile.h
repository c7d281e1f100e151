#pragma once

#include <cstddef>

#include "Utility/Generic/String.h"

/// Reads a whole file. On failure, returns false and sets `error` to the file and the reason.
bool ReadFile(const String& name, NarrowString& bytes, String& error);

inline constexpr std::size_t kMaxSecretFileBytes = std::size_t{1} << 20;

/// The same for a file that may contain a secret. Only `bytes`, which must be empty, gets a copy.
/// Pipes and devices, which could block, and files of more than kMaxSecretFileBytes are errors.
bool ReadSecretFile(const String& name, NarrowString& bytes, String& error);
