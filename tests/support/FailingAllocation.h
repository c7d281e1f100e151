#pragma once

#if defined(__has_feature)
#  if __has_feature(thread_sanitizer)
#    define XMLA_OWN_ALLOCATOR 0  // clang's thread sanitizer brings its own, for good
#  endif
#endif
#ifndef XMLA_OWN_ALLOCATOR
#  define XMLA_OWN_ALLOCATOR 1
#endif

/// Makes the n-th allocation (1 for the next) of this thread, and every later one, fail while the
/// object lives.
class FailingAllocation {
 public:
  /// False in a build where allocations cannot be made to fail: then tests are to be skipped.
  static constexpr bool kIsPossible = XMLA_OWN_ALLOCATOR != 0;

  explicit FailingAllocation(int nth);
  ~FailingAllocation();
  FailingAllocation(const FailingAllocation&) = delete;
  FailingAllocation& operator=(const FailingAllocation&) = delete;
  /// True once an allocation was made to fail.
  static bool HasFailed();
};
