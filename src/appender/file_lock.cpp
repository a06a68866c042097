#include "appender/file_lock.h"

#include "base/assert.h"
#include "base/file_lock.h"
#include "base/identity.h"

ZyrResult ZyrLogFileLock::Open(const char16_t* path) {
  ZYR_ASSERT(state_ == ZYR_LOCK_CLOSED);
  ZyrResult r = file_.Open(path, ZYR_FILE_OPEN_ALWAYS, ZYR_FILE_READ | ZYR_FILE_WRITE,
                           ZYR_FILE_SHARE_READ | ZYR_FILE_SHARE_WRITE,
                           ZYR_FILE_ASYNCHRONOUS | ZYR_FILE_SHARED_BY_ALL | ZYR_FILE_NO_LINK);
  if (ZyrFailed(r)) return r;
  r = path_.Assign(path);
  if (ZyrFailed(r)) {
    (void)file_.Close();
    return r;
  }
  process_ = ZyrBasCurrentProcessId();
  state_ = ZYR_LOCK_OPEN;
  return ZYR_OK;
}

ZyrResult ZyrLogFileLock::OpenBeside(const ZyrBasString& logPath) {
  ZyrBasString lockPath;
  ZyrResult r = lockPath.Assign(logPath);
  if (ZyrSucceeded(r)) r = lockPath.AppendAscii(".lock");
  if (ZyrSucceeded(r)) r = Open(lockPath.Text());
  return r;
}

ZyrResult ZyrLogFileLock::TryLock(bool exclusive) {
  if (state_ == ZYR_LOCK_CLOSED) return ZYR_E_NOT_INITIALIZED;
  if (process_ != ZyrBasCurrentProcessId()) {
    // Closing the inherited open releases nothing of the parent's: the
    // parent holds the same open file itself.
    (void)file_.Close();
    state_ = ZYR_LOCK_CLOSED;
    ZyrBasString path;
    path.Swap(path_);
    ZyrResult r = Open(path.Text());
    if (ZyrFailed(r)) return r;
  }
  ZyrResult r = ZyrBasTryLockFile(file_, exclusive);
  if (ZyrSucceeded(r)) state_ = ZYR_LOCK_HELD;
  return r;
}

void ZyrLogFileLock::Unlock() {
  ZYR_ASSERT(state_ > ZYR_LOCK_OPEN);
  (void)ZyrBasUnlockFile(file_);
  state_ = ZYR_LOCK_OPEN;
}

void ZyrLogFileLock::Close() {
  ZYR_ASSERT(state_ <= ZYR_LOCK_OPEN);
  (void)file_.Close();
  state_ = ZYR_LOCK_CLOSED;
}
