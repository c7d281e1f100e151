#pragma once

#include <string>
#include <vector>

#include "Utility/Generic/AFile.h"

/// Notices import logs that could not be written to their end, since the library goes on without,
/// and adds a line for each of them to the list when it is destroyed. One object at a time.
class LogFailures {
 public:
  explicit LogFailures(std::vector<std::string>& warnings);
  ~LogFailures();
  LogFailures(const LogFailures&) = delete;
  LogFailures& operator=(const LogFailures&) = delete;

 private:
  std::vector<std::string>& m_warnings;
};
