// The compression flag of a file, set through FS_IOC_SETFLAGS.
#include <errno.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "base/compression.h"
#include "base/os/native_path.h"
#include "base/result.h"

ZyrResult ZyrBasCompressionRequest::Start(const char16_t* path) {
  pending_ = false;
  if (!path) return ZYR_E_INVALID_ARGUMENT;
  ZyrBasNarrowText native;
  ZyrResult r = ZyrBasNativePath(path, ZYR_TERMINATED, native);
  if (ZyrFailed(r)) return r;
  // Read-only is enough for the flags; never through a link, and never
  // waiting on a special file that stands at the name.
  int fd = open(native.Data(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return ZyrResultFromErrno(errno);
  int flags = 0;
  r = ZYR_OK;
  struct statfs fs;
  if (fstatfs(fd, &fs) == 0 && fs.f_type == EXT4_SUPER_MAGIC) {
    // ext2, ext3 and ext4 keep the flag without compressing anything: a
    // log marked compressed there would only mislead its reader.
    r = ZYR_E_NOT_SUPPORTED;
  } else if (ioctl(fd, FS_IOC_GETFLAGS, &flags) != 0) {
    // No flags at all (tmpfs and the like): nothing to compress with.
    r = errno == ENOTTY || errno == EOPNOTSUPP || errno == EINVAL ? ZYR_E_NOT_SUPPORTED
                                                                  : ZyrResultFromErrno(errno);
  } else if (!(flags & FS_COMPR_FL)) {
    flags |= FS_COMPR_FL;
    if (ioctl(fd, FS_IOC_SETFLAGS, &flags) != 0) r = ZyrResultFromErrno(errno);
  }
  close(fd);
  return r;
}

// Nothing is ever left running here.
ZyrResult ZyrBasCompressionRequest::Wait(bool) { return ZYR_OK; }
