#include "base/os/time_os.h"

#include <time.h>

// Both clocks are read through the vDSO: no system call per log line.
void ZyrBasOsWallClock(std::int64_t* seconds, std::uint32_t* nanoseconds) {
  struct timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  *seconds = ts.tv_sec;
  *nanoseconds = static_cast<std::uint32_t>(ts.tv_nsec);
}

std::uint64_t ZyrBasOsMonotonicMs() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC_COARSE, &ts);
  return static_cast<std::uint64_t>(ts.tv_sec) * 1000u +
         static_cast<std::uint64_t>(ts.tv_nsec) / 1000000u;
}
