#pragma once

#include <string>
#include <vector>

/// Runs a program to its end, its output thrown away. A name without slash is a program beside this
/// one. Throws std::runtime_error when it does not end with status 0.
void RunProgram(const std::string& program, const std::vector<std::string>& arguments);

/// The same; the program's peak memory in bytes, looked at every millisecond. What the system
/// counts at the end would have this process's own memory in it.
double PeakMemoryOf(const std::string& program, const std::vector<std::string>& arguments);
