#include "Utility/Generic/MemAlloc.h"

#include <new>

// Uses operator new and delete, so that a host can replace them to count, limit or fail
// allocations.
void* MemAlloc::Allocate(std::size_t bytes) { return ::operator new(bytes); }

void MemAlloc::Free(void* block) noexcept { ::operator delete(block); }
