// The platform half of the clock.
#ifndef ZYR_BASE_OS_TIME_OS_H
#define ZYR_BASE_OS_TIME_OS_H

#include <cstdint>

// UTC wall clock as seconds and nanoseconds since 1970-01-01.
void ZyrBasOsWallClock(std::int64_t* seconds, std::uint32_t* nanoseconds);
// A coarse monotonic clock in milliseconds.
std::uint64_t ZyrBasOsMonotonicMs();

#endif
