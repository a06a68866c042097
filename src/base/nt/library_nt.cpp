// Modules of the suite through the loader of ntdll.
#include "base/library.h"
#include "base/nt/nt_support.h"
#include "base/path.h"

namespace {
constexpr std::uint32_t kModuleNotFound = 126;  // the system's numbers
constexpr std::uint32_t kProcedureNotFound = 127;
}  // namespace

ZyrResult ZyrBasLibrary::Load(const char16_t* path) {
  Unload();
  ZyrBasString full;
  result_ = ZyrBasFullPath(full, path);
  if (ZyrFailed(result_)) return result_;
  UNICODE_STRING name = NtCountedString(full.Text(), full.Length());
  HANDLE module = nullptr;
  NTSTATUS s = LdrLoadDll(nullptr, nullptr, &name, &module);
  if (!NtSucceeded(s)) {
    result_ = s == STATUS_DLL_NOT_FOUND || s == STATUS_OBJECT_NAME_NOT_FOUND || s == STATUS_OBJECT_PATH_NOT_FOUND
                  ? ZyrResultFromWin32Error(kModuleNotFound)
                  : NtResult(s);
    return result_;
  }
  handle_ = module;
  result_ = ZYR_OK;
  return ZYR_OK;
}

ZyrResult ZyrBasLibrary::Find(const char* name, void** entry) const {
  *entry = nullptr;
  if (!handle_ || !name) return ZyrResultFromWin32Error(kProcedureNotFound);
  std::size_t n = 0;
  while (name[n]) ++n;
  ANSI_STRING ansi{static_cast<USHORT>(n), static_cast<USHORT>(n + 1), const_cast<char*>(name)};
  NTSTATUS s = LdrGetProcedureAddress(handle_, &ansi, 0, entry);
  return NtSucceeded(s) && *entry ? ZYR_OK : ZyrResultFromWin32Error(kProcedureNotFound);
}

void ZyrBasLibrary::Unload() {
  if (handle_) LdrUnloadDll(handle_);
  handle_ = nullptr;
  result_ = ZYR_E_NOT_INITIALIZED;
}
