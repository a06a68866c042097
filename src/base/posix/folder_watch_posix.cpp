#include "base/os/folder_watch_os.h"

#include <errno.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>

#include "base/result.h"

namespace {

// Changes only. Reading a file (IN_ACCESS, IN_OPEN, IN_CLOSE_NOWRITE) is
// left out: the check that a notification sets off reads the configuration
// file in the folder, and would set off the next one.
constexpr std::uint32_t kChanges = IN_MODIFY | IN_ATTRIB | IN_CLOSE_WRITE | IN_MOVED_FROM |
                                   IN_MOVED_TO | IN_CREATE | IN_DELETE | IN_DELETE_SELF |
                                   IN_MOVE_SELF | IN_ONLYDIR;

}  // namespace

ZyrResult ZyrBasOsFolderWatchOpen(const char* path, ZyrBasHandle* out) {
  int fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (fd < 0) return ZyrResultFromErrno(errno);
  if (inotify_add_watch(fd, path, kChanges) < 0) {
    int e = errno;
    close(fd);
    return ZyrResultFromErrno(e);
  }
  *out = fd;
  return ZYR_OK;
}

ZyrResult ZyrBasOsFolderWatchRead(ZyrBasHandle handle, bool* ended) {
  alignas(inotify_event) char buffer[4096];
  *ended = false;
  for (;;) {
    ssize_t n = read(static_cast<int>(handle), buffer, sizeof buffer);
    if (n < 0) {
      if (errno == EINTR) continue;
      if (errno == EAGAIN) return ZYR_OK;  // read empty
      return ZyrResultFromErrno(errno);
    }
    if (n == 0) return ZYR_OK;
    for (std::size_t at = 0; at + sizeof(inotify_event) <= static_cast<std::size_t>(n);) {
      inotify_event event;
      std::memcpy(&event, buffer + at, sizeof event);
      if (event.mask & (IN_IGNORED | IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT)) *ended = true;
      at += sizeof(inotify_event) + event.len;
    }
  }
}
