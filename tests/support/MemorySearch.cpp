#include "support/MemorySearch.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <stdexcept>

namespace support {
namespace {

/// The end of the password, which is searched.
constexpr int kEnd = 8;

/// Buffer for the memory read; must not be found itself.
char g_block[1 << 16];

}  // namespace

String HiddenPassword::Between(const wchar_t* before, const wchar_t* behind) const {
  String text;
  text.reserve(200);
  text += before;
  for (int i = 0; i < kLength; ++i) text.push_back(static_cast<wchar_t>(Character(i)));
  text += behind;
  return text;
}

int HiddenPassword::CopiesBetween(std::size_t begin, std::size_t end, std::size_t width,
                                  int memory) const {
  const std::size_t length = kEnd * width;
  int copies = 0;
  for (std::size_t from = begin; from < end; from += sizeof g_block - length) {
    const std::size_t most = std::min(sizeof g_block, end - from);
    const ssize_t got = pread(memory, g_block, most, static_cast<off_t>(from));
    const std::size_t size = got > 0 ? static_cast<std::size_t>(got) : 0;
    // A copy at the very end is found at the start of the next block.
    const std::size_t last = size == sizeof g_block ? size - 1 : size;
    for (std::size_t at = 0; at + length <= last; ++at) {
      const void* const first =
          std::memchr(g_block + at, Character(kLength - kEnd), last - length + 1 - at);
      if (!first) break;
      at = static_cast<std::size_t>(static_cast<const char*>(first) - g_block);
      int i = 0;
      while (i < kEnd &&
             g_block[at + static_cast<std::size_t>(i) * width] == Character(kLength - kEnd + i))
        ++i;
      if (i == kEnd) ++copies;
    }
  }
  return copies;
}

int HiddenPassword::Copies(std::size_t width) const {
  std::FILE* const maps = std::fopen("/proc/self/maps", "re");
  const int memory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
  if (!maps || memory < 0) throw std::runtime_error("the process's memory cannot be read");
  const auto own = reinterpret_cast<std::uintptr_t>(g_block);
  char line[512];
  int copies = 0;
  while (std::fgets(line, sizeof line, maps)) {
    unsigned long begin = 0;
    unsigned long end = 0;
    if (std::sscanf(line, "%lx-%lx", &begin, &end) != 2 || !std::strstr(line, " rw")) continue;
    if (begin <= own && own < end) {
      copies += CopiesBetween(begin, own, width, memory);
      begin = own + sizeof g_block;
    }
    copies += CopiesBetween(begin, end, width, memory);
  }
  std::fill(std::begin(g_block), std::end(g_block), '\0');
  close(memory);
  std::fclose(maps);
  return copies;
}

}  // namespace support
