// The platform half of computer and process identity. Texts come back as
// native text (UTF-8); src/base/identity.cpp makes them wide.
#ifndef ZYR_BASE_OS_IDENTITY_OS_H
#define ZYR_BASE_OS_IDENTITY_OS_H

#include <cstddef>
#include <cstdint>

#include "base/string.h"
#include "zyrlog/result.h"

// The value of a variable of the process environment; ZYR_I_NOT_FOUND when
// unset.
ZyrResult ZyrBasOsGetEnv(const char* name, ZyrBasNarrowText& out);
// The host name; ZYR_I_NOT_FOUND when the system has none to give.
ZyrResult ZyrBasOsHostName(ZyrBasNarrowText& out);
// The login name of the effective user; ZYR_I_NOT_FOUND if the account has
// no entry.
ZyrResult ZyrBasOsUserName(ZyrBasNarrowText& out);

std::uint32_t ZyrBasOsProcessId();
// The kernel's id of the calling thread; the process id for its first thread.
std::uint32_t ZyrBasOsThreadId();

// The image file of a process. ZYR_E_INVALID_ARGUMENT when no process has
// this id; ZYR_I_NOT_FOUND when the process has no image file (a kernel
// thread); a mapped failure when the system refuses to tell.
ZyrResult ZyrBasOsProcessImage(std::uint32_t processId, ZyrBasNarrowText& out);

// The loaded module whose image holds the address: its lowest address, the
// extent of its mapped segments, and its file path (the executable's path
// for the program itself). ZYR_E_INVALID_DATA when no module holds it.
ZyrResult ZyrBasOsModuleAt(const void* address, void** base, std::size_t* size,
                           ZyrBasNarrowText* path);

#endif
