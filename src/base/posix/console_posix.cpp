#include <errno.h>
#include <unistd.h>

#include "base/console.h"
#include "base/lock.h"
#include "base/result.h"

namespace {
ZyrBasSpinLock g_consoleLock;
}

ZyrResult ZyrBasConsoleWrite(ZyrBasConsoleTarget target, const char* bytes, std::size_t count) {
  int fd = target == ZYR_CONSOLE_STDERR ? 2 : 1;
  ZyrBasSpinGuard guard(g_consoleLock);
  std::size_t done = 0;
  while (done < count) {
    ssize_t n = write(fd, bytes + done, count - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      if (errno == EBADF) return ZYR_OK;  // no such descriptor: nothing to write to
      return ZyrResultFromErrno(errno);
    }
    done += static_cast<std::size_t>(n);
  }
  return ZYR_OK;
}
