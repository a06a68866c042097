// The platform half of the clock.
#ifndef ZYR_BASE_OS_TIME_OS_H
#define ZYR_BASE_OS_TIME_OS_H

#include <cstdint>

// UTC wall clock as seconds and nanoseconds since 1970-01-01.
void ZyrBasOsWallClock(std::int64_t* seconds, std::uint32_t* nanoseconds);
// A coarse monotonic clock in milliseconds.
std::uint64_t ZyrBasOsMonotonicMs();
// True where the system keeps its clocks by the processor's cycle counter,
// which is then steady and the same on every processor.
bool ZyrBasOsCycleCounterKeepsTime();
// The processor's cycle counter; 0 where there is none to read.
std::uint64_t ZyrBasOsCycleCounter();

#endif
