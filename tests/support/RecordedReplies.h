#pragma once

#include <cstdlib>
#include <filesystem>

namespace support {

/// The folder with replies recorded from real servers, named by the environment variable
/// XMLA_RECORDED_REPLIES. They are not part of the project. Empty if the variable is not set.
inline std::filesystem::path RecordedReplies() {
  const char* folder = std::getenv("XMLA_RECORDED_REPLIES");
  return folder ? folder : "";
}

}  // namespace support
