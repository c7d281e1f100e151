#pragma once

#include <optional>
#include <string>
#include <vector>

/// Runs the password-command of a server and returns the first line of its output. `name` is the
/// server's, for messages. Returns nullopt after an interruption. Throws UsageError.
std::optional<std::string> PasswordFromCommand(const std::vector<std::string>& words,
                                               const std::string& server);
