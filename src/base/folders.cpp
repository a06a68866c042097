#include "base/folders.h"

#include "base/identity.h"
#include "base/path.h"

namespace {

// Environment first, else `fallback` below the profile.
ZyrResult FromEnvironment(ZyrBasString& path, const char16_t* name, const char16_t* xdgName,
                          const char16_t* fallback) {
  ZyrResult r = ZyrBasGetEnv(name, path);
  if (r == ZYR_OK && !path.Empty()) return ZYR_OK;
  if (xdgName) {
    r = ZyrBasGetEnv(xdgName, path);
    if (r == ZYR_OK && !path.Empty()) return ZYR_OK;
  }
  if (!fallback) return ZYR_E_PATH_NOT_FOUND;
  ZyrBasString home;
  r = ZyrBasGetFolder(ZYR_FOLDER_PROFILE, home);
  if (ZyrFailed(r)) return r;
  return ZyrBasPathJoin(path, home.Text(), home.Length(), fallback);
}

}  // namespace

ZyrResult ZyrBasGetFolder(std::uint32_t id, ZyrBasString& path) {
  path.Clear();
  // The registry store has no folder values on this platform yet; the
  // environment and the XDG defaults answer.
  switch (id) {
    case ZYR_FOLDER_PROFILE: {
      ZyrResult r = ZyrBasGetEnv(u"HOME", path);
      if (r == ZYR_OK && !path.Empty()) return ZYR_OK;
      r = ZyrBasGetEnv(u"USERPROFILE", path);
      if (r == ZYR_OK && !path.Empty()) return ZYR_OK;
      return ZYR_E_PATH_NOT_FOUND;
    }
    case ZYR_FOLDER_LOCAL_APPDATA:
      return FromEnvironment(path, u"LOCALAPPDATA", u"XDG_DATA_HOME", u".local/share");
    case ZYR_FOLDER_APPDATA:
      return FromEnvironment(path, u"APPDATA", u"XDG_CONFIG_HOME", u".config");
    case ZYR_FOLDER_COMMON_APPDATA: {
      ZyrResult r = ZyrBasGetEnv(u"ALLUSERSPROFILE", path);
      if (r == ZYR_OK && !path.Empty()) return ZYR_OK;
      return path.Assign(u"/var/lib");
    }
    default:
      if (id >= ZYR_FOLDER_COUNT) return ZYR_E_INVALID_ARGUMENT;
      return ZYR_E_PATH_NOT_FOUND;  // no such folder on this platform
  }
}

ZyrResult ZyrBasProductDirectory(std::uint32_t kind, ZyrBasString& path, const char16_t* subpath,
                                 const char16_t* version) {
  path.Clear();
  ZyrBasString work;
  ZyrResult r;
  switch (kind) {
    case ZYR_DIR_USER_ROAMING:
    case ZYR_DIR_USER_LOCAL:
      r = ZyrBasGetFolder(kind == ZYR_DIR_USER_LOCAL ? ZYR_FOLDER_LOCAL_APPDATA : ZYR_FOLDER_APPDATA, work);
      if (ZyrSucceeded(r)) r = work.Append(u"\\Zyr");
      if (ZyrSucceeded(r) && version) r = work.Append(version);
      break;
    default:
      // Unknown kinds, and the install-time directories, which live in the
      // registry store that is not built yet.
      return ZYR_E_NOT_IMPLEMENTED;
  }
  if (ZyrFailed(r)) return r;
  if (subpath && *subpath) {
    ZyrBasString joined;
    r = ZyrBasPathJoin(joined, work.Text(), work.Length(), subpath);
    if (ZyrFailed(r)) return r;
    work.Swap(joined);
  }
  return ZyrBasFullPath(path, work.Text(), work.Length());
}
