#include "tool/ProjectDocuments.h"

#include <sstream>

#include "support/TempDir.h"

namespace tool {

namespace fs = std::filesystem;

std::vector<fs::path> Documents() {
  std::vector<fs::path> documents;
  for (const char* const folder : {".", "docs", "tests", "tests/real"})
    for (const auto& entry : fs::directory_iterator(fs::path(PROJECT_FOLDER) / folder))
      if (entry.path().extension() == ".md") documents.push_back(entry.path().lexically_normal());
  return documents;
}

std::vector<std::string> CodeBlocks(const fs::path& document, const std::string& language) {
  std::vector<std::string> blocks;
  std::istringstream lines(support::ReadFile(document));
  bool isInside = false;
  for (std::string line; std::getline(lines, line);) {
    if (line == "```" + language) {
      blocks.emplace_back();
      isInside = true;
    } else if (line.starts_with("```")) {
      isInside = false;
    } else if (isInside) {
      blocks.back() += line + '\n';
    }
  }
  return blocks;
}

}  // namespace tool
