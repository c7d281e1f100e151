#pragma once

#include <string_view>

#include "call/Arguments.h"

/// Stores the value of an option. `name` is the option's name for the message: a key of the server
/// file has no dashes. Throws UsageError for a wrong value.
void SetValue(const CommandOption& option, std::string_view name, std::string_view value,
              Arguments& arguments);
/// True if an empty value has a meaning.
bool MayBeEmpty(const CommandOption& option);
bool IsFlag(const CommandOption& option);
bool IsNumber(const CommandOption& option);
