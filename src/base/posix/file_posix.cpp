#include "base/os/file_os.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/xattr.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/memory.h"
#include "base/result.h"
#include "base/os/security_os.h"
#include "base/security.h"

namespace {

// The most that one read or write call moves on Linux.
constexpr std::size_t kMaxIo = 0x7ffff000;

// Where the file system keeps no birth time, the creation time lives in
// this attribute, as an NT time of 8 bytes, little-endian.
constexpr char kCreatedAttribute[] = "user.zyrlog.created";

constexpr std::int64_t kUnixEpochInNt = 116444736000000000ll;

std::int64_t NtTime(std::int64_t seconds, std::uint32_t nanoseconds) {
  return kUnixEpochInNt + seconds * 10000000ll + nanoseconds / 100;
}

std::int64_t NtTime(const struct statx_timestamp& t) { return NtTime(t.tv_sec, t.tv_nsec); }

std::int64_t NtNow() {
  struct timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  return NtTime(ts.tv_sec, static_cast<std::uint32_t>(ts.tv_nsec));
}

ZyrResult LastError() { return ZyrResultFromErrno(errno); }

constexpr unsigned kStatxMask = STATX_BASIC_STATS | STATX_BTIME;

// Fills the entry from statx. `fd` or `path` serves to read the stored
// creation time where there is no birth time.
void Fill(const struct statx& sx, int fd, const char* path, bool linkToDirectory,
          ZyrBasDirEntry* e) {
  std::uint32_t a = 0;
  if (S_ISDIR(sx.stx_mode)) a |= ZYR_ATTR_DIRECTORY;
  if (S_ISLNK(sx.stx_mode)) a |= ZYR_ATTR_REPARSE_POINT | (linkToDirectory ? ZYR_ATTR_DIRECTORY : 0);
  if ((sx.stx_mode & 0222) == 0) a |= ZYR_ATTR_READONLY;
  if (a == 0) a = ZYR_ATTR_NORMAL;
  e->attributes = a;
  e->lastAccessTime = NtTime(sx.stx_atime);
  e->lastWriteTime = NtTime(sx.stx_mtime);
  e->changeTime = NtTime(sx.stx_ctime);
  e->sizeHigh = static_cast<std::uint32_t>(sx.stx_size >> 32);
  e->sizeLow = static_cast<std::uint32_t>(sx.stx_size);
  e->extendedAttributesSize = 0;
  e->shortName[0] = 0;
  if (sx.stx_mask & STATX_BTIME) {
    e->creationTime = NtTime(sx.stx_btime);
    return;
  }
  std::int64_t stored = 0;
  ssize_t n = -1;
  if (fd >= 0) n = fgetxattr(fd, kCreatedAttribute, &stored, sizeof stored);
  else if (path) n = lgetxattr(path, kCreatedAttribute, &stored, sizeof stored);
  e->creationTime = n == static_cast<ssize_t>(sizeof stored) ? stored : e->lastWriteTime;
}

bool LeadsToDirectory(int dirfd, const char* path) {
  struct stat st;
  return fstatat(dirfd, path, &st, 0) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace

// ---------------------------------------------------------------------------
// Open files

ZyrResult ZyrBasOsOpen(const char* path, std::uint32_t mode, std::uint32_t access,
                       std::uint32_t options, int* handle, bool* created) {
  *handle = -1;
  *created = false;
  int flags = O_CLOEXEC;
  // O_NOFOLLOW answers a link at the final name with ELOOP, which maps to
  // ZYR_E_INVALID_NAME; O_EXCL creation never follows a link anyway.
  if (options & ZYR_FILE_NO_LINK) flags |= O_NOFOLLOW;
  if ((access & 3) == 3) flags |= O_RDWR;
  else if (access & 2) flags |= O_WRONLY;
  else flags |= O_RDONLY;  // no access at all still needs a descriptor: read-only asks least
  // Modes that may create try to create first, so that the caller learns
  // whether the file is new and only a new file gets the shared mode.
  int createFirst = -1, otherwise = 0;
  switch (mode) {
    case ZYR_FILE_CREATE_NEW: createFirst = O_CREAT | O_EXCL; otherwise = -1; break;
    case ZYR_FILE_CREATE_ALWAYS: createFirst = O_CREAT | O_EXCL; otherwise = O_TRUNC; break;
    case ZYR_FILE_OPEN_EXISTING: otherwise = 0; break;
    case ZYR_FILE_OPEN_ALWAYS: createFirst = O_CREAT | O_EXCL; otherwise = 0; break;
    case ZYR_FILE_TRUNCATE_EXISTING: otherwise = O_TRUNC; break;
    case ZYR_FILE_APPEND: createFirst = O_CREAT | O_EXCL | O_APPEND; otherwise = O_APPEND; break;
    default: return ZYR_E_INVALID_ARGUMENT;
  }
  int fd = -1;
  for (int attempt = 0; fd < 0; ++attempt) {
    if (createFirst >= 0) {
      do fd = open(path, flags | createFirst, 0666);
      while (fd < 0 && errno == EINTR);
      if (fd >= 0) {
        *created = true;
        break;
      }
      if (errno != EEXIST || otherwise < 0) return LastError();
    }
    do fd = open(path, flags | otherwise);
    while (fd < 0 && errno == EINTR);
    if (fd >= 0) break;
    if (errno != ENOENT || createFirst < 0) return LastError();
    // Gone between the two calls, or a link that leads nowhere: after a few
    // rounds, create through the link without learning who made the file.
    // (With ZYR_FILE_NO_LINK a link fails above and never gets here.)
    if (attempt >= 2) {
      fd = open(path, flags | (createFirst & ~O_EXCL) | otherwise, 0666);
      if (fd < 0) return LastError();
    }
  }
  if (*created) {
    // The security layer decides what "shared by all" means for a file; a
    // failure leaves the umask's mode.
    if (options & ZYR_FILE_SHARED_BY_ALL) (void)ZyrBasOsApplySecurityForm(fd, ZYR_SECURITY_LOG_FILE, false);
    struct statx sx;
    if (statx(fd, "", AT_EMPTY_PATH, STATX_BTIME, &sx) == 0 && !(sx.stx_mask & STATX_BTIME)) {
      std::int64_t now = NtNow();
      fsetxattr(fd, kCreatedAttribute, &now, sizeof now, 0);  // best effort: last-write stands in
    }
  }
  if (options & ZYR_FILE_RANDOM_ACCESS) posix_fadvise(fd, 0, 0, POSIX_FADV_RANDOM);
  if (options & ZYR_FILE_SEQUENTIAL) posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
  *handle = fd;
  return ZYR_OK;
}

ZyrResult ZyrBasOsClose(int handle) {
  // Linux releases the descriptor even when close reports a failure, so
  // EINTR is not retried.
  if (close(handle) != 0 && errno != EINTR) return LastError();
  return ZYR_OK;
}

ZyrResult ZyrBasOsReadAt(int handle, std::int64_t offset, void* buffer, std::size_t count,
                         std::size_t* done) {
  if (count > kMaxIo) count = kMaxIo;
  ssize_t n;
  do n = pread(handle, buffer, count, offset);
  while (n < 0 && errno == EINTR);
  if (n < 0) {
    *done = 0;
    return LastError();
  }
  *done = static_cast<std::size_t>(n);
  return ZYR_OK;
}

ZyrResult ZyrBasOsWriteAt(int handle, std::int64_t offset, const void* buffer, std::size_t count,
                          std::size_t* done) {
  if (count > kMaxIo) count = kMaxIo;
  ssize_t n;
  // On a descriptor opened for appending, Linux puts this at the end
  // whatever the offset, which is what append mode promises.
  do n = pwrite(handle, buffer, count, offset);
  while (n < 0 && errno == EINTR);
  if (n < 0) {
    *done = 0;
    return LastError();
  }
  *done = static_cast<std::size_t>(n);
  return ZYR_OK;
}

ZyrResult ZyrBasOsAppend(int handle, bool appendMode, const void* buffer, std::size_t count,
                         std::size_t* done) {
  *done = 0;
  if (count > kMaxIo) count = kMaxIo;
  ssize_t n;
  if (appendMode) {
    do n = write(handle, buffer, count);
    while (n < 0 && errno == EINTR);
  } else {
    // A per-call append: the kernel picks the end at the moment of the
    // write, as for a descriptor opened for appending.
    struct iovec v = {const_cast<void*>(buffer), count};
    do n = pwritev2(handle, &v, 1, -1, RWF_APPEND);
    while (n < 0 && errno == EINTR);
    if (n < 0 && (errno == EOPNOTSUPP || errno == ENOSYS || errno == EINVAL)) {
      // Kernels before 4.16: seek and write, which is not atomic between
      // processes.
      if (lseek(handle, 0, SEEK_END) < 0) return LastError();
      do n = write(handle, buffer, count);
      while (n < 0 && errno == EINTR);
    }
  }
  if (n < 0) return LastError();
  *done = static_cast<std::size_t>(n);
  return ZYR_OK;
}

ZyrResult ZyrBasOsSetAppendMode(int* handle) {
  int flags = fcntl(*handle, F_GETFL);
  if (flags < 0 || fcntl(*handle, F_SETFL, flags | O_APPEND) != 0) return LastError();
  return ZYR_OK;
}

ZyrResult ZyrBasOsPosition(int handle, std::int64_t* position) {
  // SEEK_CUR by 0 reads the position and moves nothing.
  off_t at = lseek(handle, 0, SEEK_CUR);
  if (at < 0) return LastError();
  *position = at;
  return ZYR_OK;
}

#ifndef RWF_NOAPPEND
#define RWF_NOAPPEND 0x00000020  // Linux 6.9; older headers lack it
#endif

ZyrResult ZyrBasOsOverwrite(int handle, std::int64_t offset, const void* buffer, std::size_t count) {
  // Never by clearing O_APPEND for a moment: a forked child shares the
  // open file description, and its lines would land at a stale position.
  struct iovec v = {const_cast<void*>(buffer), count};
  ssize_t n;
  do n = pwritev2(handle, &v, 1, offset, RWF_NOAPPEND);
  while (n < 0 && errno == EINTR);
  if (n < 0) return errno == EOPNOTSUPP || errno == EINVAL ? ZYR_E_NOT_SUPPORTED : LastError();
  return static_cast<std::size_t>(n) == count ? ZYR_OK : ZYR_E_DISK_FULL;
}

ZyrResult ZyrBasOsGetSize(int handle, std::uint64_t* size) {
  struct stat st;
  if (fstat(handle, &st) != 0) return LastError();
  *size = static_cast<std::uint64_t>(st.st_size);
  return ZYR_OK;
}

ZyrResult ZyrBasOsSetSize(int handle, std::uint64_t size) {
  if (size > static_cast<std::uint64_t>(INT64_MAX)) return ZYR_E_INVALID_ARGUMENT;
  int r;
  do r = ftruncate(handle, static_cast<off_t>(size));
  while (r != 0 && errno == EINTR);
  return r == 0 ? ZYR_OK : LastError();
}

ZyrResult ZyrBasOsFlush(int handle) { return fdatasync(handle) == 0 ? ZYR_OK : LastError(); }

ZyrResult ZyrBasOsQueryHandle(int handle, ZyrBasDirEntry* entry) {
  struct statx sx;
  if (statx(handle, "", AT_EMPTY_PATH, kStatxMask, &sx) != 0) return LastError();
  entry->name[0] = 0;
  entry->nameLength = 0;
  Fill(sx, handle, nullptr, false, entry);
  return ZYR_OK;
}

ZyrResult ZyrBasOsSetCreationTime(int handle, std::int64_t time) {
  return fsetxattr(handle, kCreatedAttribute, &time, sizeof time, 0) == 0 ? ZYR_OK : LastError();
}

ZyrResult ZyrBasOsDeleteName(const char* path) { return unlink(path) == 0 ? ZYR_OK : LastError(); }

ZyrResult ZyrBasOsIsSameFile(int handle, const char* path, bool* same) {
  *same = false;
  struct stat open, named;
  if (fstat(handle, &open) != 0) return LastError();
  if (lstat(path, &named) != 0) return errno == ENOENT || errno == ENOTDIR ? ZYR_OK : LastError();
  *same = open.st_dev == named.st_dev && open.st_ino == named.st_ino;
  return ZYR_OK;
}

// ---------------------------------------------------------------------------
// Views

std::size_t ZyrBasOsPageSize() {
  static std::atomic<std::size_t> page{0};
  std::size_t p = page.load(std::memory_order_relaxed);
  if (p == 0) {
    long v = sysconf(_SC_PAGESIZE);
    p = v > 0 ? static_cast<std::size_t>(v) : 4096;
    page.store(p, std::memory_order_relaxed);  // the same value from every thread
  }
  return p;
}

ZyrResult ZyrBasOsMap(int handle, std::uint64_t offset, std::size_t size, bool writable,
                      void** address) {
  void* p = mmap(nullptr, size, PROT_READ | (writable ? PROT_WRITE : 0), MAP_SHARED, handle,
                 static_cast<off_t>(offset));
  if (p == MAP_FAILED) return LastError();
  *address = p;
  return ZYR_OK;
}

ZyrResult ZyrBasOsUnmap(void* address, std::size_t size) {
  return munmap(address, size) == 0 ? ZYR_OK : LastError();
}

ZyrResult ZyrBasOsFlushView(void* address, std::size_t size) {
  return msync(address, size, MS_SYNC) == 0 ? ZYR_OK : LastError();
}

// ---------------------------------------------------------------------------
// By path

ZyrResult ZyrBasOsQueryPath(const char* path, ZyrBasDirEntry* entry, bool withCompression) {
  struct statx sx;
  if (statx(AT_FDCWD, path, AT_SYMLINK_NOFOLLOW, kStatxMask, &sx) != 0) return LastError();
  entry->name[0] = 0;
  entry->nameLength = 0;
  bool link = S_ISLNK(sx.stx_mode);
  Fill(sx, -1, path, link && LeadsToDirectory(AT_FDCWD, path), entry);
  if (withCompression && (S_ISREG(sx.stx_mode) || S_ISDIR(sx.stx_mode))) {
    // The compression flag needs an open file; a file that cannot be opened
    // simply shows none.
    int fd = open(path, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    if (fd >= 0) {
      int flags = 0;
      if (ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0 && (flags & FS_COMPR_FL)) {
        entry->attributes &= ~ZYR_ATTR_NORMAL;
        entry->attributes |= ZYR_ATTR_COMPRESSED;
      }
      close(fd);
    }
  }
  return ZYR_OK;
}

ZyrResult ZyrBasOsCreateDirectory(const char* path) {
  return mkdir(path, 0777) == 0 ? ZYR_OK : LastError();
}

ZyrResult ZyrBasOsDeleteFile(const char* path) { return unlink(path) == 0 ? ZYR_OK : LastError(); }

ZyrResult ZyrBasOsRemoveDirectory(const char* path) {
  struct stat st;
  if (lstat(path, &st) == 0 && S_ISLNK(st.st_mode)) return unlink(path) == 0 ? ZYR_OK : LastError();
  return rmdir(path) == 0 ? ZYR_OK : LastError();
}

ZyrResult ZyrBasOsRename(const char* source, const char* target, bool* crossDevice) {
  *crossDevice = false;
  if (rename(source, target) == 0) return ZYR_OK;
  *crossDevice = errno == EXDEV;
  return LastError();
}

ZyrResult ZyrBasOsRenameNoReplace(const char* source, const char* target) {
  if (renameat2(AT_FDCWD, source, AT_FDCWD, target, RENAME_NOREPLACE) == 0) return ZYR_OK;
  if (errno != EINVAL && errno != ENOSYS) return LastError();
  // A file system without the flag: a second name cannot replace anything,
  // and the first goes once the second stands.
  if (link(source, target) != 0) return LastError();
  return unlink(source) == 0 ? ZYR_OK : LastError();
}

ZyrResult ZyrBasOsCopyFile(const char* source, const char* target) {
  int in = open(source, O_RDONLY | O_CLOEXEC);
  if (in < 0) return LastError();
  struct stat st;
  if (fstat(in, &st) != 0 || S_ISDIR(st.st_mode)) {
    ZyrResult r = S_ISDIR(st.st_mode) ? ZyrResultFromErrno(EISDIR) : LastError();
    close(in);
    return r;
  }
  int out = open(target, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, st.st_mode & 0777);
  if (out < 0) {
    ZyrResult r = LastError();
    close(in);
    return r;
  }
  constexpr std::size_t kChunk = 65536;
  char* buffer = static_cast<char*>(ZyrBasAlloc(kChunk));
  ZyrResult r = buffer ? ZYR_OK : ZYR_E_OUT_OF_MEMORY;
  while (ZyrSucceeded(r)) {
    ssize_t n = read(in, buffer, kChunk);
    if (n < 0) {
      if (errno == EINTR) continue;
      r = LastError();
      break;
    }
    if (n == 0) break;
    for (ssize_t w = 0; w < n;) {
      ssize_t k = write(out, buffer + w, static_cast<std::size_t>(n - w));
      if (k < 0) {
        if (errno == EINTR) continue;
        r = LastError();
        break;
      }
      w += k;
    }
  }
  ZyrBasFree(buffer);
  if (ZyrSucceeded(r)) {
    struct timespec times[2] = {st.st_atim, st.st_mtim};
    if (futimens(out, times) != 0) r = LastError();
  }
  if (ZyrSucceeded(r)) {
    r = ZyrBasOsCarrySecurity(in, out);
  }
  if (close(out) != 0 && errno != EINTR && ZyrSucceeded(r)) r = LastError();
  close(in);
  if (ZyrFailed(r)) unlink(target);  // no half copy remains
  return r;
}

// ---------------------------------------------------------------------------
// Directories

struct ZyrBasOsDir {
  DIR* dir = nullptr;
  char* path = nullptr;  // native, terminated; for stored creation times
  std::size_t pathLength = 0;
};

ZyrResult ZyrBasOsDirOpen(const char* path, ZyrBasOsDir** out) {
  *out = nullptr;
  ZyrBasOsDir* d = ZyrNew<ZyrBasOsDir>();
  if (!d) return ZYR_E_OUT_OF_MEMORY;
  d->pathLength = std::strlen(path);
  d->path = static_cast<char*>(ZyrBasAlloc(d->pathLength + 1));
  if (!d->path) {
    ZyrDelete(d);
    return ZYR_E_OUT_OF_MEMORY;
  }
  std::memcpy(d->path, path, d->pathLength + 1);
  d->dir = opendir(path);
  if (!d->dir) {
    ZyrResult r = LastError();
    ZyrBasFree(d->path);
    ZyrDelete(d);
    return r;
  }
  *out = d;
  return ZYR_OK;
}

ZyrResult ZyrBasOsDirRead(ZyrBasOsDir* dir, const char** name, std::size_t* length,
                          ZyrBasOsEntryKind* kind) {
  errno = 0;
  struct dirent* e = readdir(dir->dir);
  if (!e) return errno ? LastError() : ZYR_I_NO_MORE_ITEMS;
  *name = e->d_name;
  *length = std::strlen(e->d_name);
  switch (e->d_type) {
    case DT_DIR: *kind = ZYR_OS_KIND_DIRECTORY; break;
    case DT_LNK: *kind = ZYR_OS_KIND_LINK; break;
    case DT_UNKNOWN: *kind = ZYR_OS_KIND_UNKNOWN; break;
    default: *kind = ZYR_OS_KIND_OTHER; break;
  }
  return ZYR_OK;
}

ZyrResult ZyrBasOsDirQuery(ZyrBasOsDir* dir, const char* name, ZyrBasDirEntry* entry) {
  int dfd = dirfd(dir->dir);
  struct statx sx;
  if (statx(dfd, name, AT_SYMLINK_NOFOLLOW, kStatxMask, &sx) != 0) return LastError();
  bool link = S_ISLNK(sx.stx_mode);
  // The stored creation time is read by full name, and only where needed.
  char stackPath[512];
  char* full = nullptr;
  if (!(sx.stx_mask & STATX_BTIME)) {
    std::size_t n = std::strlen(name);
    std::size_t need = dir->pathLength + 1 + n + 1;
    full = need <= sizeof stackPath ? stackPath : static_cast<char*>(ZyrBasAlloc(need));
    if (full) {
      std::memcpy(full, dir->path, dir->pathLength);
      full[dir->pathLength] = '/';
      std::memcpy(full + dir->pathLength + 1, name, n + 1);
    }
  }
  Fill(sx, -1, full, link && LeadsToDirectory(dfd, name), entry);
  if (full && full != stackPath) ZyrBasFree(full);
  return ZYR_OK;
}

void ZyrBasOsDirRewind(ZyrBasOsDir* dir) { rewinddir(dir->dir); }

void ZyrBasOsDirClose(ZyrBasOsDir* dir) {
  if (!dir) return;
  closedir(dir->dir);
  ZyrBasFree(dir->path);
  ZyrDelete(dir);
}
