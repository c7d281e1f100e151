#pragma once

#include <unistd.h>

#include <fstream>
#include <string>
#include <string_view>

namespace support {

/// Resident memory of this process in KiB.
inline long ResidentKiB() {
  std::ifstream file("/proc/self/statm");
  long size = 0;
  long resident = 0;
  file >> size >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

/// The largest resident memory so far of another process in KiB; 0 if it has ended.
inline long PeakResidentKiB(pid_t process) {
  constexpr std::string_view kPeak = "VmHWM:";
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(status, line);)
    if (line.starts_with(kPeak)) return std::stol(line.substr(kPeak.size()));
  return 0;
}

}  // namespace support
