// Open-file-description locks: they belong to the open file like the locks
// of a handle, and are released with its last descriptor, so a process that
// dies while holding one blocks nobody.
#include <fcntl.h>

#include <atomic>
#include <cerrno>

#include "base/file_lock.h"
#include "base/result.h"

namespace {

std::atomic<ZyrResult> g_refusal{ZYR_OK};

ZyrResult SetLock(int handle, short type) {
  if (handle < 0) return ZYR_E_INVALID_HANDLE;
  ZyrResult refusal = g_refusal.load(std::memory_order_relaxed);
  if (ZyrFailed(refusal) && type != F_UNLCK) return refusal;
  struct flock lock = {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = 0;
  lock.l_len = 0;  // to the end of the file, however far it grows
  int r;
  do r = fcntl(handle, F_OFD_SETLK, &lock);
  while (r != 0 && errno == EINTR);
  if (r == 0) return ZYR_OK;
  switch (errno) {
    case EAGAIN:
    case EACCES:
      return ZYR_W_TIMEOUT;
    case ENOLCK:
    case EINVAL:
    case EOPNOTSUPP:
      return ZYR_E_NOT_SUPPORTED;
    default:
      return ZyrResultFromErrno(errno);
  }
}

}  // namespace

ZyrResult ZyrBasTryLockFile(ZyrBasFileBase& file, bool exclusive) {
  return SetLock(file.NativeHandle(), exclusive ? F_WRLCK : F_RDLCK);
}

ZyrResult ZyrBasUnlockFile(ZyrBasFileBase& file) { return SetLock(file.NativeHandle(), F_UNLCK); }

void ZyrBasTestRefuseFileLocks(ZyrResult answer) { g_refusal.store(answer, std::memory_order_relaxed); }
