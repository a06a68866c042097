// DOS paths to NT object names. The native name of a path is the NT name
// that the system's own rule gives it ("C:\x" is "\??\C:\x", "\\s\h\x" is
// "\??\UNC\s\h\x", a relative path is resolved against the current
// directory), carried in UTF-8 so that the portable half of the base
// handles it as it handles any native name; each call of the layer widens
// it again for the system.
#include "base/nt/nt_support.h"
#include "base/os/native_path.h"

ZyrResult ZyrBasNativePath(const char16_t* path, std::size_t length, ZyrBasNarrowText& out) {
  if (!path) return ZYR_E_PATH_NOT_FOUND;
  std::size_t n = length == ZYR_TERMINATED ? ZyrBasStrLen(path) : length;
  if (n == 0) return ZYR_E_PATH_NOT_FOUND;
  for (std::size_t i = 0; i < n; ++i)
    if (path[i] == 0) return ZYR_E_PATH_NOT_FOUND;
  ZyrBasString terminated;
  ZyrResult r = terminated.Assign(path, n);
  if (ZyrFailed(r)) return r;
  UNICODE_STRING nt{};
  if (!RtlDosPathNameToNtPathName_U(terminated.Text(), &nt, nullptr, nullptr)) return ZYR_E_PATH_NOT_FOUND;
  r = ZyrNtNarrow(nt.Buffer, nt.Length / 2, out);
  RtlFreeUnicodeString(&nt);
  return r;
}

ZyrResult ZyrBasWideFromNative(const char* name, std::size_t length, ZyrBasString& out) {
  return ZyrNtWiden(name, length, out);
}

ZyrResult ZyrBasWideFromNativeFixed(const char* name, std::size_t length, char16_t* target,
                                    std::size_t capacity, std::size_t* outLength) {
  ZyrBasString wide;
  ZyrResult r = ZyrNtWiden(name, length, wide);
  if (ZyrFailed(r)) return r;
  *outLength = wide.Length();
  if (wide.Length() + 1 > capacity) return ZYR_E_BUFFER_TOO_SMALL;
  for (std::size_t i = 0; i <= wide.Length(); ++i) target[i] = wide.Text()[i];
  return ZYR_OK;
}

ZyrResult ZyrBasCurrentDirectory(ZyrBasString& out) {
  ULONG bytes = 512;
  for (;;) {
    ZyrBasString built;
    ZyrResult r = built.Resize(bytes / 2);
    if (ZyrFailed(r)) return r;
    ULONG needed = RtlGetCurrentDirectory_U(bytes, built.Data());
    if (needed == 0) return ZYR_E_PATH_NOT_FOUND;
    if (needed < bytes) {
      (void)built.Resize(needed / 2);
      out.Swap(built);
      return ZYR_OK;
    }
    bytes = needed + 2;
  }
}
