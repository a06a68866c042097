#include <dlfcn.h>
#include <sys/stat.h>

#include "base/library.h"
#include "base/path.h"
#include "base/os/native_path.h"
#include "base/result.h"

namespace {
constexpr std::uint32_t kModuleNotFound = 126;  // the system's numbers
constexpr std::uint32_t kBadImage = 193;
constexpr std::uint32_t kProcedureNotFound = 127;
}  // namespace

ZyrResult ZyrBasLibrary::Load(const char16_t* path) {
  Unload();
  // Always by full path: the loader matches a relative name against the
  // names of modules loaded before, so "./x.so" from another directory
  // could give the module loaded earlier.
  ZyrBasString full;
  ZyrBasNarrowText native;
  result_ = ZyrBasFullPath(full, path);
  if (ZyrSucceeded(result_)) result_ = ZyrBasNativePath(full.Text(), full.Length(), native);
  if (ZyrFailed(result_)) return result_;
  // Symbols stay private to the module, as a module of the suite keeps its
  // own copy of the base; everything is bound at once, so that a missing
  // dependency fails the load rather than a later call.
  handle_ = dlopen(native.Data(), RTLD_NOW | RTLD_LOCAL);
  if (!handle_) {
    struct stat st;
    bool exists = stat(native.Data(), &st) == 0;
    result_ = ZyrResultFromWin32Error(exists ? kBadImage : kModuleNotFound);
    return result_;
  }
  result_ = ZYR_OK;
  return ZYR_OK;
}

ZyrResult ZyrBasLibrary::Find(const char* name, void** entry) const {
  *entry = handle_ ? dlsym(handle_, name) : nullptr;
  return *entry ? ZYR_OK : ZyrResultFromWin32Error(kProcedureNotFound);
}

void ZyrBasLibrary::Unload() {
  if (handle_) dlclose(handle_);
  handle_ = nullptr;
  result_ = ZYR_E_NOT_INITIALIZED;
}
