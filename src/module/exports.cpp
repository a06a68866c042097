// The exports through which clients reach the library.
#include <pthread.h>

#include <cstdint>

#include "client/log_object.h"
#include "module/module.h"
#include "zyrlog/zyrlog.h"

namespace {
bool IsLogIid(const ZyrIid* iid) {
  return ZyrIidEquals(*iid, IID_IZyrLog) || ZyrIidEquals(*iid, IID_IZyrLogLevel1) ||
         ZyrIidEquals(*iid, IID_IZyrLogLevel2) || ZyrIidEquals(*iid, IID_IZyrLogLevel3);
}
}  // namespace

ZYR_EXPORT ZyrResult GetZyrObject(const ZyrIid* iid, void** object) {
  bool access = ZyrIidEquals(*iid, IID_IZyrLogAccess);
  if (!access && !ZyrIidEquals(*iid, IID_IZyrObject)) return ZYR_E_NOT_SUPPORTED;
  ZyrLogObject* o = nullptr;
  ZyrResult r = ZyrLogObject::Create(&o);
  if (ZyrFailed(r)) return r;
  r = ZyrModuleListObject(o);
  if (ZyrFailed(r)) {
    o->Destroy(1);
    return ZYR_E_OUT_OF_MEMORY;
  }
  if (access) *object = o->Access();
  else *object = static_cast<IZyrObject*>(o);
  return ZYR_OK;
}

ZYR_EXPORT ZyrResult ZyrGetLogObject(const ZyrIid* iid, IZyrLog** log) {
  if (!IsLogIid(iid)) return ZYR_E_NOT_SUPPORTED;
  void* access = nullptr;
  ZyrResult r = GetZyrObject(&IID_IZyrLogAccess, &access);
  if (ZyrFailed(r)) return r;
  *log = static_cast<IZyrLogAccess*>(access)->GetLog();
  return ZYR_OK;
}

ZYR_EXPORT ZyrResult ZyrReleaseLogObject(const ZyrIid* iid, IZyrLog* log) {
  if (!IsLogIid(iid) || !log) return ZYR_OK;  // caller errors have no result
  if (ZyrModuleFinished()) return ZYR_OK;     // the object no longer exists
  ZyrLogObject::FromLog(log)->Release();
  return ZYR_OK;
}

// Reconfiguration from outside the client's own logic: built with the
// living configuration.
ZYR_EXPORT ZyrResult ZyrLogLibraryReconfigure(const char16_t*, std::uint32_t) {
  return ZYR_E_NOT_IMPLEMENTED;
}

ZYR_EXPORT ZyrResult ZyrLogLibraryReloadConfig() { return ZYR_E_NOT_IMPLEMENTED; }

ZYR_EXPORT void* ZyrLogLibraryRemoteReconfigure(void*) {
  pthread_exit(reinterpret_cast<void*>(static_cast<std::intptr_t>(ZYR_E_NOT_IMPLEMENTED)));
}

ZYR_EXPORT void* ZyrLogLibraryRemoteReloadConfig(void*) {
  pthread_exit(reinterpret_cast<void*>(static_cast<std::intptr_t>(ZYR_E_NOT_IMPLEMENTED)));
}
