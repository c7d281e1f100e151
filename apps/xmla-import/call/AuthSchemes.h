#pragma once

#include <string>
#include <string_view>
#include <vector>

/// The set of HTTPAuthScheme in a list of names such as "ntlm,basic". `name` is the name of the
/// option for the message. Throws UsageError for an unknown name and for an empty one.
unsigned int AuthSchemes(std::string_view name, std::string_view list);
std::vector<std::string> AuthSchemeNames();
