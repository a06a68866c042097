#include "base/os/sysinfo_os.h"

#include <dlfcn.h>
#include <errno.h>
#include <sched.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstring>

#include "base/result.h"

ZyrResult ZyrBasOsKernelNamesGet(ZyrBasOsKernelNames* out) {
  struct utsname u;
  if (uname(&u) != 0) return ZyrResultFromErrno(errno);
  auto copy = [](char* to, const char* from) {
    std::size_t length = strnlen(from, 64);
    std::memcpy(to, from, length);
    to[length] = 0;
  };
  copy(out->sysname, u.sysname);
  copy(out->release, u.release);
  copy(out->version, u.version);
  copy(out->machine, u.machine);
  return ZYR_OK;
}

std::uint64_t ZyrBasOsPageSizeBytes() {
  long size = sysconf(_SC_PAGESIZE);
  return size > 0 ? static_cast<std::uint64_t>(size) : 4096;
}

std::uint64_t ZyrBasOsProcessorMask() {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof set, &set) != 0) return 0;
  std::uint64_t mask = 0;
  for (int cpu = 0; cpu < 64; ++cpu)
    if (CPU_ISSET(cpu, &set)) mask |= std::uint64_t{1} << cpu;
  return mask;
}

void* ZyrBasOsFindFunction(const char* name) { return dlsym(RTLD_DEFAULT, name); }
