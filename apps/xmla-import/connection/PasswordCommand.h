#pragma once

#include <string>
#include <vector>

/// Runs the password-command of a server and returns the first line of its output. `name` is the
/// server's, for messages. Throws UsageError, also after an interruption.
std::string PasswordFromCommand(const std::vector<std::string>& words, const std::string& server);
