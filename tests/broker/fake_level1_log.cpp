// A log library of level 1: it grants IZyrLog only at the first level, so
// the framework-bound client must step down to it.
#include "zyrlog/zyrlog.h"

namespace {
char g_log;  // an address to hand out; the client never calls through it here
}

ZYR_EXPORT ZyrResult ZyrGetLogObject(const ZyrIid* iid, IZyrLog** log) {
  if (!ZyrIidEquals(*iid, IID_IZyrLogLevel1)) return ZYR_E_NOT_SUPPORTED;
  *log = reinterpret_cast<IZyrLog*>(&g_log);
  return ZYR_OK;
}

ZYR_EXPORT ZyrResult ZyrReleaseLogObject(const ZyrIid*, IZyrLog*) { return ZYR_OK; }
