#include "config/locations.h"

#include "base/file.h"
#include "base/folders.h"
#include "base/identity.h"
#include "base/path.h"

namespace {

// Makes the folder with its missing parents. A folder that stands already
// is no failure; "already exists" for a folder that is still missing means
// a file stands in the way.
ZyrResult MakeFolder(const ZyrBasString& path) {
  ZyrResult r = ZyrBasCreateDirectoryTree(path.Text());
  if (ZyrFailed(r)) {
    ZyrResult exists = ZyrBasDirectoryExists(path.Text());
    if (ZyrFailed(exists)) return r == ZYR_E_ALREADY_EXISTS ? exists : r;
  }
  return ZYR_OK;
}

}  // namespace

ZyrResult ZyrLogFolder(ZyrBasString& path, std::uint32_t flags, const char16_t* subfolder) {
  std::uint32_t kind = (flags & ZYR_LOG_FOLDER_ROAMING) ? ZYR_DIR_USER_ROAMING : ZYR_DIR_USER_LOCAL;
  ZyrResult r = ZyrBasProductDirectory(kind, path, subfolder, u"\\OPH2015");
  if (ZyrFailed(r)) return r;
  r = MakeFolder(path);
  if (ZyrFailed(r)) return r;
  // The access rules of bits 0 and 1 (restricted code, low label) have no
  // meaning on this platform: log files themselves are made shareable.
  return ZYR_OK;
}

ZyrResult ZyrDefaultLogFolder(ZyrBasString& path) {
  // A service that systemd starts with LogsDirectory= is told its log
  // folder (several are separated by ":"; the first is this one's).
  ZyrBasString given;
  ZyrResult r = ZyrBasGetEnv(u"LOGS_DIRECTORY", given);
  if (r == ZYR_E_OUT_OF_MEMORY) return r;
  if (r == ZYR_OK && !given.Empty()) {
    std::size_t end = 0;
    while (end < given.Length() && given[end] != u':') ++end;
    if (end > 0) {
      r = ZyrBasFullPath(path, given.Text(), end);
      return ZyrSucceeded(r) ? MakeFolder(path) : r;
    }
  }
  return ZyrLogFolder(path, ZYR_LOG_FOLDER_DEFAULT_FLAGS, u"log");
}

ZyrResult ZyrPrivateConfigFolder(ZyrBasString& path) {
  ZyrResult r = ZyrBasProductDirectory(ZYR_DIR_ALL_USERS, path, u"log", u"\\OPH2015");
  if (ZyrSucceeded(r) && ZyrSucceeded(ZyrBasDirectoryExists(path.Text()))) return ZYR_OK;
  // Else the folder that holds the library's own file.
  return ZyrBasOwnModuleDirectory(path);
}

const char16_t kZyrBuiltInConfig[] =
    u"[root]\nAddAppenders = defaultFileAppender\nSeverity = Info\nDisableDefaultAppenders = yes\n\n"
    u"[defaultFileAppender]\nType = Appender\nAppenderType = RollingFile\nSize = 1024000\n"
    u"FilesCount = 10\nFileName = common.log\n";

ZyrResult ZyrCfgResolveFileName(ZyrBasString& path, const char16_t* fileName,
                                const ZyrBasString& configFolder) {
  if (ZyrBasPathIsAbsolute(fileName)) return path.Assign(fileName);
  return ZyrBasPathJoin(path, configFolder.Text(), configFolder.Length(), fileName);
}
