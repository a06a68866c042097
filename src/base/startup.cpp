#include "base/startup.h"

#include "base/folders.h"
#include "base/lock.h"
#include "base/random.h"
#include "base/sysinfo.h"
#include "base/sync.h"

namespace {
ZyrBasSpinLock g_startLock;
unsigned g_startCount;
}  // namespace

// The first start stirs the shared random generator and learns the system;
// later starts only count, so that a second start within the process does
// nothing else. A failed start keeps its count: the module's load reports
// it and ends.
ZyrResult ZyrBasStartup() {
  ZyrBasSpinGuard guard(g_startLock);
  if (g_startCount++ != 0) return ZYR_OK;
  ZyrBasRandomSeed();
  ZyrResult r = ZyrBasSystemInfoInit();
  if (ZyrFailed(r)) return r;
  // Then the folders. A folder that cannot be learnt stays empty and only
  // its own query fails: no process should lose its log library over an
  // odd value of its environment. Memory is another matter.
  r = ZyrBasInitFolders();
  return r == ZYR_E_OUT_OF_MEMORY ? r : ZYR_OK;
}

void ZyrBasShutdown() {
  ZyrBasSpinGuard guard(g_startLock);
  if (g_startCount > 0) --g_startCount;
}

ZyrResult ZyrBasThreadAttach() { return ZyrBasThreadRecordAttach(); }
