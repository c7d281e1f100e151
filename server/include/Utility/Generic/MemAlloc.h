#pragma once

#include <cstddef>

#include "Utility/Generic/HostExport.h"

/// The host's memory allocator. All memory of text buffers and of objects derived from
/// MemAllocNewdel comes from here, so that a block may be released by another module than the one
/// that asked for it. Safe to call from any thread.
class XMLAHOST_API MemAlloc {
 public:
  /// A block of at least `bytes` bytes, aligned for any type. Throws std::bad_alloc.
  static void* Allocate(std::size_t bytes);
  /// Gives a block back; null is allowed.
  static void Free(void* block) noexcept;
};

/// Allocation mix-in: objects of derived classes are made by and given back to MemAlloc. It has no
/// data and no virtual operations.
class MemAllocNewdel {
 public:
  static void* operator new(std::size_t bytes) { return MemAlloc::Allocate(bytes); }
  static void* operator new(std::size_t, void* place) noexcept { return place; }
  static void operator delete(void* block) noexcept { MemAlloc::Free(block); }
};
