// Blocks of the process heap, through ntdll: the module has no C library.
#include "base/nt/nt_support.h"
#include "base/memory.h"
#include "base/os/memory_os.h"
#include ZYR_PLATFORM_LAYER

namespace {
constexpr ULONG kHeapZeroMemory = 0x8;
}

void* ZyrBasNativeAlloc(std::size_t size) noexcept { return RtlAllocateHeap(NtProcessHeap(), 0, size); }
void* ZyrBasNativeAllocZero(std::size_t size) noexcept {
  return RtlAllocateHeap(NtProcessHeap(), kHeapZeroMemory, size);
}
void ZyrBasNativeFree(void* block) noexcept {
  if (block) RtlFreeHeap(NtProcessHeap(), 0, block);
}

// The process heap takes no advice about its blocks.
void ZyrBasOsAdviseLargeBlock(void*, std::size_t) noexcept {}

// The system reads for us, and answers an unreadable byte with a failure
// instead of a fault.
ZyrResult ZyrBasCopyForeign(void* target, const void* source, std::size_t count) noexcept {
  if (count == 0) return ZYR_OK;
  if (!source) return ZYR_E_INVALID_ADDRESS;
  std::size_t read = 0;
  NTSTATUS s = NtReadVirtualMemory(NtCurrentProcess(), source, target, count, &read);
  return NtSucceeded(s) && read == count ? ZYR_OK : ZYR_E_INVALID_ADDRESS;
}
