#include "base/folders.h"

#include <atomic>
#include <cstring>
#include <utility>

#include "base/file.h"
#include "base/identity.h"
#include "base/lock.h"
#include "base/path.h"
#include "base/os/account_os.h"
#include "base/os/native_path.h"
#include "base/registry.h"
#include "base/sysinfo.h"

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
// `userKey` names another account's key below HKEY_USERS in place of the
// current user.
ZyrResult ReadShellFolder(const char16_t* name, const ZyrBasString& profile, ZyrBasString& out,
                          const ZyrBasString* userKey = nullptr) {
  const ZyrBasRegHandle roots[] = {userKey ? ZYR_HKEY_USERS : ZYR_HKEY_CURRENT_USER, ZYR_HKEY_LOCAL_MACHINE};
  ZyrBasString userShellFolders, shellFolders;
  ZyrResult made = ZYR_OK;
  if (userKey) {
    for (auto [target, tail] : {std::pair{&userShellFolders, kUserShellFolders}, std::pair{&shellFolders, kShellFolders}}) {
      if (ZyrSucceeded(made)) made = target->Assign(*userKey);
      if (ZyrSucceeded(made)) made = target->Append(u'\\');
      if (ZyrSucceeded(made)) made = target->Append(tail);
    }
    if (ZyrFailed(made)) return made;
  }
  for (ZyrBasRegHandle root : roots) {
    bool user = userKey && root == ZYR_HKEY_USERS;
    const char16_t* first = user ? userShellFolders.Text() : kUserShellFolders;
    const char16_t* second = user ? shellFolders.Text() : kShellFolders;
    ZyrBasString text;
    ZyrResult r = ReadStoreString(root, ZYR_REG_VIEW_DEFAULT, first, name, false, text);
    if (r == ZYR_E_OUT_OF_MEMORY) return r;
    if (ZyrSucceeded(r) && !text.Empty()) {
      if (!profile.Empty()) {
        r = text.ReplaceAll(u"%USERPROFILE%", ZYR_TERMINATED, profile.Text(), profile.Length());
        if (ZyrFailed(r)) return r;
      }
      return ZyrBasRegExpandString(text.Text(), text.Length(), out);
    }
    r = ReadStoreString(root, ZYR_REG_VIEW_DEFAULT, second, name, false, text);
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
ZyrResult ProfileFromStore(ZyrBasString& out, const ZyrBasString* login = nullptr) {
  ZyrBasString user, key;
  ZyrResult r = login ? user.Assign(*login) : ZyrBasCurrentUserName(user);
  if (ZyrFailed(r)) return r;
  if (user.Empty()) return ZYR_E_PATH_NOT_FOUND;
  r = key.Assign(u"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList\\");
  if (ZyrSucceeded(r)) r = key.Append(user);
  if (ZyrSucceeded(r))
    r = ReadStoreString(ZYR_HKEY_LOCAL_MACHINE, ZYR_REG_VIEW_DEFAULT, key.Text(), u"ProfileImagePath", true, out);
  if (ZyrSucceeded(r) && out.Empty()) r = ZYR_E_PATH_NOT_FOUND;
  return r;
}

// Environment first (the XDG variable only with an absolute path, as XDG
// has it), else `fallback` below the profile.
ZyrResult FromEnvironment(ZyrBasString& path, const char16_t* name, const char16_t* xdgName,
                          const char16_t* fallback) {
  ZyrResult r = ZyrBasGetEnv(name, path);
  if (r == ZYR_OK && !path.Empty()) return ZYR_OK;
  if (r == ZYR_E_OUT_OF_MEMORY) return r;
  if (xdgName) {
    r = ZyrBasGetEnv(xdgName, path);
    if (r == ZYR_OK && !path.Empty() && path[0] == u'/') return ZYR_OK;
    if (r == ZYR_E_OUT_OF_MEMORY) return r;
  }
  path.Clear();
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

// ---------------------------------------------------------------------------
// The folders of the system: learnt once, then read without a lock. A cache
// once filled does not change; readers test its first character.

constexpr std::size_t kCacheSize = 260;  // 258 characters is the longest kept
char16_t g_cache[ZYR_FOLDER_COUNT][kCacheSize];
ZyrBasSpinLock g_foldersLock;
std::atomic<std::uint32_t> g_foldersRuns{0};
ZyrResult g_foldersResult = ZYR_OK;

bool IsSystemFolder(std::uint32_t id) {
  return (id >= ZYR_FOLDER_SYSTEM && id <= ZYR_FOLDER_COMMON_FILES_NATIVE) || id == ZYR_FOLDER_SYSTEM_DRIVE ||
         id == ZYR_FOLDER_SYSTEM_PARTITION;
}

ZyrResult Keep(std::uint32_t id, const char16_t* text, std::size_t length) {
  if (length >= kCacheSize - 1) return ZYR_E_BUFFER_TOO_SMALL;  // not kept: behaves as missing
  std::memcpy(g_cache[id], text, length * sizeof(char16_t));
  g_cache[id][length] = 0;
  return ZYR_OK;
}
ZyrResult Keep(std::uint32_t id, const ZyrBasString& text) { return Keep(id, text.Text(), text.Length()); }

ZyrResult EnsureSystemFolders() {
  if (g_foldersRuns.load(std::memory_order_acquire) == 0) return ZyrBasInitFolders();
  return ZYR_OK;
}

// A system value of the store, else the environment: ZYR_OK only with text
// of more than `minimum` characters.
ZyrResult SystemValue(const char16_t* value, const char16_t* variable, std::size_t minimum, ZyrBasString& out) {
  ZyrResult r = value ? ReadStoreString(ZYR_HKEY_LOCAL_MACHINE, ZYR_REG_VIEW_DEFAULT,
                                        u"SYSTEM\\CurrentControlSet\\Services\\Zyr\\SystemValues", value, true, out)
                      : ZYR_E_FILE_NOT_FOUND;
  if (r == ZYR_E_OUT_OF_MEMORY) return r;
  if (ZyrSucceeded(r) && out.Length() > minimum) return ZYR_OK;
  r = variable ? ZyrBasGetEnv(variable, out) : ZYR_I_VARIABLE_EMPTY;
  if (r == ZYR_E_OUT_OF_MEMORY) return r;
  if (r == ZYR_OK && !out.Empty()) return ZYR_OK;
  out.Clear();
  return ZYR_E_PATH_NOT_FOUND;
}

// One family of program folders: the 32-bit one, the native one (a 64-bit
// system only), and the one of the process's width.
ZyrResult FillProgramFolders(bool wideSystem, bool wideProcess, const char16_t* valueX86, const char16_t* valueNative,
                             const char16_t* envX86, const char16_t* envNative, const char16_t* envOther32,
                             const char16_t* nativeDefault, std::uint32_t idOfWidth, std::uint32_t idX86,
                             std::uint32_t idNative) {
  ZyrResult first = ZYR_OK;
  auto note = [&first](ZyrResult r) {
    if (ZyrSucceeded(first) && ZyrFailed(r) && r != ZYR_E_PATH_NOT_FOUND) first = r;
  };
  ZyrBasString text;
  ZyrResult r = SystemValue(wideSystem ? valueX86 : valueNative, wideSystem ? envX86 : envNative, 1, text);
  if (ZyrFailed(r) && !wideSystem && nativeDefault) r = text.Assign(nativeDefault);
  if (ZyrSucceeded(r)) note(Keep(idX86, text));
  else note(r);
  if (wideSystem) {
    r = SystemValue(valueNative, wideProcess ? envNative : envOther32, 0, text);
    if (ZyrFailed(r) && nativeDefault) r = text.Assign(nativeDefault);
    if (ZyrSucceeded(r)) note(Keep(idNative, text));
    else note(r);
  }
  std::uint32_t source = wideSystem && wideProcess ? idNative : idX86;
  if (g_cache[source][0]) {
    std::memcpy(g_cache[idOfWidth], g_cache[source], sizeof g_cache[source]);
  } else if (ZyrSucceeded(SystemValue(nullptr, envNative, 0, text))) {
    note(Keep(idOfWidth, text));
  }
  return first;
}

}  // namespace

ZyrResult ZyrBasGetFolder(std::uint32_t id, ZyrBasString& path) {
  path.Clear();
  if (id >= ZYR_FOLDER_COUNT) return ZYR_E_INVALID_ARGUMENT;
  if (IsSystemFolder(id)) {
    ZyrResult r = EnsureSystemFolders();
    if (r == ZYR_E_OUT_OF_MEMORY) return r;
    if (!g_cache[id][0]) return ZYR_E_PATH_NOT_FOUND;
    return path.Assign(g_cache[id]);
  }
  // The key store first, then the environment, then the XDG defaults.
  if (id == ZYR_FOLDER_PROFILE) {
    ZyrResult r = ProfileFromStore(path);
    if (r == ZYR_OK || r == ZYR_E_OUT_OF_MEMORY) return r;
    // A service may run with HOME unset, or set to a folder that does not
    // exist ("/nonexistent" for nobody): a home is only taken where it
    // stands, else the account database's, else there is none.
    for (const char16_t* name : {u"HOME", u"USERPROFILE"}) {
      r = ZyrBasGetEnv(name, path);
      if (r == ZYR_E_OUT_OF_MEMORY) return r;
      if (r == ZYR_OK && !path.Empty() && ZyrSucceeded(ZyrBasDirectoryExists(path.Text()))) return ZYR_OK;
    }
    ZyrBasNarrowText home;
    r = ZyrBasOsCurrentAccount(nullptr, &home);
    if (r == ZYR_OK && home.Length() > 0) {
      r = ZyrBasWideFromNative(home.Data(), home.Length(), path);
      if (r == ZYR_E_OUT_OF_MEMORY) return r;
      if (ZyrSucceeded(r) && ZyrSucceeded(ZyrBasDirectoryExists(path.Text()))) return ZYR_OK;
    } else if (r == ZYR_E_OUT_OF_MEMORY) {
      return r;
    }
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
      // XDG's place for state that outlives a run, logs among it.
      return FromEnvironment(path, u"LOCALAPPDATA", u"XDG_STATE_HOME", u".local/state");
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
                                 const char16_t* version, const char16_t* user) {
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
    {
      std::uint32_t folder = kind == ZYR_DIR_USER_LOCAL ? ZYR_FOLDER_LOCAL_APPDATA : ZYR_FOLDER_APPDATA;
      r = user && *user ? ZyrBasGetUserFolder(folder, work, user) : ZyrBasGetFolder(folder, work);
    }
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

ZyrResult ZyrBasGetFolderFixed(std::uint32_t id, char16_t* buffer, std::size_t capacity, std::size_t* needed) {
  ZyrBasString path;
  ZyrResult r = ZyrBasGetFolder(id, path);
  if (ZyrFailed(r)) return r;
  if (path.Empty()) return ZYR_E_PATH_NOT_FOUND;
  if (capacity < path.Length() + 1) {
    *needed = path.Length() + 1;
    return ZYR_E_BUFFER_TOO_SMALL;
  }
  std::memcpy(buffer, path.Text(), (path.Length() + 1) * sizeof(char16_t));
  *needed = path.Length();
  return ZYR_OK;
}

ZyrResult ZyrBasFillSystemFolders(const ZyrBasFolderFacts& facts) {
  for (std::uint32_t id = 0; id < ZYR_FOLDER_COUNT; ++id)
    if (IsSystemFolder(id)) g_cache[id][0] = 0;
  ZyrResult first = ZYR_OK;
  auto note = [&first](ZyrResult r) {
    if (ZyrSucceeded(first) && ZyrFailed(r)) first = r;
  };
  bool wideSystem = facts.architectureKind == ZYR_ARCH_AMD64 || facts.architectureKind == ZYR_ARCH_IA64;
  bool wideProcess = facts.processWidth == ZYR_ARCH_AMD64 || facts.processWidth == ZYR_ARCH_IA64;

  // The folder of the C library is the system's; on this platform it holds
  // the libraries of the system's own width, and a 32-bit system has only
  // those. Its parent stands for the system's root folder, and the root of
  // the path for the system drive: "/" here, the one separator kept.
  if (facts.systemLibrary && *facts.systemLibrary) {
    ZyrBasString system, parent, root;
    ZyrResult r = ZyrBasPathDirectory(system, facts.systemLibrary);
    if (ZyrSucceeded(r) && !system.Empty()) {
      note(Keep(ZYR_FOLDER_SYSTEM, system));
      note(Keep(ZYR_FOLDER_SYSTEM_NATIVE, system));
      if (!wideSystem) note(Keep(ZYR_FOLDER_SYSTEM_X86, system));
      ZyrBasString trimmed;
      r = trimmed.Assign(system);
      std::size_t n = trimmed.Length();
      if (ZyrSucceeded(r) && n > 1 && (trimmed[n - 1] == u'\\' || trimmed[n - 1] == u'/')) trimmed.Erase(n - 1, n);
      if (ZyrSucceeded(r)) r = ZyrBasPathDirectory(parent, trimmed.Text(), trimmed.Length());
      if (ZyrSucceeded(r) && !parent.Empty()) note(Keep(ZYR_FOLDER_WINDOWS, parent));
      if (ZyrSucceeded(r)) r = ZyrBasPathRoot(root, system.Text(), system.Length());
      n = root.Length();
      if (ZyrSucceeded(r) && n > 1 && (root[n - 1] == u'\\' || root[n - 1] == u'/')) root.Erase(n - 1, n);
      if (ZyrSucceeded(r) && !root.Empty()) note(Keep(ZYR_FOLDER_SYSTEM_DRIVE, root));
    }
    if (r == ZYR_E_OUT_OF_MEMORY) note(r);
  }

  note(FillProgramFolders(wideSystem, wideProcess, u"ProgramFilesDir (x86)", u"ProgramFilesDir", u"ProgramFiles(x86)",
                          u"ProgramFiles", u"ProgramW6432", u"/opt", ZYR_FOLDER_PROGRAM_FILES,
                          ZYR_FOLDER_PROGRAM_FILES_X86, ZYR_FOLDER_PROGRAM_FILES_NATIVE));
  note(FillProgramFolders(wideSystem, wideProcess, u"CommonFilesDir (x86)", u"CommonFilesDir",
                          u"CommonProgramFiles(x86)", u"CommonProgramFiles", u"CommonProgramW6432", nullptr,
                          ZYR_FOLDER_COMMON_FILES, ZYR_FOLDER_COMMON_FILES_X86, ZYR_FOLDER_COMMON_FILES_NATIVE));

  // The boot partition as the store names it; there are no drive letters
  // to map it to here, so it stands as given.
  ZyrBasString partition;
  ZyrResult r = ReadStoreString(ZYR_HKEY_LOCAL_MACHINE, ZYR_REG_VIEW_DEFAULT, u"SYSTEM\\Setup", u"SystemPartition",
                                false, partition);
  if (ZyrSucceeded(r) && !partition.Empty()) note(Keep(ZYR_FOLDER_SYSTEM_PARTITION, partition));
  else if (r == ZYR_E_OUT_OF_MEMORY) note(r);
  return first;
}

ZyrResult ZyrBasInitFolders() {
  ZyrBasSpinGuard guard(g_foldersLock);
  if (g_foldersRuns.load(std::memory_order_relaxed) != 0) return g_foldersResult;
  ZyrBasNarrowText native;
  ZyrBasString library;
  ZyrResult r = ZyrBasOsSystemLibraryPath(native);
  if (ZyrSucceeded(r)) r = ZyrBasWideFromNative(native.Data(), native.Length(), library);
  if (r == ZYR_E_OUT_OF_MEMORY) return r;  // nothing learnt: the next call tries again
  const ZyrBasSystemInfo& info = ZyrBasSystem();
  ZyrBasFolderFacts facts{ZyrSucceeded(r) ? library.Text() : nullptr, info.architectureKind, info.processWidth};
  g_foldersResult = ZyrBasFillSystemFolders(facts);
  g_foldersRuns.store(1, std::memory_order_release);
  return g_foldersResult;
}

namespace {

// The account named by "S-1-22-1-<uid>" or by its login name: its login
// name and home folder. ZYR_E_PATH_NOT_FOUND when the system knows none.
ZyrResult AccountOf(const char16_t* user, ZyrBasString& login, ZyrBasString& home) {
  ZyrBasNarrowText name, dir;
  ZyrResult r;
  static const char16_t kPrefix[] = u"S-1-22-1-";
  std::size_t prefix = sizeof kPrefix / sizeof kPrefix[0] - 1;
  if (std::char_traits<char16_t>::compare(user, kPrefix, prefix) == 0 && user[prefix]) {
    std::uint64_t uid = 0;
    for (const char16_t* p = user + prefix; *p; ++p) {
      if (*p < u'0' || *p > u'9' || uid > 0xFFFFFFFFu) return ZYR_E_PATH_NOT_FOUND;
      uid = uid * 10 + static_cast<std::uint32_t>(*p - u'0');
    }
    if (uid > 0xFFFFFFFFu) return ZYR_E_PATH_NOT_FOUND;
    r = ZyrBasOsAccountById(static_cast<std::uint32_t>(uid), &name, &dir);
  } else {
    r = ZyrBasNativePath(user, ZYR_TERMINATED, name);
    std::uint32_t uid = 0;
    if (ZyrSucceeded(r)) r = ZyrBasOsAccountByName(name.Data(), &uid, &dir);
    if (r == ZYR_I_NOT_FOUND) {
      // Not an account of the system, but the store may still know it.
      home.Clear();
      return login.Assign(user);
    }
  }
  if (ZyrFailed(r)) return r;
  if (r == ZYR_I_NOT_FOUND) return ZYR_E_PATH_NOT_FOUND;
  r = ZyrBasWideFromNative(name.Data(), name.Length(), login);
  if (ZyrSucceeded(r)) r = ZyrBasWideFromNative(dir.Data(), dir.Length(), home);
  return r;
}

}  // namespace

ZyrResult ZyrBasGetUserFolder(std::uint32_t id, ZyrBasString& path, const char16_t* user) {
  path.Clear();
  if (id >= ZYR_FOLDER_COUNT) return ZYR_E_INVALID_ARGUMENT;
  if (id != ZYR_FOLDER_APPDATA && id != ZYR_FOLDER_LOCAL_APPDATA) return ZyrBasGetFolder(id, path);
  if (!user || !*user) return ZYR_E_INVALID_ARGUMENT;
  ZyrBasString login, profile;
  ZyrResult r = AccountOf(user, login, profile);
  if (ZyrFailed(r)) return r;
  ZyrBasString stored;
  r = ProfileFromStore(stored, &login);
  if (r == ZYR_E_OUT_OF_MEMORY) return r;
  if (r == ZYR_OK) profile.Swap(stored);
  if (profile.Empty()) return ZYR_E_PATH_NOT_FOUND;
  r = ReadShellFolder(id == ZYR_FOLDER_APPDATA ? u"AppData" : u"Local AppData", profile, path, &login);
  if (r == ZYR_OK || r == ZYR_E_OUT_OF_MEMORY) return r;
  return ZyrBasPathJoin(path, profile.Text(), profile.Length(),
                        id == ZYR_FOLDER_APPDATA ? u".config" : u".local/state");
}
