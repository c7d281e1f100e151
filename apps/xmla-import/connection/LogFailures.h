#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "Utility/Generic/String.h"

/// Collects the import logs that could not be written to their end, since the library goes on
/// without them, and adds a line for each of them to the list when it is destroyed.
class LogFailures {
 public:
  explicit LogFailures(std::vector<std::string>& warnings);
  ~LogFailures();
  LogFailures(const LogFailures&) = delete;
  LogFailures& operator=(const LogFailures&) = delete;

  /// Safe to call from several threads.
  void Add(const String& name, const String& reason);

 private:
  std::vector<std::string>& m_warnings;
  std::mutex m_mutex;
  std::vector<std::string> m_lines;  // guarded
};
