#include "base/os/sysinfo_os.h"

#include <dlfcn.h>
#include <errno.h>
#include <sched.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstring>

#include "base/result.h"

namespace {

// The kernel's names, each cut to fit 64 bytes and terminated.
struct KernelNames {
  char sysname[65];
  char release[65];
  char version[65];
  char machine[65];
};

ZyrResult KernelNamesGet(KernelNames* out) {
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

std::uint64_t PageSizeBytes() {
  long size = sysconf(_SC_PAGESIZE);
  return size > 0 ? static_cast<std::uint64_t>(size) : 4096;
}

std::uint64_t ProcessorMask() {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof set, &set) != 0) return 0;
  std::uint64_t mask = 0;
  for (int cpu = 0; cpu < 64; ++cpu)
    if (CPU_ISSET(cpu, &set)) mask |= std::uint64_t{1} << cpu;
  return mask;
}

void* FindFunction(const char* name) { return dlsym(RTLD_DEFAULT, name); }

}  // namespace

// The kernel's names and release, and the functions of the C library that
// not every version has.
ZyrResult ZyrBasOsSystemFacts(ZyrBasSystemInfo& info, ZyrBasOptionalFunctions& optional) {
  KernelNames names;
  ZyrResult r = KernelNamesGet(&names);
  if (ZyrFailed(r)) return r;
  std::uint32_t major, minor, patch;
  ZyrBasParseKernelRelease(names.release, &major, &minor, &patch);
  std::uint32_t kind = ZyrBasArchitectureKindOf(names.machine);
  ZyrBasString text;
  r = ZyrBasComposeKernelOsText(names.sysname, names.release, names.version, kind, text);
  if (ZyrFailed(r)) return r;

  optional.statx = FindFunction("statx");
  optional.renameat2 = FindFunction("renameat2");
  optional.copyFileRange = FindFunction("copy_file_range");
  optional.closeRange = FindFunction("close_range");
  optional.pidfdOpen = FindFunction("pidfd_open");
  optional.gettid = FindFunction("gettid");

  info.platform = 1;
  info.major = major;
  info.minor = minor;
  info.build = static_cast<std::uint16_t>(patch > 0xFFFF ? 0xFFFF : patch);
  info.architectureKind = kind;
  info.processWidth = sizeof(void*) == 8 ? ZYR_ARCH_AMD64 : ZYR_ARCH_X86;
  std::memcpy(info.osText, text.Text(), text.Length() * sizeof(char16_t));
  info.osText[text.Length()] = 0;
  info.pageSize = PageSizeBytes();
  info.allocationGranularity = info.pageSize;
  info.processorMask = ProcessorMask();
  return ZYR_OK;
}
