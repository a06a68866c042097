// The one handle type of the base: an object of the system that the library
// holds and must close. On this platform it is a file descriptor.
#ifndef ZYR_BASE_HANDLE_H
#define ZYR_BASE_HANDLE_H

#include <cstdint>

using ZyrBasHandle = std::intptr_t;
inline constexpr ZyrBasHandle ZYR_NO_HANDLE = -1;

// Time-outs are milliseconds; all ones waits without limit.
inline constexpr std::uint32_t ZYR_WAIT_FOREVER = 0xffffffffu;

#endif
