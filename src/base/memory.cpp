#include "base/memory.h"

#include <atomic>

#include "base/os/memory_os.h"
#include ZYR_PLATFORM_LAYER

namespace {
// -1: no failure injected. Otherwise the number of allocations left.
std::atomic<long> g_allocationsLeft{-1};

// -1: none. Otherwise the allocations left before the one that fails.
std::atomic<long> g_oneFailureIn{-1};

bool InjectedFailure() noexcept {
  if (g_oneFailureIn.load(std::memory_order_relaxed) >= 0 &&
      g_oneFailureIn.fetch_sub(1, std::memory_order_relaxed) == 0)
    return true;
  long left = g_allocationsLeft.load(std::memory_order_relaxed);
  while (left >= 0) {
    if (left == 0) return true;
    if (g_allocationsLeft.compare_exchange_weak(left, left - 1, std::memory_order_relaxed))
      return false;
  }
  return false;
}

// From this size on a block is taken to be one of the queue's arrays in a
// burst, or the like, and the system is asked for huge pages under it: one
// fault then maps 2 MiB instead of 4 KiB. Each fault costs about 16 us on
// the virtual machines we measure on (5 us even when the pages are mapped
// at once), and a burst that outruns the worker touches some 100 MB of
// fresh queue in 200,000 lines.
constexpr std::size_t kLargeBlock = std::size_t{2} << 20;

void* Advised(void* block, std::size_t size) noexcept {
  if (block && size >= kLargeBlock) ZyrBasOsAdviseLargeBlock(block, size);
  return block;
}
}  // namespace

void* ZyrBasAlloc(std::size_t size) noexcept {
  if (InjectedFailure()) return nullptr;
  return Advised(ZyrBasNativeAlloc(size ? size : 1), size);
}

void* ZyrBasAllocZero(std::size_t size) noexcept {
  if (InjectedFailure()) return nullptr;
  return Advised(ZyrBasNativeAllocZero(size ? size : 1), size);
}

void* ZyrBasAllocAligned(std::size_t alignment, std::size_t size) noexcept {
  if (InjectedFailure()) return nullptr;
  // The size is a multiple of the alignment, as the C library asks.
  std::size_t rounded = (size + alignment - 1) & ~(alignment - 1);
  if (rounded < size) return nullptr;
  return Advised(ZyrBasNativeAllocAligned(alignment, rounded ? rounded : alignment), rounded);
}

void ZyrBasFreeAligned(void* block) noexcept { ZyrBasNativeFreeAligned(block); }

void ZyrBasFree(void* block) noexcept { ZyrBasNativeFree(block); }

long ZyrBasTestFailAllocationsAfter(long successes) noexcept {
  return g_allocationsLeft.exchange(successes < 0 ? -1 : successes, std::memory_order_relaxed);
}

void ZyrBasTestFailOneAllocation(long successes) noexcept {
  g_oneFailureIn.store(successes < 0 ? -1 : successes, std::memory_order_relaxed);
}
