#include "FailingAllocation.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<unsigned int> g_until{0};
std::atomic<bool> g_failed{false};

}  // namespace

void FailAllocation(unsigned int nth) {
  g_failed = false;
  g_until = nth;
}

bool AllocationFailed() { return g_failed; }

void* operator new(std::size_t bytes) {
  if (g_until.load(std::memory_order_relaxed) != 0 && g_until.fetch_sub(1) == 1) {
    g_failed = true;
    throw std::bad_alloc();
  }
  if (void* const block = std::malloc(bytes ? bytes : 1)) return block;
  throw std::bad_alloc();
}

void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
