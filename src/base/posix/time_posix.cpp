#include "base/os/time_os.h"

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#include <x86intrin.h>
#endif

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

// The kernel trusts the counter as its clock source only when it is
// invariant and in step across processors; then so can we.
bool ZyrBasOsCycleCounterKeepsTime() {
#if defined(__x86_64__) || defined(__i386__)
  int fd = open("/sys/devices/system/clocksource/clocksource0/current_clocksource", O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  char name[16] = {};
  ssize_t got = read(fd, name, sizeof name - 1);
  close(fd);
  return got >= 3 && std::strncmp(name, "tsc", 3) == 0 && (got == 3 || name[3] == '\n');
#else
  return false;
#endif
}

std::uint64_t ZyrBasOsCycleCounter() {
#if defined(__x86_64__) || defined(__i386__)
  return __rdtsc();
#else
  return 0;
#endif
}
