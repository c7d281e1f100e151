#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Utility/Generic/ServerInfo.h"

/// With this name, the kind is detected from the provider's identity.
inline constexpr std::string_view kAutoTarget = "auto";

/// The kind with this --target name, or nullopt.
std::optional<ServerInfo::TargetType> TargetFromName(std::string_view name);
/// The --target name of a kind, or its number if it has none.
std::string TargetName(ServerInfo::TargetType target);
/// The name, with an explanation if it does not explain itself.
std::string ExplainedTarget(std::string_view name);
/// All --target names.
std::vector<std::string> TargetNameList();
/// All --target names with their explanations, separated by commas.
std::string TargetNames();
