#include "base/startup.h"

#include "base/lock.h"

namespace {
ZyrBasSpinLock g_startLock;
unsigned g_startCount;
}  // namespace

ZyrResult ZyrBasStartup() {
  ZyrBasSpinGuard guard(g_startLock);
  ++g_startCount;
  return ZYR_OK;
}

void ZyrBasShutdown() {
  ZyrBasSpinGuard guard(g_startLock);
  if (g_startCount > 0) --g_startCount;
}

ZyrResult ZyrBasThreadAttach() { return ZYR_OK; }
