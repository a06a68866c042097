#include "base/os/memory_os.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "base/memory.h"
#include "base/result.h"

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

// The kernel reads for us, and answers an unreadable byte with a failure
// instead of a fault: from this very process through process_vm_readv, or,
// where that call is not allowed (some sandboxes), through a pipe.
ZyrResult ZyrBasCopyForeign(void* target, const void* source, std::size_t count) noexcept {
  if (count == 0) return ZYR_OK;
  if (!source) return ZYR_E_INVALID_ADDRESS;
  struct iovec local = {target, count};
  struct iovec remote = {const_cast<void*>(source), count};
  ssize_t n = process_vm_readv(getpid(), &local, 1, &remote, 1, 0);
  if (n >= 0) return static_cast<std::size_t>(n) == count ? ZYR_OK : ZYR_E_INVALID_ADDRESS;
  if (errno == EFAULT) return ZYR_E_INVALID_ADDRESS;
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return ZyrResultFromErrno(errno);
  ZyrResult r = ZYR_OK;
  auto* to = static_cast<char*>(target);
  const auto* from = static_cast<const char*>(source);
  for (std::size_t done = 0; done < count && ZyrSucceeded(r);) {
    std::size_t chunk = count - done < 4096 ? count - done : 4096;  // within a pipe's buffer
    ssize_t w = write(ends[1], from + done, chunk);
    if (w <= 0) {
      r = w < 0 && errno != EFAULT ? ZyrResultFromErrno(errno) : ZYR_E_INVALID_ADDRESS;
      break;
    }
    ssize_t got = read(ends[0], to + done, static_cast<std::size_t>(w));
    if (got != w) r = ZYR_E_INVALID_ADDRESS;
    done += static_cast<std::size_t>(w);
  }
  close(ends[0]);
  close(ends[1]);
  return r;
}
