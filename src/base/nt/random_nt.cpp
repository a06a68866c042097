// Seed material of this process: its ids, the clocks, the addresses of its
// stack, heap and environment blocks, and the system's interrupt time.
#include <cstring>

#include "base/nt/nt_support.h"
#include "base/os/random_os.h"

std::size_t ZyrBasOsSeedMaterial(unsigned char* buffer, std::size_t capacity) {
  const void* stack = &buffer;
  std::uintptr_t words[] = {
      reinterpret_cast<std::uintptr_t>(NtField<HANDLE>(NtTeb(), kTebClientId)),
      reinterpret_cast<std::uintptr_t>(NtField<HANDLE>(NtTeb(), kTebClientId + 8)),
      *reinterpret_cast<volatile std::uint64_t*>(kUserSharedData + 0x8),  // interrupt time
      *reinterpret_cast<volatile std::uint64_t*>(kUserSharedData + kUsdSystemTime),
      reinterpret_cast<std::uintptr_t>(stack),
      reinterpret_cast<std::uintptr_t>(NtTeb()),
      reinterpret_cast<std::uintptr_t>(NtPeb()),
      reinterpret_cast<std::uintptr_t>(NtProcessHeap()),
      __builtin_ia32_rdtsc(),
  };
  std::size_t n = sizeof words < capacity ? sizeof words : capacity;
  std::memcpy(buffer, words, n);
  return n;
}
