#pragma once

#include <unistd.h>

#include <fstream>

namespace support {

/// Resident memory of this process in KiB.
inline long ResidentKiB() {
  std::ifstream file("/proc/self/statm");
  long size = 0;
  long resident = 0;
  file >> size >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

}  // namespace support
