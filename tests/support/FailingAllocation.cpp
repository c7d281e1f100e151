// Replaces operator new of this test program, so that allocations can fail.
#include "support/FailingAllocation.h"

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

/// The plan. Written before `armed` is set, read after `armed` is seen.
struct Plan {
  std::atomic<bool> armed{false};
  std::atomic<bool> failed{false};
  std::atomic<long> seen{0};
  long nth = 0;
  FailingAllocation::Which which = FailingAllocation::Which::kFromThenOn;
  FailingAllocation::Whose whose = FailingAllocation::Whose::kThisThread;
  FailingAllocation::Action action = nullptr;
  void* context = nullptr;
};

constinit Plan g_plan;
constinit std::atomic<long> g_outstanding{0};
thread_local bool g_isOwner = false;
thread_local bool g_isExempt = false;

void Arm(long nth) {
  g_plan.nth = nth;
  g_plan.seen = 0;
  g_plan.failed = false;
  g_isOwner = true;
  g_plan.armed.store(true, std::memory_order_release);
}

/// True if this allocation must fail.
bool IsDenied() noexcept {
  if (!g_plan.armed.load(std::memory_order_acquire) || g_isExempt) return false;
  if (g_plan.whose == FailingAllocation::Whose::kThisThread && !g_isOwner) return false;
  const long number = g_plan.seen.fetch_add(1) + 1;
  if (number < g_plan.nth) return false;
  if (number > g_plan.nth && g_plan.which == FailingAllocation::Which::kOnlyThat) return false;
  g_plan.failed = true;
  if (!g_plan.action) return true;
  g_plan.action(g_plan.context);
  return false;
}

void Count(long change) noexcept {
  if (!g_isExempt) g_outstanding.fetch_add(change, std::memory_order_relaxed);
}

}  // namespace

FailingAllocation::FailingAllocation(long nth, Which which, Whose whose) {
  g_plan.which = which;
  g_plan.whose = whose;
  g_plan.action = nullptr;
  Arm(nth);
}

FailingAllocation::FailingAllocation(long nth, Action action, void* context) {
  g_plan.which = Which::kOnlyThat;
  g_plan.whose = Whose::kAnyThread;
  g_plan.action = action;
  g_plan.context = context;
  Arm(nth);
}

FailingAllocation::~FailingAllocation() {
  g_plan.armed = false;
  g_isOwner = false;
}

bool FailingAllocation::HasFailed() noexcept { return g_plan.failed; }
long FailingAllocation::Seen() noexcept { return g_plan.seen; }
void FailingAllocation::ExemptThisThread() noexcept { g_isExempt = true; }
long FailingAllocation::Outstanding() noexcept { return g_outstanding; }

void* TracedMemory::Allocate(std::size_t bytes) noexcept {
  if (IsDenied()) return nullptr;
  void* const block = std::malloc(bytes == 0 ? 1 : bytes);
  if (block) Count(1);
  return block;
}

void* TracedMemory::AllocateCleared(std::size_t count, std::size_t bytes) noexcept {
  if (IsDenied()) return nullptr;
  void* const block = std::calloc(count, bytes);
  if (block) Count(1);
  return block;
}

void* TracedMemory::Reallocate(void* block, std::size_t bytes) noexcept {
  if (!block) return Allocate(bytes);
  if (IsDenied()) return nullptr;
  if (!g_plan.armed) return std::realloc(block, bytes);
  // Moves each block and overwrites the old one, so that a pointer to it is noticed.
  void* const moved = std::malloc(bytes);
  if (!moved) return nullptr;
  const std::size_t former = malloc_usable_size(block);
  std::memcpy(moved, block, std::min(former, bytes));
  std::memset(block, 0xDD, former);
  std::free(block);
  return moved;
}

char* TracedMemory::Duplicate(const char* text) noexcept {
  const std::size_t bytes = std::strlen(text) + 1;
  void* const copy = Allocate(bytes);
  return copy ? static_cast<char*>(std::memcpy(copy, text, bytes)) : nullptr;
}

void TracedMemory::Free(void* block) noexcept {
  if (block) Count(-1);
  std::free(block);
}

#if XMLA_OWN_ALLOCATOR
namespace {

void* AllocateOrThrow(std::size_t bytes) {
  if (void* const block = TracedMemory::Allocate(bytes)) return block;
  throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t bytes) { return AllocateOrThrow(bytes); }
void* operator new[](std::size_t bytes) { return AllocateOrThrow(bytes); }
// Also defines the nothrow forms, since a sanitizer would provide its own.
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
  return TracedMemory::Allocate(bytes);
}
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept {
  return TracedMemory::Allocate(bytes);
}
void operator delete(void* block, const std::nothrow_t&) noexcept { TracedMemory::Free(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { TracedMemory::Free(block); }
void operator delete(void* block) noexcept { TracedMemory::Free(block); }
void operator delete[](void* block) noexcept { TracedMemory::Free(block); }
void operator delete(void* block, std::size_t) noexcept { TracedMemory::Free(block); }
void operator delete[](void* block, std::size_t) noexcept { TracedMemory::Free(block); }
#endif
