#include "base/os/account_os.h"

#include <dlfcn.h>
#include <pwd.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstring>

#include "base/result.h"

namespace {

ZyrResult Copy(ZyrBasNarrowText* out, const char* text) {
  if (!out) return ZYR_OK;
  std::size_t n = text ? std::strlen(text) : 0;
  ZyrResult r = out->Resize(n);
  if (ZyrSucceeded(r) && n) std::memcpy(out->Data(), text, n);
  return r;
}

ZyrResult Answer(int error, const passwd* found, std::uint32_t* uid, ZyrBasNarrowText* name,
                 ZyrBasNarrowText* home) {
  if (error != 0) return ZyrResultFromErrno(error);
  if (!found) return ZYR_I_NOT_FOUND;
  if (uid) *uid = static_cast<std::uint32_t>(found->pw_uid);
  ZyrResult r = Copy(name, found->pw_name);
  if (ZyrSucceeded(r)) r = Copy(home, found->pw_dir);
  return r;
}

}  // namespace

ZyrResult ZyrBasOsAccountById(std::uint32_t uid, ZyrBasNarrowText* name, ZyrBasNarrowText* home) {
  char buffer[4096];
  passwd entry;
  passwd* found = nullptr;
  int e = getpwuid_r(static_cast<uid_t>(uid), &entry, buffer, sizeof buffer, &found);
  return Answer(e, found, nullptr, name, home);
}

ZyrResult ZyrBasOsCurrentAccount(ZyrBasNarrowText* name, ZyrBasNarrowText* home) {
  return ZyrBasOsAccountById(static_cast<std::uint32_t>(geteuid()), name, home);
}

ZyrResult ZyrBasOsAccountByName(const char* name, std::uint32_t* uid, ZyrBasNarrowText* home) {
  char buffer[4096];
  passwd entry;
  passwd* found = nullptr;
  int e = getpwnam_r(name, &entry, buffer, sizeof buffer, &found);
  return Answer(e, found, uid, nullptr, home);
}

ZyrResult ZyrBasOsSystemLibraryPath(ZyrBasNarrowText& out) {
  Dl_info info;
  if (dladdr(reinterpret_cast<const void*>(&uname), &info) == 0 || !info.dli_fname) return ZYR_E_OBJECT_NOT_FOUND;
  return Copy(&out, info.dli_fname);
}
