#pragma once

#include <cstdlib>
#include <filesystem>

namespace support {

/// The folder of replies recorded from real servers, from the environment variable
/// XMLA_RECORDED_REPLIES. The replies are not part of the project; empty when the variable is not
/// set.
inline std::filesystem::path RecordedReplies() {
  const char* folder = std::getenv("XMLA_RECORDED_REPLIES");
  return folder ? folder : "";
}

}  // namespace support
