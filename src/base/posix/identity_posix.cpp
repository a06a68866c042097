#include "base/os/identity_os.h"

#include <dlfcn.h>

#include <atomic>
#include <errno.h>
#include <limits.h>
#include <link.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <pwd.h>
#include <unistd.h>

#include <cstring>

#include "base/result.h"

ZyrResult ZyrBasOsGetEnv(const char* name, ZyrBasNarrowText& out) {
  const char* value = getenv(name);
  if (!value) return ZYR_I_NOT_FOUND;
  std::size_t n = std::strlen(value);
  ZyrResult r = out.Resize(n);
  if (ZyrFailed(r)) return r;
  std::memcpy(out.Data(), value, n);
  return ZYR_OK;
}

ZyrResult ZyrBasOsHostName(ZyrBasNarrowText& out) {
  ZyrResult r = out.Reserve(HOST_NAME_MAX + 2);
  if (ZyrFailed(r)) return r;
  char* data = out.Data();
  if (gethostname(data, HOST_NAME_MAX + 1) != 0) return ZYR_I_NOT_FOUND;
  data[HOST_NAME_MAX + 1] = 0;  // a truncated name need not be terminated
  r = out.Resize(ZYR_TERMINATED);
  if (ZyrFailed(r)) return r;
  return out.Length() == 0 ? ZYR_I_NOT_FOUND : ZYR_OK;
}

// getpid and gettid are system calls, and both ids go into every log line,
// so the process keeps its id and each thread its own. After a fork the
// child has a new process id and its forking thread a new thread id; the
// child hook forgets the kept ones.
namespace {
// Initial-exec: read straight from the thread's block, without the call
// that a module's dynamic TLS costs on every message of the queue road.
__attribute__((tls_model("initial-exec"))) thread_local std::uint32_t tThreadId = 0;
std::atomic<std::uint32_t> gProcessId{0};
pthread_once_t gForkHookOnce = PTHREAD_ONCE_INIT;
void ForgetIds() {
  tThreadId = 0;
  gProcessId.store(0, std::memory_order_relaxed);
}
void InstallForkHook() { pthread_atfork(nullptr, nullptr, ForgetIds); }
}  // namespace

std::uint32_t ZyrBasOsProcessId() {
  std::uint32_t id = gProcessId.load(std::memory_order_relaxed);
  if (id == 0) {
    pthread_once(&gForkHookOnce, InstallForkHook);
    id = static_cast<std::uint32_t>(getpid());
    gProcessId.store(id, std::memory_order_relaxed);
  }
  return id;
}

std::uint32_t ZyrBasOsThreadId() {
  std::uint32_t id = tThreadId;
  if (id == 0) {
    pthread_once(&gForkHookOnce, InstallForkHook);
    id = static_cast<std::uint32_t>(gettid());
    tThreadId = id;
  }
  return id;
}

namespace {

// readlink into a text that grows until the link fits.
ZyrResult ReadLink(const char* link, ZyrBasNarrowText& out, int* error) {
  std::size_t capacity = 256;
  for (;;) {
    ZyrResult r = out.Reserve(capacity);
    if (ZyrFailed(r)) return r;
    ssize_t n = readlink(link, out.Data(), capacity - 1);
    if (n < 0) {
      *error = errno;
      return ZyrResultFromErrno(errno);
    }
    if (static_cast<std::size_t>(n) < capacity - 1) {
      out.Data()[n] = 0;
      return out.Resize(ZYR_TERMINATED);
    }
    capacity *= 2;
  }
}

}  // namespace

ZyrResult ZyrBasOsProcessImage(std::uint32_t processId, ZyrBasNarrowText& out) {
  char link[40];
  char folder[32];
  if (processId == ZyrBasOsProcessId()) {
    std::strcpy(link, "/proc/self/exe");
  } else {
    snprintf(folder, sizeof folder, "/proc/%u", processId);
    snprintf(link, sizeof link, "/proc/%u/exe", processId);
  }
  int error = 0;
  ZyrResult r = ReadLink(link, out, &error);
  if (ZyrSucceeded(r) || error != ENOENT || processId == ZyrBasOsProcessId()) return r;
  // No link: either no such process, or one without an image (a kernel
  // thread), which still has its folder.
  struct stat st;
  if (stat(folder, &st) != 0) return ZYR_E_INVALID_ARGUMENT;
  return ZYR_I_NOT_FOUND;
}

namespace {

struct ModuleSearch {
  std::uintptr_t address;
  std::uintptr_t low;
  std::uintptr_t high;
  bool found;
};

// The extent of the loaded object whose segments hold the address: from the
// lowest to the highest address of its loadable segments.
int FindExtent(struct dl_phdr_info* info, size_t, void* data) {
  ModuleSearch* search = static_cast<ModuleSearch*>(data);
  std::uintptr_t low = UINTPTR_MAX, high = 0;
  bool holds = false;
  for (ElfW(Half) i = 0; i < info->dlpi_phnum; ++i) {
    const ElfW(Phdr)& ph = info->dlpi_phdr[i];
    if (ph.p_type != PT_LOAD) continue;
    std::uintptr_t start = info->dlpi_addr + ph.p_vaddr;
    std::uintptr_t end = start + ph.p_memsz;
    if (start < low) low = start;
    if (end > high) high = end;
    if (search->address >= start && search->address < end) holds = true;
  }
  if (!holds) return 0;
  search->low = low;
  search->high = high;
  search->found = true;
  return 1;
}

}  // namespace

// dladdr finds the module and its name; it tells no size, which the
// loader's list of program headers gives.
ZyrResult ZyrBasOsModuleAt(const void* address, void** base, std::size_t* size,
                           ZyrBasNarrowText* path) {
  Dl_info info;
  struct link_map* map = nullptr;
  if (!address || dladdr1(address, &info, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP) == 0 ||
      !info.dli_fbase)
    return ZYR_E_INVALID_DATA;
  ModuleSearch search = {reinterpret_cast<std::uintptr_t>(address), 0, 0, false};
  dl_iterate_phdr(FindExtent, &search);
  if (!search.found) return ZYR_E_INVALID_DATA;
  if (base) *base = info.dli_fbase;
  if (size) *size = search.high - reinterpret_cast<std::uintptr_t>(info.dli_fbase);
  if (!path) return ZYR_OK;
  // The loader names the program itself by nothing (dladdr then says
  // whatever started it); its image path is the name to report.
  if (!map || !map->l_name || !*map->l_name || !info.dli_fname)
    return ZyrBasOsProcessImage(ZyrBasOsProcessId(), *path);
  std::size_t n = std::strlen(info.dli_fname);
  ZyrResult r = path->Reserve(n + 1);
  if (ZyrFailed(r)) return r;
  std::memcpy(path->Data(), info.dli_fname, n + 1);
  return path->Resize(ZYR_TERMINATED);
}

ZyrResult ZyrBasOsUserName(ZyrBasNarrowText& out) {
  char buffer[1024];
  struct passwd entry;
  struct passwd* found = nullptr;
  int e = getpwuid_r(geteuid(), &entry, buffer, sizeof buffer, &found);
  if (e != 0) return ZyrResultFromErrno(e);
  if (!found || !found->pw_name) return ZYR_I_NOT_FOUND;
  std::size_t n = std::strlen(found->pw_name);
  ZyrResult r = out.Resize(n);
  if (ZyrFailed(r)) return r;
  std::memcpy(out.Data(), found->pw_name, n);
  return ZYR_OK;
}
