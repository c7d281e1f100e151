#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "call/Help.h"

/// The shells that have completion.
std::vector<std::string> CompletionShells();
/// A script that completes calls of the tool in this shell: commands, options, and values of
/// options. Made from the tables that also make --help. The script calls the tool only for the
/// names of servers.
std::string CompletionScript(const HelpSource& source, std::string_view shell);
