#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

/// Runs a program and discards its output. A name without slash is a program in the folder of this
/// one. Throws std::runtime_error if the exit status is not 0.
void RunProgram(const std::string& program, const std::vector<std::string>& arguments);

/// Runs a program likewise and returns its peak memory in bytes, sampled every millisecond. The
/// rusage of an ended child would include the memory inherited from this process.
double PeakMemoryOf(const std::string& program, const std::vector<std::string>& arguments);

/// Runs a program likewise and returns what it wrote to standard error.
std::string ErrorOutputOf(const std::string& program, const std::vector<std::string>& arguments);

/// A program that runs during the object's life. SIGTERM ends it.
class BackgroundProgram {
 public:
  /// Returns when the program has written three lines to standard output.
  BackgroundProgram(const std::string& program, const std::vector<std::string>& arguments);
  ~BackgroundProgram();
  BackgroundProgram(const BackgroundProgram&) = delete;
  BackgroundProgram& operator=(const BackgroundProgram&) = delete;

  const std::vector<std::string>& Lines() const { return m_lines; }

 private:
  pid_t m_process = 0;
  std::vector<std::string> m_lines;
};
