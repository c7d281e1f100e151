// The HTTP client leaves no copies of credentials in the process's memory but those of libcurl.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "HTTPPosting.h"
#include "support/Sanitized.h"

namespace {

constexpr int kLength = 24;

/// Each test has a password of its own: libcurl leaves the former ones behind.
int g_password = 0;

/// The password's characters, which stand nowhere in this program as a text.
char Character(int i) {
  return static_cast<char>('A' + (i * i * 7 + i * (3 + g_password) + 5) % 26);
}

/// What is read of the memory; not to be found there again.
char g_block[1 << 16];

/// Looks for the password between two addresses, each character in so many bytes.
int CopiesBetween(std::uintptr_t begin, std::uintptr_t end, std::size_t width, int memory) {
  const std::size_t length = kLength * width;
  int copies = 0;
  for (std::uintptr_t from = begin; from < end; from += sizeof g_block - length) {
    const std::size_t most = std::min(sizeof g_block, end - from);
    const ssize_t got = pread(memory, g_block, most, static_cast<off_t>(from));
    const std::size_t size = got > 0 ? static_cast<std::size_t>(got) : 0;
    // A copy at the very end is found as the first one of the next block.
    const std::size_t last = size == sizeof g_block ? size - 1 : size;
    for (std::size_t at = 0; at + length <= last; ++at) {
      std::size_t i = 0;
      while (i < kLength && g_block[at + i * width] == Character(static_cast<int>(i))) ++i;
      if (i == kLength) ++copies;
    }
  }
  return copies;
}

/// How often the password stands in the memory that the process can write.
int CopiesInMemory(std::size_t width) {
  std::FILE* const maps = std::fopen("/proc/self/maps", "r");
  const int memory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
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

/// The password between two other texts, in one buffer.
String WithPassword(const wchar_t* before, const wchar_t* behind) {
  String text;
  text.reserve(200);
  text += before;
  for (int i = 0; i < kLength; ++i) text.push_back(static_cast<wchar_t>(Character(i)));
  text += behind;
  return text;
}

TEST(HTTPSecrets, AreKeptByLibcurlAlone) {
  if (support::kIsSanitized) GTEST_SKIP() << "a sanitizer's memory is too large to search";
  ASSERT_EQ(CopiesInMemory(1), 0);
  const String password = WithPassword(L"", L"");
  ASSERT_EQ(CopiesInMemory(sizeof(wchar_t)), 1);
  {
    const HTTPClientWrapper client(L"http://127.0.0.1:1/", L"ann", password, 1, nullptr);
    EXPECT_EQ(CopiesInMemory(1), 1);
    EXPECT_EQ(CopiesInMemory(sizeof(wchar_t)), 1) << "the host's own is one";
  }
  EXPECT_EQ(password.size(), std::size_t{kLength});
  EXPECT_EQ(password[0], static_cast<wchar_t>(Character(0))) << "the host's own stays";
}

TEST(HTTPSecrets, OfTheURLAreKeptByLibcurlAlone) {
  if (support::kIsSanitized) GTEST_SKIP() << "a sanitizer's memory is too large to search";
  g_password = 1;
  const String url = WithPassword(L"http://ann:", L"@127.0.0.1:1/");
  const HTTPClientWrapper client(url, L"", L"", 1, nullptr);
  EXPECT_EQ(CopiesInMemory(1), 1);
  EXPECT_EQ(CopiesInMemory(sizeof(wchar_t)), 1) << "the host's own is one";
}

TEST(HTTPSecrets, OfTheProxyAreKeptByLibcurlAlone) {
  if (support::kIsSanitized) GTEST_SKIP() << "a sanitizer's memory is too large to search";
  g_password = 2;
  HTTPClientOptions options;
  options.proxy = WithPassword(L"http://ann:", L"@127.0.0.1:1/");
  const HTTPClientWrapper client(L"http://127.0.0.1:1/", L"", L"", 1, &options);
  EXPECT_EQ(CopiesInMemory(1), 1);
  EXPECT_EQ(CopiesInMemory(sizeof(wchar_t)), 1) << "the host's own is one";
}

TEST(Erasing, LeavesWhatAnotherTextShares) {
  String text = L"secret";
  const String shared = text;
  text.Erase();
  EXPECT_TRUE(text.empty());
  EXPECT_TRUE(shared == L"secret");
}

}  // namespace
