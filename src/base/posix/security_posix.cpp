#include "base/os/security_os.h"

#include <errno.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include "base/result.h"
#include "base/security.h"

std::uint32_t ZyrBasOsProcessUserId() { return static_cast<std::uint32_t>(geteuid()); }

// geteuid is a system call of the calling thread: a thread that changed its
// own ids by the raw system call (the nearest thing to impersonation here)
// sees them.
std::uint32_t ZyrBasOsThreadUserId() { return static_cast<std::uint32_t>(geteuid()); }

ZyrResult ZyrBasOsApplySecurityForm(int handle, std::uint32_t form, bool directory) {
  ZyrBasSecurity security;
  ZyrResult r = ZyrBasSecurityForForm(security, form);
  std::uint32_t mode = 0;
  if (r == ZYR_OK) r = security.FileMode(directory, &mode);
  if (r != ZYR_OK) return r;
  if (fchmod(handle, static_cast<mode_t>(mode)) != 0) return ZyrResultFromErrno(errno);
  return ZYR_OK;
}

ZyrResult ZyrBasOsCarrySecurity(int from, int to) {
  struct stat st;
  if (fstat(from, &st) != 0) return ZYR_I_SECURITY_NOT_COPIED;
  // The mode always travels; the owner only where the process may give
  // files away.
  bool carried = fchmod(to, st.st_mode & 07777) == 0;
  struct stat now;
  if (carried && fstat(to, &now) == 0 && (now.st_uid != st.st_uid || now.st_gid != st.st_gid))
    carried = fchown(to, st.st_uid, st.st_gid) == 0;
  return carried ? ZYR_OK : ZYR_I_SECURITY_NOT_COPIED;
}

namespace {
// File systems that answer every file with one mode from the mount options.
bool KeepsModes(long type) {
  switch (static_cast<unsigned long>(type)) {
    case 0x4d44:      // FAT
    case 0x2011bab0:  // exFAT
      return false;
    default:
      return true;
  }
}
}  // namespace

ZyrResult ZyrBasOsReadPathSecurity(const char* path, ZyrBasOsPathSecurity* out) {
  struct stat st;
  if (stat(path, &st) != 0) return ZyrResultFromErrno(errno);
  out->uid = st.st_uid;
  out->gid = st.st_gid;
  out->mode = st.st_mode & 07777;
  out->directory = S_ISDIR(st.st_mode);
  struct statfs fs;
  out->keepsModes = statfs(path, &fs) != 0 || KeepsModes(fs.f_type);
  return ZYR_OK;
}

ZyrResult ZyrBasOsWritePathMode(const char* path, std::uint32_t mode) {
  if (chmod(path, static_cast<mode_t>(mode)) != 0) return ZyrResultFromErrno(errno);
  return ZYR_OK;
}
