#pragma once

#include <string>
#include <vector>

/// Runs a password-command and returns the first line of its output. `what` names it for messages.
/// Throws UsageError, also after an interruption.
std::string PasswordFromCommand(const std::vector<std::string>& words, const std::string& what);
