// Process-heap allocation for the whole library. Nothing here throws: a
// failed allocation answers null, and callers turn that into
// ZYR_E_OUT_OF_MEMORY.
#ifndef ZYR_BASE_MEMORY_H
#define ZYR_BASE_MEMORY_H

#include <cstddef>
#include <new>
#include <utility>

void* ZyrBasAlloc(std::size_t size) noexcept;
void* ZyrBasAllocZero(std::size_t size) noexcept;
// `size` bytes at an address that is a multiple of `alignment`, a power of
// two no smaller than a pointer; freed with ZyrBasFreeAligned.
void* ZyrBasAllocAligned(std::size_t alignment, std::size_t size) noexcept;
void ZyrBasFreeAligned(void* block) noexcept;
void ZyrBasFree(void* block) noexcept;

// Test hook: after `successes` further allocations succeed, every allocation
// fails until the hook is reset with -1. Lets tests reach the out-of-memory
// paths without starving the process.
void ZyrBasTestFailAllocationsAfter(long successes) noexcept;

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
