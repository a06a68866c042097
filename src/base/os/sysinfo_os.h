// The platform half of system information.
#ifndef ZYR_BASE_OS_SYSINFO_OS_H
#define ZYR_BASE_OS_SYSINFO_OS_H

#include "base/sysinfo.h"
#include "zyrlog/result.h"

// Fills every fact but `initialised`, which the caller sets last, and the
// table of optional functions: on Linux from the kernel's names and the C
// library; on NT from the shared user data page, the PEB and the system's
// version, and the optional functions of ntdll, which the NT layer keeps
// in a table of its own (the C library's slots stay null there).
ZyrResult ZyrBasOsSystemFacts(ZyrBasSystemInfo& info, ZyrBasOptionalFunctions& optional);

#endif
