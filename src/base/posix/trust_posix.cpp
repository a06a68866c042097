#include "base/trust.h"

#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/os/native_path.h"
#include "base/result.h"

namespace {

bool TrustedOwner(uid_t uid) { return uid == 0 || uid == geteuid(); }

// The folder part of a native name, into `out` (PATH_MAX bytes): "." for a
// bare name, "/" for a name in the root.
bool FolderOf(const char* name, char* out) {
  const char* slash = std::strrchr(name, '/');
  if (!slash) {
    std::strcpy(out, ".");
    return true;
  }
  std::size_t n = slash == name ? 1 : static_cast<std::size_t>(slash - name);
  if (n >= PATH_MAX) return false;
  std::memcpy(out, name, n);
  out[n] = 0;
  return true;
}

ZyrResult CheckFolder(const char* folder) {
  struct stat st;
  if (stat(folder, &st) != 0) return ZyrResultFromErrno(errno);
  if (!S_ISDIR(st.st_mode) || !TrustedOwner(st.st_uid)) return ZYR_E_UNTRUSTED_FILE;
  if ((st.st_mode & (S_IWGRP | S_IWOTH)) && !(st.st_mode & S_ISVTX)) return ZYR_E_UNTRUSTED_FILE;
  return ZYR_OK;
}

}  // namespace

ZyrResult ZyrBasCheckTrusted(const ZyrBasFileBase& file, const char16_t* path) {
  struct stat st;
  if (fstat(file.NativeHandle(), &st) != 0) return ZyrResultFromErrno(errno);
  if (!S_ISREG(st.st_mode) || !TrustedOwner(st.st_uid) || (st.st_mode & (S_IWGRP | S_IWOTH)))
    return ZYR_E_UNTRUSTED_FILE;
  ZyrBasNarrowText native;
  ZyrResult r = ZyrBasNativePath(path, ZYR_TERMINATED, native);
  if (ZyrFailed(r)) return r;
  char folder[PATH_MAX];
  if (!FolderOf(native.Data(), folder)) return ZyrResultFromErrno(ENAMETOOLONG);
  r = CheckFolder(folder);
  if (ZyrFailed(r)) return r;
  // Through a link: the folder that holds the file itself as well, whose
  // writers could put another file in its place.
  char real[PATH_MAX], realFolder[PATH_MAX];
  if (!realpath(native.Data(), real)) return ZyrResultFromErrno(errno);
  if (!FolderOf(real, realFolder)) return ZyrResultFromErrno(ENAMETOOLONG);
  char linkFolder[PATH_MAX];
  if (realpath(folder, linkFolder) && std::strcmp(linkFolder, realFolder) == 0) return ZYR_OK;
  return CheckFolder(realFolder);
}
