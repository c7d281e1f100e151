#include "support/TempDir.h"

#include <stdlib.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <new>
#include <stdexcept>

namespace support {

namespace fs = std::filesystem;

TempDir::TempDir() {
  std::string pattern = (fs::temp_directory_path() / "xmla-test-XXXXXX").string();
  if (!mkdtemp(pattern.data())) throw std::runtime_error("no temporary directory: " + pattern);
  m_path = pattern;
}

TempDir::~TempDir() {
  // A test may make one allocation fail: then try again. If every allocation fails, the folder
  // stays.
  for (int i = 0; i < 2; ++i) {
    try {
      std::error_code ignored;
      fs::remove_all(m_path, ignored);
      return;
    } catch (const std::bad_alloc&) {
    }
  }
}

std::vector<fs::path> TempDir::Files() const {
  std::vector<fs::path> files;
  for (const auto& entry : fs::recursive_directory_iterator(m_path))
    if (entry.is_regular_file()) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  return files;
}

std::string ReadFile(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + file.string());
  std::string text;
  char block[65536];
  while (in.read(block, sizeof block) || in.gcount() > 0)
    text.append(block, static_cast<std::size_t>(in.gcount()));
  if (in.bad()) throw std::runtime_error("cannot read " + file.string());
  return text;
}

}  // namespace support
