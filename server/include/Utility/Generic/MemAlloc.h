#pragma once

/// \file
/// The memory allocator that all modules share.

#include <cstddef>

#include "Utility/Generic/HostExport.h"

/// The host's memory allocator, for text buffers and for objects derived from MemAllocNewdel. A
/// module may free a block that another module allocated. Thread-safe.
class XMLAHOST_API MemAlloc {
 public:
  /// Allocates at least `bytes` bytes, aligned for any type. Throws std::bad_alloc.
  static void* Allocate(std::size_t bytes);
  /// Frees a block; null is allowed.
  static void Free(void* block) noexcept;
};

/// Base class whose derived classes are allocated by MemAlloc. It has no data and no virtual
/// functions.
class MemAllocNewdel {
 public:
  /// Used by new, placement new and delete of derived classes.
  /// @{
  static void* operator new(std::size_t bytes) { return MemAlloc::Allocate(bytes); }
  static void* operator new(std::size_t, void* place) noexcept { return place; }
  static void operator delete(void* block) noexcept { MemAlloc::Free(block); }
  /// @}
};
