#pragma once

#include <string_view>

// Options that users expect to take a secret. The tool has none of them, because other users can
// read command lines.

/// What to use instead of such an option, or of one that only the server file has. Empty for any
/// other name. Recognizes misspelt names.
std::string_view InsteadOfOption(std::string_view name);

/// True if the value of the option with this name must not stay in the process list. Includes
/// misspelt names.
bool MayTakeSecret(std::string_view name);
