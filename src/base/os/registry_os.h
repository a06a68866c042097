// The key store of the platform, under the portable rules of
// base/registry.h (views, the classes merge, the predefined roots). Handles
// here are open keys, never 0 and never predefined.
#ifndef ZYR_BASE_OS_REGISTRY_OS_H
#define ZYR_BASE_OS_REGISTRY_OS_H

#include <cstddef>
#include <cstdint>

#include "base/registry.h"
#include "base/string.h"
#include "zyrlog/result.h"

// Opens `name` (`length` units) below the open key `parent`, or, with
// `parent` 0, the full native name (beginning with "\REGISTRY"). A missing
// key gives ZYR_E_FILE_NOT_FOUND, a missing key above it
// ZYR_E_PATH_NOT_FOUND; a store that cannot be written refuses rights to
// write with ZYR_E_ACCESS_DENIED.
ZyrResult ZyrBasOsRegOpen(ZyrBasRegHandle parent, const char16_t* name, std::size_t length, std::uint32_t access,
                          ZyrBasRegHandle* out);
// The key of the account the process runs as.
ZyrResult ZyrBasOsRegOpenCurrentUser(std::uint32_t access, ZyrBasRegHandle* out);
void ZyrBasOsRegClose(ZyrBasRegHandle handle);
// The key's full native name, as the store spells it.
ZyrResult ZyrBasOsRegKeyName(ZyrBasRegHandle handle, ZyrBasString& out);
// As ZyrBasRegReadValue.
ZyrResult ZyrBasOsRegReadValue(ZyrBasRegHandle handle, const char16_t* valueName, std::uint32_t* type,
                               void* buffer, std::size_t* size);

#endif
