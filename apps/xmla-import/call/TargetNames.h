#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Utility/Generic/ServerInfo.h"

/// The name of the choice that lets the provider itself say its kind.
inline constexpr std::string_view kAutoTarget = "auto";

/// The kind with a name of the --target option, or nothing.
std::optional<ServerInfo::TargetType> TargetFromName(std::string_view name);
/// The name of a kind; the plain number when it has none.
std::string TargetName(ServerInfo::TargetType target);
/// All names of the --target option, separated by commas.
std::string TargetNames();
