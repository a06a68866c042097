#include "base/posix/readfile.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/memory.h"
#include "base/result.h"
#include "base/string.h"
#include "base/textconv.h"

ZyrResult ZyrBasReadOnlyFile::Open(const char16_t* path) noexcept {
  Close();
  if (!path || !path[0]) return ZYR_E_INVALID_ARGUMENT;
  std::size_t length = 0;
  ZyrResult r = ZyrBasMeasureNarrow(&length, path, ZYR_CP_UTF8);
  if (ZyrFailed(r)) return r;
  char* native = static_cast<char*>(ZyrBasAlloc(length + 1));
  if (!native) return ZYR_E_OUT_OF_MEMORY;
  std::size_t written = 0;
  r = ZyrBasToNarrow(native, length + 1, path, ZYR_CP_UTF8, &written);
  if (ZyrSucceeded(r)) {
    native[written] = 0;
    for (std::size_t i = 0; i < written; ++i)
      if (native[i] == '\\') native[i] = '/';
    int fd;
    do {
      fd = ::open(native, O_RDONLY | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
      r = ZyrResultFromErrno(errno);
    } else {
      // A folder opens for reading here but is no file to read.
      struct stat st;
      if (::fstat(fd, &st) != 0) {
        r = ZyrResultFromErrno(errno);
        ::close(fd);
      } else if (S_ISDIR(st.st_mode)) {
        r = ZyrResultFromErrno(EISDIR);
        ::close(fd);
      } else {
        fd_ = fd;
      }
    }
  }
  ZyrBasFree(native);
  return r;
}

ZyrResult ZyrBasReadOnlyFile::Read(void* buffer, std::size_t count, std::size_t* got) noexcept {
  *got = 0;
  if (fd_ < 0) return ZYR_E_INVALID_HANDLE;
  char* out = static_cast<char*>(buffer);
  std::size_t total = 0;
  // A pipe or a slow device may give less than asked before the end.
  while (total < count) {
    ssize_t n = ::read(fd_, out + total, count - total);
    if (n < 0) {
      if (errno == EINTR) continue;
      *got = total;
      return ZyrResultFromErrno(errno);
    }
    if (n == 0) break;
    total += static_cast<std::size_t>(n);
  }
  *got = total;
  if (total == count) return ZYR_OK;
  return total == 0 ? ZYR_E_END_OF_DATA : ZYR_I_SHORT_READ;
}

void ZyrBasReadOnlyFile::Close() noexcept {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}
