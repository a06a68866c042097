// Blocks of the process heap, through ntdll: the module has no C library.
#include <cstdint>

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

void* ZyrBasNativeAllocAligned(std::size_t alignment, std::size_t size) noexcept {
  std::size_t extra = alignment + sizeof(void*);
  if (size > ~std::size_t{0} - extra) return nullptr;
  void* raw = RtlAllocateHeap(NtProcessHeap(), 0, size + extra);
  if (!raw) return nullptr;
  std::uintptr_t at = (reinterpret_cast<std::uintptr_t>(raw) + sizeof(void*) + alignment - 1) & ~(alignment - 1);
  reinterpret_cast<void**>(at)[-1] = raw;
  return reinterpret_cast<void*>(at);
}
void ZyrBasNativeFreeAligned(void* block) noexcept {
  if (block) RtlFreeHeap(NtProcessHeap(), 0, static_cast<void**>(block)[-1]);
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
