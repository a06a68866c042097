#include "base/os/memory_os.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>

void ZyrBasOsAdviseLargeBlock(void* block, std::size_t size) noexcept {
#ifdef MADV_HUGEPAGE
  static const std::uintptr_t page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  std::uintptr_t first = (reinterpret_cast<std::uintptr_t>(block) + page - 1) & ~(page - 1);
  std::uintptr_t last = (reinterpret_cast<std::uintptr_t>(block) + size) & ~(page - 1);
  if (last > first) (void)madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
#else
  (void)block;
  (void)size;
#endif
}
