#pragma once

#include <optional>
#include <string>

/// The first line of a file, without its line end; `-` is standard input. Throws UsageError when
/// the file cannot be read or holds nothing.
std::string PasswordFromFile(const std::string& file);

/// Asks for a password on the terminal of the process without echoing it; nothing when the process
/// has no terminal, or when asking was interrupted.
std::optional<std::string> PasswordFromTerminal(const std::string& user);
