#pragma once

#include <string>
#include <vector>

/// Runs a program and discards its output. A name without slash is a program in the folder of this
/// one. Throws std::runtime_error if the exit status is not 0.
void RunProgram(const std::string& program, const std::vector<std::string>& arguments);

/// Runs a program likewise and returns its peak memory in bytes, sampled every millisecond. The
/// rusage of an ended child would include the memory inherited from this process.
double PeakMemoryOf(const std::string& program, const std::vector<std::string>& arguments);
