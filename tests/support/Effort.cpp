#include "support/Effort.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

namespace support {

bool IsLong() {
  static const bool isLong = std::getenv("XMLA_LONG_TESTS") != nullptr;
  return isLong;
}

void PrintFigure(const std::string& what, const std::string& outcome) {
  if (testing::Test::HasFailure()) return;
  std::printf("figure: %s: %s\n", what.c_str(), outcome.c_str());
  std::fflush(stdout);
}

}  // namespace support
