// A loaded module of the suite: a handle that unloads its library when it
// goes, and the result of the load. Names and paths are the platform's:
// a module "zyrloga" is the file "zyrloga.so" here.
#ifndef ZYR_BASE_LIBRARY_H
#define ZYR_BASE_LIBRARY_H

#include "zyrlog/result.h"
#include ZYR_PLATFORM_LAYER  // kZyrBasModuleSuffix

class ZyrBasLibrary {
 public:
  ZyrBasLibrary() = default;
  ~ZyrBasLibrary() { Unload(); }
  ZyrBasLibrary(const ZyrBasLibrary&) = delete;
  ZyrBasLibrary& operator=(const ZyrBasLibrary&) = delete;

  // Loads the file at `path` (a full path; a name without a folder is not
  // searched for). A missing file gives ZYR_E_PATH_NOT_FOUND; a file that
  // is no loadable module, or whose own dependencies are missing, the
  // result of the system's "bad image" number. The result is also kept.
  ZyrResult Load(const char16_t* path);
  // An entry point by name: 0xc007007f (the system's "procedure not
  // found") when the module has none.
  ZyrResult Find(const char* name, void** entry) const;
  void Unload();

  bool Loaded() const { return handle_ != nullptr; }
  ZyrResult LoadResult() const { return result_; }

 private:
  void* handle_ = nullptr;
  ZyrResult result_ = ZYR_E_NOT_INITIALIZED;
};

#endif
