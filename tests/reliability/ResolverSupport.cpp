#include "ResolverSupport.h"

#include <dlfcn.h>
#include <netdb.h>

#include <condition_variable>
#include <cstring>
#include <mutex>

namespace {

// Never destroyed, since a resolver thread may outlive main.
struct Gate {
  std::mutex mutex;
  std::condition_variable changed;
  bool isOpen = true;
  int inside = 0;
};
Gate& TheGate() {
  static Gate* const gate = new Gate;
  return *gate;
}

}  // namespace

// Interposes the C library's function: the loader finds this definition first.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* node,
                                                                  const char* service,
                                                                  const addrinfo* hints,
                                                                  addrinfo** result) {
  using Function = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
  static const auto next = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "getaddrinfo"));
  if (!node || std::strcmp(node, "slow.test") != 0) return next(node, service, hints, result);
  Gate& gate = TheGate();
  {
    std::unique_lock lock(gate.mutex);
    ++gate.inside;
    gate.changed.notify_all();
    gate.changed.wait(lock, [&] { return gate.isOpen; });
  }
  const int status = next("127.0.0.1", service, hints, result);
  const std::lock_guard lock(gate.mutex);
  --gate.inside;
  gate.changed.notify_all();
  return status;
}

namespace reliability {

SlowResolver::SlowResolver() {
  const std::lock_guard lock(TheGate().mutex);
  TheGate().isOpen = false;
}

SlowResolver::~SlowResolver() {
  Release();
  std::unique_lock lock(TheGate().mutex);
  TheGate().changed.wait(lock, [] { return TheGate().inside == 0; });
}

void SlowResolver::AwaitQuestion() {
  std::unique_lock lock(TheGate().mutex);
  TheGate().changed.wait(lock, [] { return TheGate().inside > 0; });
}

void SlowResolver::Release() {
  const std::lock_guard lock(TheGate().mutex);
  TheGate().isOpen = true;
  TheGate().changed.notify_all();
}

}  // namespace reliability
