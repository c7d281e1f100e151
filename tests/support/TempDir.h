#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace support {

/// A directory of its own, removed with all it holds at the end.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::filesystem::path& Path() const { return m_path; }
  /// The files below, sorted by name.
  std::vector<std::filesystem::path> Files() const;

 private:
  std::filesystem::path m_path;
};

/// The bytes of a file; throws std::runtime_error when it cannot be read.
std::string ReadFile(const std::filesystem::path& file);

}  // namespace support
