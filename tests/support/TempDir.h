#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace support {

/// A new temporary directory, removed with its contents by the destructor.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::filesystem::path& Path() const { return m_path; }
  /// Names of all files below, sorted.
  std::vector<std::filesystem::path> Files() const;

 private:
  std::filesystem::path m_path;
};

/// The bytes of a file. Throws std::runtime_error if it cannot be read.
std::string ReadFile(const std::filesystem::path& file);

}  // namespace support
