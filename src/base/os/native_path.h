// Wide DOS-style paths to the names the kernel takes, and back. Native
// names and texts are narrow, UTF-8, in both layers.
//
// On Linux the native name of a path is its UTF-8 form with both
// separators made "/"; the Drive, UNC and Device forms have no meaning of
// their own there and pass through unchanged apart from that. So the
// rooted "\var\log\a.log" becomes "/var/log/a.log", and a relative name stays
// relative to the current directory. Linux names are bytes, not always
// UTF-8. A byte that is not part of a valid UTF-8 sequence comes in as the
// lone surrogate U+DC00 + byte, and such a surrogate goes out as that byte
// again, so every name read from a directory can be given back to the
// kernel unchanged.
//
// On NT the native name is the NT object name of the path, as the system's
// own rule makes it ("C:\x" is "\??\C:\x"), and lone surrogates of names
// travel in their three-byte form.
#ifndef ZYR_BASE_OS_NATIVE_PATH_H
#define ZYR_BASE_OS_NATIVE_PATH_H

#include <cstddef>

#include "base/string.h"
#include "zyrlog/result.h"

// ZYR_E_PATH_NOT_FOUND for a path that has no native name: empty, holding
// a NUL, or holding a lone surrogate other than an escaped byte.
ZyrResult ZyrBasNativePath(const char16_t* path, std::size_t length, ZyrBasNarrowText& out);

// A native name (not terminated, `length` bytes) as wide text, separators
// left as they are.
ZyrResult ZyrBasWideFromNative(const char* name, std::size_t length, ZyrBasString& out);

// The same into a fixed buffer of `capacity` characters, terminator
// included; ZYR_E_BUFFER_TOO_SMALL with *outLength the needed length
// (without terminator) when it does not fit.
ZyrResult ZyrBasWideFromNativeFixed(const char* name, std::size_t length, char16_t* target,
                                    std::size_t capacity, std::size_t* outLength);

// The current directory as a wide path, written with the native separator.
ZyrResult ZyrBasCurrentDirectory(ZyrBasString& out);

#endif
