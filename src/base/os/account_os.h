// Accounts of the system by uid or login name, and where the system's own
// library is loaded from (the C library on Linux, ntdll.dll on NT): the
// sources of the folders that belong to a user or to the system. The NT
// layer has no accounts by number and finds none.
#ifndef ZYR_BASE_OS_ACCOUNT_OS_H
#define ZYR_BASE_OS_ACCOUNT_OS_H

#include <cstdint>

#include "base/string.h"
#include "zyrlog/result.h"

// ZYR_I_NOT_FOUND when the system knows no such account. Either out may be
// null.
ZyrResult ZyrBasOsAccountById(std::uint32_t uid, ZyrBasNarrowText* name, ZyrBasNarrowText* home);
ZyrResult ZyrBasOsAccountByName(const char* name, std::uint32_t* uid, ZyrBasNarrowText* home);
// The account that the process acts as (its effective uid): the one whose
// home a service without HOME has.
ZyrResult ZyrBasOsCurrentAccount(ZyrBasNarrowText* name, ZyrBasNarrowText* home);
// The file of the loaded C library, the module every process has.
ZyrResult ZyrBasOsSystemLibraryPath(ZyrBasNarrowText& out);

#endif
