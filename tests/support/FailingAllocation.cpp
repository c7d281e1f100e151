// The allocator that this test program puts in the place of the language's own.
#include "support/FailingAllocation.h"

#include <cstdlib>
#include <new>

namespace {

thread_local int t_left = 0;  // allocations until the failing one; 0 when none is to fail
thread_local bool t_failed = false;

[[maybe_unused]] void* Allocate(std::size_t bytes) {
  if (t_left > 0) {
    if (t_left == 1) {
      t_failed = true;
      throw std::bad_alloc();
    }
    --t_left;
  }
  if (void* const block = std::malloc(bytes == 0 ? 1 : bytes)) return block;
  throw std::bad_alloc();
}

}  // namespace

#if XMLA_OWN_ALLOCATOR
void* operator new(std::size_t bytes) { return Allocate(bytes); }
void* operator new[](std::size_t bytes) { return Allocate(bytes); }
// The forms that do not throw as well, since a sanitizer would bring its own.
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
  try {
    return Allocate(bytes);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void operator delete(void* block, const std::nothrow_t&) noexcept { std::free(block); }
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }
#endif

FailingAllocation::FailingAllocation(int nth) {
  t_left = nth;
  t_failed = false;
}
FailingAllocation::~FailingAllocation() { t_left = 0; }
bool FailingAllocation::HasFailed() { return t_failed; }
