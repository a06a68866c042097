#include "base/memory.h"

#include <atomic>
#include <cstdlib>

namespace {
// -1: no failure injected. Otherwise the number of allocations left.
std::atomic<long> g_allocationsLeft{-1};

bool InjectedFailure() noexcept {
  long left = g_allocationsLeft.load(std::memory_order_relaxed);
  while (left >= 0) {
    if (left == 0) return true;
    if (g_allocationsLeft.compare_exchange_weak(left, left - 1, std::memory_order_relaxed))
      return false;
  }
  return false;
}
}  // namespace

void* ZyrBasAlloc(std::size_t size) noexcept {
  if (InjectedFailure()) return nullptr;
  return std::malloc(size ? size : 1);
}

void* ZyrBasAllocZero(std::size_t size) noexcept {
  if (InjectedFailure()) return nullptr;
  return std::calloc(1, size ? size : 1);
}

void ZyrBasFree(void* block) noexcept { std::free(block); }

void ZyrBasTestFailAllocationsAfter(long successes) noexcept {
  g_allocationsLeft.store(successes < 0 ? -1 : successes, std::memory_order_relaxed);
}
