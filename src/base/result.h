// Where system failures become ZyrResult. Above the base nobody sees an NT
// status or an errno: they see the codes of zyrlog/result.h.
#ifndef ZYR_BASE_RESULT_H
#define ZYR_BASE_RESULT_H

#include <cstdint>

#include "zyrlog/result.h"

// The rule for NT statuses, kept as a pure function over the statuses that
// the library names, so that the mapping stays testable on any platform.
ZyrResult ZyrResultFromNtStatus(std::uint32_t status);

// Win32 error number to result: a row of the table gives 0xe001xxxx, any
// other number 0xc007xxxx with its low 16 bits. 0 gives 0.
ZyrResult ZyrResultFromWin32Error(std::uint32_t error);

// The Win32 number that the system would give for an NT status named by the
// library; 317 (no message) for any other.
std::uint32_t ZyrNtStatusToDosError(std::uint32_t status);

// The one place where an errno value becomes a result: errno is first
// brought to its Win32 number, then mapped as above. POSIX layer only
// (src/base/posix/errno_posix.cpp): the NT layer maps NT statuses.
std::uint32_t ZyrWin32ErrorFromErrno(int error);
ZyrResult ZyrResultFromErrno(int error);

// Marks a failure as a warning (top bits 10), as a failed appender reports
// itself to a logger's caller.
inline ZyrResult ZyrResultAsWarning(ZyrResult r) {
  return static_cast<ZyrResult>((static_cast<std::uint32_t>(r) & 0x3fffffffu) | 0x80000000u);
}

#endif
