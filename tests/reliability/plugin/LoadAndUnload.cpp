// Repeatedly loads and unloads a host with the import library, and reports what remains in the
// process.
//
//    load-and-unload PLUGIN LIBRARY URL TIMES CANCEL-AFTER-MILLISECONDS

#include <dlfcn.h>
#include <netdb.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>

#include "support/ResidentMemory.h"

namespace {

/// Answers late, like the system's resolver if no name server answers.
bool g_isSlow = false;

std::set<std::string> MappedLibraries() {
  std::set<std::string> files;
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    const std::size_t path = line.find('/');
    if (path != std::string::npos) files.insert(line.substr(path));
  }
  return files;
}

long Threads() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.starts_with("Threads:")) return std::atol(line.c_str() + 8);
  return -1;
}

/// The kernel counts a thread for a moment after it was joined.
long SettledThreads(long most, int milliseconds) {
  while (Threads() > most && milliseconds-- > 0) usleep(1000);
  return Threads();
}

/// Includes the descriptor that reads the directory, each time.
long Descriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                       std::filesystem::directory_iterator());
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* node,
                                                                  const char* service,
                                                                  const addrinfo* hints,
                                                                  addrinfo** result) {
  using Function = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
  static const auto next = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "getaddrinfo"));
  if (g_isSlow) usleep(300'000);
  return next(g_isSlow ? "127.0.0.1" : node, service, hints, result);
}

int main(int, char** arguments) {
  const std::string url = arguments[3];
  const long times = std::atol(arguments[4]);
  const int cancelAfter = std::atoi(arguments[5]);
  g_isSlow = cancelAfter >= 0;
  const std::wstring wide(url.begin(), url.end());
  const std::set<std::string> before = MappedLibraries();
  std::thread([] {}).join();  // a sanitizer starts a thread of its own with the first one
  const long ownThreads = SettledThreads(1, 100);
  const long ownDescriptors = Descriptors();
  long records = 0;
  long resident = 0;
  for (long i = 0; i < times; ++i) {
    void* const plugin = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
    if (!plugin) {
      std::puts(dlerror());
      return 1;
    }
    using Work = int (*)(const char*, const wchar_t*, int);
    records +=
        reinterpret_cast<Work>(dlsym(plugin, "WorkOnce"))(arguments[2], wide.c_str(), cancelAfter);
    dlclose(plugin);
    if (i == times / 3) resident = support::ResidentKiB();
  }
  // A resolver that was left at work must still be there.
  const long threads = g_isSlow ? Threads() : SettledThreads(ownThreads, 200);
  std::printf("records %ld\nresident %ld\nthreads %ld\n", records,
              support::ResidentKiB() - resident, threads - ownThreads);
  if (g_isSlow) {
    // Abandoned threads end meanwhile.
    while (Threads() > ownThreads) usleep(10'000);
    std::puts("ended");
  }
  std::printf("descriptors %ld\n", Descriptors() - ownDescriptors);
  for (const std::string& file : MappedLibraries())
    if (!before.contains(file)) std::printf("mapped %s\n", file.c_str());
  std::fflush(stdout);
  return 0;
}
