#pragma once

#include <cstddef>

#if defined(__has_feature)
#  if __has_feature(thread_sanitizer)
#    define XMLA_OWN_ALLOCATOR 0  // clang's thread sanitizer brings its own, for good
#  endif
#endif
#ifndef XMLA_OWN_ALLOCATOR
#  define XMLA_OWN_ALLOCATOR 1
#endif

/// Makes allocations fail while the object lives. They are those of operator new and of what uses
/// the functions of TracedMemory. One object at a time in the process.
class FailingAllocation {
 public:
  /// False in a build where allocations cannot be made to fail: then tests are to be skipped.
  static constexpr bool kIsPossible = XMLA_OWN_ALLOCATOR != 0;

  enum class Which { kFromThenOn, kOnlyThat };
  enum class Whose { kThisThread, kAnyThread };
  /// Done in place of failing, on the thread that allocates. It must not allocate.
  using Action = void (*)(void* context) noexcept;

  /// The `nth` allocation (1 for the next one) fails, and every later one too or only that.
  explicit FailingAllocation(long nth, Which which = Which::kFromThenOn,
                             Whose whose = Whose::kThisThread);
  /// At the n-th allocation of any thread something else happens, and nothing fails.
  FailingAllocation(long nth, Action action, void* context);
  ~FailingAllocation();
  FailingAllocation(const FailingAllocation&) = delete;
  FailingAllocation& operator=(const FailingAllocation&) = delete;

  /// True once an allocation was made to fail, or the action was done, by the latest object.
  static bool HasFailed() noexcept;
  /// How many allocations the latest object has seen.
  static long Seen() noexcept;

  /// The calling thread's allocations neither fail nor count from now on, for a server in the
  /// process.
  static void ExemptThisThread() noexcept;
  /// Blocks that were allocated and not freed, but for those of exempt threads.
  static long Outstanding() noexcept;
};

/// malloc and its family as FailingAllocation sees them, for libraries written in C.
namespace TracedMemory {
void* Allocate(std::size_t bytes) noexcept;
void* AllocateCleared(std::size_t count, std::size_t bytes) noexcept;
void* Reallocate(void* block, std::size_t bytes) noexcept;
char* Duplicate(const char* text) noexcept;
void Free(void* block) noexcept;
}  // namespace TracedMemory
