#pragma once

#include <optional>
#include <string>

#include "call/UsageError.h"

/// The first line of a file, without its line end; `-` is standard input. `what` names the secret
/// for messages, such as "the password", and `setting` the option or key. Throws UsageError if the
/// line is empty or cannot be read, and after an interruption.
std::string SecretFromFile(const std::string& what, const std::string& file,
                           const std::string& setting);

/// Prompts for a secret on the terminal of the process, without echo. `noun` names it for messages,
/// such as "password". Returns nullopt without a terminal. Throws UsageError if nothing is entered,
/// and after an interruption.
std::optional<std::string> SecretFromTerminal(const std::string& noun, const std::string& prompt);

/// The error of an interruption before the service got a request.
UsageError InterruptedEarly();

/// The first line of a text, by the rules for a file.
std::string FirstLine(const std::string& text);
