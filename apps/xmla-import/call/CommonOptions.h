#pragma once

#include <span>

#include "call/CommandForm.h"

/// The options of every command.
std::span<const CommandOption> CommonOptions();

/// True if the option's name, without the dashes, is also a key of the server file.
bool IsServerKey(const CommandOption& option);
