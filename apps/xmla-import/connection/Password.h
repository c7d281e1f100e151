#pragma once

#include <optional>
#include <string>

/// The first line of a file, without its line end; `-` is standard input. `what` names the secret
/// for messages, such as "the password". Throws UsageError if the file is empty or cannot be read.
std::string SecretFromFile(const std::string& what, const std::string& file);

/// Prompts for a secret on the terminal of the process, without echo. Returns nullopt without a
/// terminal or after an interruption.
std::optional<std::string> SecretFromTerminal(const std::string& prompt);

/// The first line of a text, by the rules for a file.
std::string FirstLine(const std::string& text);
