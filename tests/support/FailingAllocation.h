#pragma once

#include <cstddef>

#if defined(__has_feature)
#  if __has_feature(thread_sanitizer)
#    define XMLA_OWN_ALLOCATOR 0  // clang's ThreadSanitizer always uses its own
#  endif
#endif
#ifndef XMLA_OWN_ALLOCATOR
#  define XMLA_OWN_ALLOCATOR 1
#endif

/// Makes allocations fail during the object's life: those of operator new and of users of
/// TracedMemory. At most one object per process at a time.
class FailingAllocation {
 public:
  /// False in a build where allocations cannot fail. Tests are then skipped.
  static constexpr bool kIsPossible = XMLA_OWN_ALLOCATOR != 0;

  enum class Which { kFromThenOn, kOnlyThat };
  enum class Whose { kThisThread, kAnyThread };
  /// Called instead of failing, on the allocating thread. Must not allocate.
  using Action = void (*)(void* context) noexcept;

  /// The `nth` allocation (1 for the next) fails; if `andAllLater`, all later ones too.
  explicit FailingAllocation(long nth, Which which = Which::kFromThenOn,
                             Whose whose = Whose::kThisThread);
  /// At the n-th allocation of any thread, calls the action; nothing fails.
  FailingAllocation(long nth, Action action, void* context);
  ~FailingAllocation();
  FailingAllocation(const FailingAllocation&) = delete;
  FailingAllocation& operator=(const FailingAllocation&) = delete;

  /// True if the latest object has made an allocation fail or has called the action.
  static bool HasFailed() noexcept;
  /// Number of allocations seen by the latest object.
  static long Seen() noexcept;

  /// Exempts the calling thread from now on, for a server in this process.
  static void ExemptThisThread() noexcept;
  /// Number of allocated blocks, without those of exempt threads.
  static long Outstanding() noexcept;
};

/// malloc and related functions under control of FailingAllocation, for libraries written in C.
namespace TracedMemory {
void* Allocate(std::size_t bytes) noexcept;
void* AllocateCleared(std::size_t count, std::size_t bytes) noexcept;
void* Reallocate(void* block, std::size_t bytes) noexcept;
char* Duplicate(const char* text) noexcept;
void Free(void* block) noexcept;
}  // namespace TracedMemory
