#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "Utility/Generic/String.h"

/// Collects the import logs that are incomplete because of a write error or a limit. The destructor
/// adds one warning for each to the list.
class LogFailures {
 public:
  explicit LogFailures(std::vector<std::string>& warnings);
  ~LogFailures();
  LogFailures(const LogFailures&) = delete;
  LogFailures& operator=(const LogFailures&) = delete;

  /// Thread-safe.
  void Add(const String& name, const String& reason);

 private:
  std::vector<std::string>& m_warnings;
  std::mutex m_mutex;
  std::vector<std::string> m_lines;  // guarded by m_mutex
};
