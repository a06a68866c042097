// The platform half of security: the accounts of the process, and what
// access rules become for a file: its mode bits on Linux, the descriptor
// itself on NT (which has no numeric ids, and reads and writes no mode).
#ifndef ZYR_BASE_OS_SECURITY_OS_H
#define ZYR_BASE_OS_SECURITY_OS_H

#include <cstdint>

#include "zyrlog/result.h"

std::uint32_t ZyrBasOsProcessUserId();  // effective uid of the process
std::uint32_t ZyrBasOsThreadUserId();   // effective uid of the calling thread

// Sets the mode of an open file to what the security form gives it (see
// ZyrBasSecurityForForm), whatever the umask made of it.
ZyrResult ZyrBasOsApplySecurityForm(int handle, std::uint32_t form, bool directory);
// Gives `to` the mode of `from` and, where the process may give files
// away, its owner and group: ZYR_I_SECURITY_NOT_COPIED where that fails.
ZyrResult ZyrBasOsCarrySecurity(int from, int to);

// What a path (links followed) has of security here.
struct ZyrBasOsPathSecurity {
  std::uint32_t uid;
  std::uint32_t gid;
  std::uint32_t mode;  // permission bits
  bool directory;
  bool keepsModes;     // false on a file system without modes of its own (FAT and its kin)
};
ZyrResult ZyrBasOsReadPathSecurity(const char* path, ZyrBasOsPathSecurity* out);
ZyrResult ZyrBasOsWritePathMode(const char* path, std::uint32_t mode);

#endif
