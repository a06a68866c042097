// Compression of a rolled file: FSCTL_SET_COMPRESSION with the default
// format. The request is done when the call returns; a volume that cannot
// compress refuses it, and the caller leaves it at that.
#include "base/compression.h"
#include "base/nt/nt_support.h"
#include "base/os/native_path.h"

ZyrResult ZyrBasCompressionRequest::Start(const char16_t* path) {
  pending_ = false;
  if (!path) return ZYR_E_INVALID_ARGUMENT;
  ZyrBasNarrowText native;
  ZyrResult r = ZyrBasNativePath(path, ZYR_TERMINATED, native);
  if (ZyrFailed(r)) return r;
  ZyrNtName name(native.Data());
  if (!name.Ok()) return name.Result();
  OBJECT_ATTRIBUTES oa = NtObjectAttributes(name.Counted());
  IO_STATUS_BLOCK io{};
  HANDLE h = nullptr;
  NTSTATUS s = NtOpenFile(&h, FILE_READ_DATA | FILE_WRITE_DATA | FILE_READ_ATTRIBUTES | FILE_WRITE_ATTRIBUTES | SYNCHRONIZE,
                          &oa, &io, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                          FILE_SYNCHRONOUS_IO_NONALERT | FILE_NON_DIRECTORY_FILE | FILE_OPEN_REPARSE_POINT);
  if (!NtSucceeded(s)) return NtResult(s);
  USHORT format = COMPRESSION_FORMAT_DEFAULT;
  s = NtFsControlFile(h, nullptr, nullptr, nullptr, &io, FSCTL_SET_COMPRESSION, &format, sizeof format, nullptr, 0);
  NtClose(h);
  if (s == STATUS_INVALID_DEVICE_REQUEST || s == STATUS_NOT_SUPPORTED || s == STATUS_NOT_IMPLEMENTED ||
      s == STATUS_INVALID_PARAMETER)
    return ZYR_E_NOT_SUPPORTED;
  return NtResult(s);
}

// The request ends with its call here.
ZyrResult ZyrBasCompressionRequest::Wait(bool) { return ZYR_OK; }
