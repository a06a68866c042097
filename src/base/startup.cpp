#include "base/startup.h"

#include "base/lock.h"
#include "base/random.h"
#include "base/sync.h"

namespace {
ZyrBasSpinLock g_startLock;
unsigned g_startCount;
}  // namespace

// The first start stirs the shared random generator; later starts only
// count, so that a second start within the process does nothing else.
ZyrResult ZyrBasStartup() {
  ZyrBasSpinGuard guard(g_startLock);
  if (g_startCount++ == 0) ZyrBasRandomSeed();
  return ZYR_OK;
}

void ZyrBasShutdown() {
  ZyrBasSpinGuard guard(g_startLock);
  if (g_startCount > 0) --g_startCount;
}

ZyrResult ZyrBasThreadAttach() { return ZyrBasThreadRecordAttach(); }
