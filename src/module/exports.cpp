// The exports through which clients reach the library.
#include <cstdint>
#include <cstring>

#include "base/string.h"
#include "base/sync.h"
#include "client/log_object.h"
#include "engine/manager.h"
#include "module/module.h"
#include "zyrlog/zyrlog.h"

namespace {
bool IsLogIid(const ZyrIid* iid) {
  return ZyrIidEquals(*iid, IID_IZyrLog) || ZyrIidEquals(*iid, IID_IZyrLogLevel1) ||
         ZyrIidEquals(*iid, IID_IZyrLogLevel2) || ZyrIidEquals(*iid, IID_IZyrLogLevel3);
}
}  // namespace

// A null identifier or out-pointer is a caller's error; it is answered with
// ZYR_E_INVALID_ARGUMENT rather than a crash inside the caller's process.
ZYR_EXPORT ZyrResult GetZyrObject(const ZyrIid* iid, void** object) {
  if (!iid || !object) return ZYR_E_INVALID_ARGUMENT;
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
  if (!iid || !log) return ZYR_E_INVALID_ARGUMENT;
  if (!IsLogIid(iid)) return ZYR_E_NOT_SUPPORTED;
  void* access = nullptr;
  ZyrResult r = GetZyrObject(&IID_IZyrLogAccess, &access);
  if (ZyrFailed(r)) return r;
  *log = static_cast<IZyrLogAccess*>(access)->GetLog();
  return ZYR_OK;
}

ZYR_EXPORT ZyrResult ZyrReleaseLogObject(const ZyrIid* iid, IZyrLog* log) {
  if (!iid || !IsLogIid(iid) || !log) return ZYR_OK;  // caller errors have no result
  if (ZyrModuleFinished()) return ZYR_OK;     // the object no longer exists
  ZyrLogObject::FromLog(log)->Release();
  return ZYR_OK;
}

// Reconfiguration from outside the client's own logic: the named file is
// loaded through every object, each with its own folders.
namespace {
struct ReconfigureWalk {
  const char16_t* fileName;
  std::uint32_t mode;
};
void ReconfigureOne(ZyrLogObject* object, void* context) {
  auto* walk = static_cast<ReconfigureWalk*>(context);
  IZyrLog* log = object;
  // A failure with one object does not stop the walk.
  if (walk->mode == 0) (void)log->ReconfigureLoadConfigFile(walk->fileName);
  else if (walk->mode == 1) (void)log->ReconfigureLoadPrivateConfigFile(walk->fileName);
}
}  // namespace

ZYR_EXPORT ZyrResult ZyrLogLibraryReconfigure(const char16_t* fileName, std::uint32_t mode) {
  ReconfigureWalk walk{fileName, mode};
  ZyrModuleForEachObject(&ReconfigureOne, &walk);
  return ZYR_OK;
}

ZYR_EXPORT ZyrResult ZyrLogLibraryReloadConfig() {
  ZyrLogManager* manager = nullptr;
  ZyrResult r = ZyrLogManager::Acquire(&manager);
  if (ZyrFailed(r)) return r;
  r = manager->ReloadConfig();
  manager->Release();
  return r;
}

namespace {
[[noreturn]] void EndThread(ZyrResult status) {
  ZyrBasEndThread(status);
}
}  // namespace

// The blob: a 64-bit count of UTF-16 units, the units, a 32-bit mode; all
// little-endian, unaligned, no length travels with it.
ZYR_EXPORT void* ZyrLogLibraryRemoteReconfigure(void* blob) {
  const auto* bytes = static_cast<const unsigned char*>(blob);
  std::uint64_t length;
  std::memcpy(&length, bytes, sizeof length);
  ZyrBasString fileName;
  if (length) {
    if (ZyrFailed(fileName.Resize(static_cast<std::size_t>(length)))) EndThread(ZYR_E_OUT_OF_MEMORY);
    std::memcpy(fileName.Data(), bytes + 8, static_cast<std::size_t>(length) * 2);
  }
  std::uint32_t mode;
  std::memcpy(&mode, bytes + 8 + 2 * length, sizeof mode);
  EndThread(ZyrLogLibraryReconfigure(fileName.Text(), mode));
}

ZYR_EXPORT void* ZyrLogLibraryRemoteReloadConfig(void*) { EndThread(ZyrLogLibraryReloadConfig()); }
