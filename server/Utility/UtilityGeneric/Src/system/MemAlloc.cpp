#include "Utility/Generic/MemAlloc.h"

#include <new>

// The process's operator new and delete stand below, so that a host which replaces them (to count,
// to limit, to make allocations fail) sees these blocks too.
void* MemAlloc::Allocate(std::size_t bytes) { return ::operator new(bytes); }

void MemAlloc::Free(void* block) noexcept { ::operator delete(block); }
