// The directory in which a product's modules lie, by product name and
// version, read from the key store where the suite's installer wrote it.
#ifndef ZYR_BROKER_FRAMEWORK_DIRECTORY_H
#define ZYR_BROKER_FRAMEWORK_DIRECTORY_H

#include <cstddef>

#include "base/string.h"
#include "zyrlog/result.h"

// Product "Framework" of version "0" (exactly, case and length) is the
// value "ZyrDir" of "\Registry\Machine\SYSTEM\CurrentControlSet\Services\Zyr\Zyr2014";
// any other is the value "Dir" of "\Registry\Machine\SOFTWARE\Zyr\<product>\<version>".
// `out` is written only on success. A missing key or value gives
// ZYR_E_FILE_NOT_FOUND, a value that is no plain string
// ZYR_E_BAD_VALUE_TYPE.
ZyrResult ZyrBasFrameworkDirectory(ZyrBasString& out, const char16_t* product, std::size_t productLength,
                                   const char16_t* version, std::size_t versionLength);

// One plain string value (type sz, terminated, of even non-zero size; an
// expand_sz value is refused, not expanded) of a key named by its full
// native name below "\Registry\Machine" or "\Registry\User". The same key
// in 32-bit and 64-bit processes: no view rule applies. A key path or value
// name of 32768 characters or more is refused (ZYR_E_INVALID_ARGUMENT).
ZyrResult ZyrBasReadRegistryString(ZyrBasString& out, const char16_t* keyPath, const char16_t* valueName);

#endif
