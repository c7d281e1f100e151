#pragma once

#include <optional>
#include <string>

/// The first line of a file, without its line end; `-` is standard input. Throws UsageError if the
/// file is empty or cannot be read.
std::string PasswordFromFile(const std::string& file);

/// Prompts for a password on the terminal of the process, without echo. Returns nullopt without a
/// terminal or after an interruption.
std::optional<std::string> PasswordFromTerminal(const std::string& user);
