#include "base/folders.h"

#include "base/identity.h"
#include "base/path.h"
#include "base/registry.h"

namespace {

constexpr char16_t kUserShellFolders[] =
    u"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders";
constexpr char16_t kShellFolders[] = u"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders";

// A string value of the store. An expand_sz value has its references
// expanded when `expand` is set.
ZyrResult ReadStoreString(ZyrBasRegHandle root, std::uint32_t view, const char16_t* key,
                          const char16_t* value, bool expand, ZyrBasString& out) {
  ZyrBasRegKey k;
  ZyrResult r = k.SetRoot(root);
  // Views are chosen only on a system that has them.
  if (ZyrSucceeded(r) && view != ZYR_REG_VIEW_DEFAULT && ZyrBasRegViewsExist()) r = k.SetViewFlags(view);
  if (ZyrSucceeded(r)) r = k.Open(key);
  std::uint32_t type = 0;
  ZyrBasString text;
  if (ZyrSucceeded(r)) r = k.QueryString(value, text, &type);
  if (ZyrFailed(r)) return r;
  if (expand && type == ZYR_REG_EXPAND_SZ) return ZyrBasRegExpandString(text.Text(), text.Length(), out);
  out.Swap(text);
  return ZYR_OK;
}

// A shell folder of the store: under the current user, then under the
// machine; in each, the "User Shell Folders" value with "%USERPROFILE%"
// taken as the profile given and other references expanded, else the
// "Shell Folders" value as it stands. ZYR_E_PATH_NOT_FOUND when neither
// names the folder; failures of single keys only lead to the next.
ZyrResult ReadShellFolder(const char16_t* name, const ZyrBasString& profile, ZyrBasString& out) {
  static const ZyrBasRegHandle kRoots[] = {ZYR_HKEY_CURRENT_USER, ZYR_HKEY_LOCAL_MACHINE};
  for (ZyrBasRegHandle root : kRoots) {
    ZyrBasString text;
    ZyrResult r = ReadStoreString(root, ZYR_REG_VIEW_DEFAULT, kUserShellFolders, name, false, text);
    if (r == ZYR_E_OUT_OF_MEMORY) return r;
    if (ZyrSucceeded(r) && !text.Empty()) {
      if (!profile.Empty()) {
        r = text.ReplaceAll(u"%USERPROFILE%", ZYR_TERMINATED, profile.Text(), profile.Length());
        if (ZyrFailed(r)) return r;
      }
      return ZyrBasRegExpandString(text.Text(), text.Length(), out);
    }
    r = ReadStoreString(root, ZYR_REG_VIEW_DEFAULT, kShellFolders, name, false, text);
    if (r == ZYR_E_OUT_OF_MEMORY) return r;
    if (ZyrSucceeded(r) && !text.Empty()) {
      out.Swap(text);
      return ZYR_OK;
    }
  }
  return ZYR_E_PATH_NOT_FOUND;
}

// The profile folder of the current user as the store names it: the
// account's entry in the profile list (accounts are named by their login
// name on this platform).
ZyrResult ProfileFromStore(ZyrBasString& out) {
  ZyrBasString user, key;
  ZyrResult r = ZyrBasCurrentUserName(user);
  if (ZyrFailed(r)) return r;
  if (user.Empty()) return ZYR_E_PATH_NOT_FOUND;
  r = key.Assign(u"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList\\");
  if (ZyrSucceeded(r)) r = key.Append(user);
  if (ZyrSucceeded(r))
    r = ReadStoreString(ZYR_HKEY_LOCAL_MACHINE, ZYR_REG_VIEW_DEFAULT, key.Text(), u"ProfileImagePath", true, out);
  if (ZyrSucceeded(r) && out.Empty()) r = ZYR_E_PATH_NOT_FOUND;
  return r;
}

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

const char16_t* ShellFolderName(std::uint32_t id) {
  switch (id) {
    case ZYR_FOLDER_DESKTOP: return u"Desktop";
    case ZYR_FOLDER_APPDATA: return u"AppData";
    case ZYR_FOLDER_COMMON_STARTUP: return u"Common Startup";
    case ZYR_FOLDER_STARTUP: return u"Startup";
    case ZYR_FOLDER_PERSONAL: return u"Personal";
    case ZYR_FOLDER_COMMON_DOCUMENTS: return u"Common Documents";
    case ZYR_FOLDER_COMMON_APPDATA: return u"Common AppData";
    case ZYR_FOLDER_LOCAL_APPDATA: return u"Local AppData";
    default: return nullptr;
  }
}

}  // namespace

ZyrResult ZyrBasGetFolder(std::uint32_t id, ZyrBasString& path) {
  path.Clear();
  if (id >= ZYR_FOLDER_COUNT) return ZYR_E_INVALID_ARGUMENT;
  // The key store first, then the environment, then the XDG defaults.
  if (id == ZYR_FOLDER_PROFILE) {
    ZyrResult r = ProfileFromStore(path);
    if (r == ZYR_OK || r == ZYR_E_OUT_OF_MEMORY) return r;
    r = ZyrBasGetEnv(u"HOME", path);
    if (r == ZYR_OK && !path.Empty()) return ZYR_OK;
    r = ZyrBasGetEnv(u"USERPROFILE", path);
    if (r == ZYR_OK && !path.Empty()) return ZYR_OK;
    path.Clear();
    return ZYR_E_PATH_NOT_FOUND;
  }
  if (const char16_t* shellName = ShellFolderName(id)) {
    // "%USERPROFILE%" in a stored folder is the profile as found here, so
    // that a store written for any account follows $HOME.
    ZyrBasString profile;
    ZyrResult r = ZyrBasGetFolder(ZYR_FOLDER_PROFILE, profile);
    if (r == ZYR_E_OUT_OF_MEMORY) return r;
    r = ReadShellFolder(shellName, profile, path);
    if (r == ZYR_OK || r == ZYR_E_OUT_OF_MEMORY) return r;
    path.Clear();
  }
  switch (id) {
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
      return ZYR_E_PATH_NOT_FOUND;  // no such folder on this platform
  }
}

ZyrResult ZyrBasProductDirectory(std::uint32_t kind, ZyrBasString& path, const char16_t* subpath,
                                 const char16_t* version) {
  path.Clear();
  ZyrBasString work, key;
  ZyrResult r = ZYR_OK;
  const char16_t* value = nullptr;
  std::uint32_t view = ZYR_REG_VIEW_32;
  const char16_t* fixedSubpath = nullptr;
  switch (kind) {
    case ZYR_DIR_DATABASE:
      // The product's data files: the all-users directory of the 2014
      // product.
      version = u"2014";
      fixedSubpath = u"avi";
      [[fallthrough]];
    case ZYR_DIR_INSTALL:
    case ZYR_DIR_ALL_USERS:
      // The version is glued on as it stands: "2014" gives the key
      // ...\Zyr2014, "\OPH2015" the key ...\Zyr\OPH2015.
      r = key.Assign(u"SYSTEM\\CurrentControlSet\\Services\\Zyr\\Zyr");
      if (ZyrSucceeded(r) && version) r = key.Append(version);
      value = kind == ZYR_DIR_INSTALL ? u"ZyrDir" : u"ZyrAllUsersDir";
      break;
    case ZYR_DIR_ADMIN_COMMON:
    case ZYR_DIR_ADMIN_ALL_USERS:
    case ZYR_DIR_ADMIN_SERVER:
      r = key.Assign(u"SOFTWARE\\ZYR\\ZyrAdmin2014");
      value = kind == ZYR_DIR_ADMIN_COMMON       ? u"AdminCommonDir"
              : kind == ZYR_DIR_ADMIN_ALL_USERS ? u"AdminAllUsersDir"
                                                : u"AdminServerInstDir";
      break;
    case ZYR_DIR_QUA_COMMON:
      r = key.Assign(u"SOFTWARE\\Zyr\\Qua");
      value = u"QuaCommonDir";
      view = ZYR_REG_VIEW_64;
      break;
    case ZYR_DIR_FRAMEWORK:
      r = key.Assign(u"SOFTWARE\\ZYR\\Framework\\0");
      value = u"Dir";
      view = ZYR_REG_VIEW_64;
      break;
    case ZYR_DIR_SETUP:
      r = key.Assign(u"SOFTWARE\\ZYR\\Setup\\");
      value = u"Dir";
      view = ZYR_REG_VIEW_64;
      break;
    case ZYR_DIR_USER_ROAMING:
    case ZYR_DIR_USER_LOCAL:
      r = ZyrBasGetFolder(kind == ZYR_DIR_USER_LOCAL ? ZYR_FOLDER_LOCAL_APPDATA : ZYR_FOLDER_APPDATA, work);
      if (ZyrSucceeded(r)) r = work.Append(u"\\Zyr");
      if (ZyrSucceeded(r) && version) r = work.Append(version);
      break;
    default:
      return ZYR_E_NOT_IMPLEMENTED;
  }
  if (ZyrSucceeded(r) && value) {
    // A missing store, key or value answers as the store does.
    r = ReadStoreString(ZYR_HKEY_LOCAL_MACHINE, view, key.Text(), value, true, work);
    if (ZyrSucceeded(r) && work.Empty()) r = ZYR_E_PATH_NOT_FOUND;
  }
  if (ZyrFailed(r)) return r;
  for (const char16_t* tail : {fixedSubpath, subpath}) {
    if (!tail || !*tail) continue;
    ZyrBasString joined;
    r = ZyrBasPathJoin(joined, work.Text(), work.Length(), tail);
    if (ZyrFailed(r)) return r;
    work.Swap(joined);
  }
  return ZyrBasFullPath(path, work.Text(), work.Length());
}
