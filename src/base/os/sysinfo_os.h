// The platform half of system information.
#ifndef ZYR_BASE_OS_SYSINFO_OS_H
#define ZYR_BASE_OS_SYSINFO_OS_H

#include <cstdint>

#include "base/sysinfo.h"
#include "zyrlog/result.h"

// The kernel's names, each cut to fit 64 bytes and terminated.
struct ZyrBasOsKernelNames {
  char sysname[65];
  char release[65];
  char version[65];
  char machine[65];
};
ZyrResult ZyrBasOsKernelNamesGet(ZyrBasOsKernelNames* out);
std::uint64_t ZyrBasOsPageSizeBytes();
std::uint64_t ZyrBasOsProcessorMask();
// A function of the C library by name; null when it has none.
void* ZyrBasOsFindFunction(const char* name);

#endif
