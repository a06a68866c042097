#include "base/folder_watch.h"

#include "base/os/folder_watch_os.h"
#include "base/os/sync_os.h"
#include "base/os/native_path.h"

ZyrResult ZyrBasFolderWatch::Open(const char16_t* folder) {
  if (GetKind() != kNothing) return ZYR_E_ALREADY_EXISTS;
  if (!folder) return ZYR_E_INVALID_ARGUMENT;
  ZyrBasNarrowText native;
  ZyrResult r = ZyrBasNativePath(folder, ZYR_TERMINATED, native);
  if (ZyrFailed(r)) return r;
  ZyrBasHandle handle = ZYR_NO_HANDLE;
  r = ZyrBasOsFolderWatchOpen(native.Data(), &handle);
  if (ZyrFailed(r)) return r;
  r = Adopt(handle);
  if (ZyrFailed(r)) (void)ZyrBasOsClose(handle);
  return r;
}

ZyrResult ZyrBasFolderWatch::Rearm() {
  if (!IsOpen()) return ZYR_E_INVALID_HANDLE;
  bool ended = false;
  ZyrResult r = ZyrBasOsFolderWatchRead(Resolve(), &ended);
  if (ZyrSucceeded(r) && ended) r = ZYR_E_PATH_NOT_FOUND;
  return r;
}
