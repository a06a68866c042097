// Accounts of the system by uid or login name, and where the system's own
// C library is loaded from: the sources of the folders that belong to a
// user or to the system.
#ifndef ZYR_BASE_POSIX_ACCOUNT_POSIX_H
#define ZYR_BASE_POSIX_ACCOUNT_POSIX_H

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
