#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace tool {

/// All documents of the project.
std::vector<std::filesystem::path> Documents();

/// The blocks of code in a document that are marked with the language.
std::vector<std::string> CodeBlocks(const std::filesystem::path& document,
                                    const std::string& language);

}  // namespace tool
