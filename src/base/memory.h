// Process-heap allocation for the whole library. Nothing here throws: a
// failed allocation answers null, and callers turn that into
// ZYR_E_OUT_OF_MEMORY.
#ifndef ZYR_BASE_MEMORY_H
#define ZYR_BASE_MEMORY_H

#include <cstddef>
#include <new>
#include <utility>

#include "zyrlog/result.h"

void* ZyrBasAlloc(std::size_t size) noexcept;
void* ZyrBasAllocZero(std::size_t size) noexcept;
// `size` bytes at an address that is a multiple of `alignment`, a power of
// two no smaller than a pointer; freed with ZyrBasFreeAligned.
void* ZyrBasAllocAligned(std::size_t alignment, std::size_t size) noexcept;
void ZyrBasFreeAligned(void* block) noexcept;
void ZyrBasFree(void* block) noexcept;

// Test hook: after `successes` further allocations succeed, every allocation
// fails until the hook is reset with -1. Lets tests reach the out-of-memory
// paths without starving the process. Gives the successes that were left of
// the hook before (0 once it failed one), -1 if none was set.
long ZyrBasTestFailAllocationsAfter(long successes) noexcept;
// Test hook: the allocation after `successes` further ones fails, and only
// that one; -1 takes the hook away. For sweeps that fail each allocation of
// a program in turn while the rest of it runs on.
void ZyrBasTestFailOneAllocation(long successes) noexcept;

// Copies `count` bytes from memory that nobody vouches for: a blob that
// another program placed in this process. Where any byte of it cannot be
// read (unmapped, or a guard page), ZYR_E_INVALID_ADDRESS, never a fault;
// `target` may then hold part of it.
ZyrResult ZyrBasCopyForeign(void* target, const void* source, std::size_t count) noexcept;

template <class T, class... A>
T* ZyrNew(A&&... args) noexcept {
  void* p = ZyrBasAlloc(sizeof(T));
  if (!p) return nullptr;
  return new (p) T(std::forward<A>(args)...);
}

template <class T>
void ZyrDelete(T* p) noexcept {
  if (p) {
    p->~T();
    ZyrBasFree(p);
  }
}

#endif
