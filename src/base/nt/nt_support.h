// Helpers that the files of the NT layer share: statuses to results, the
// layer's native names (NT object names in UTF-8, see base/os/native_path.h)
// back to the counted wide names that the system takes, and time-outs.
#ifndef ZYR_BASE_NT_NT_SUPPORT_H
#define ZYR_BASE_NT_NT_SUPPORT_H

#include <cstddef>
#include <cstdint>

#include "base/nt/ntapi.h"
#include "base/result.h"
#include "base/string.h"
#include "zyrlog/result.h"

inline ZyrResult NtResult(NTSTATUS status) {
  return ZyrResultFromNtStatus(static_cast<std::uint32_t>(status));
}

// UTF-16 to UTF-8 and back. A lone surrogate travels as its own three-byte
// form, so that every name the system gives survives the way back.
ZyrResult ZyrNtNarrow(const char16_t* text, std::size_t length, ZyrBasNarrowText& out);
ZyrResult ZyrNtWiden(const char* text, std::size_t length, ZyrBasString& out);

// A native name made wide for one call. Ok() false means no memory (or a
// name too long for the system): Result() tells which.
class ZyrNtName {
 public:
  explicit ZyrNtName(const char* native);
  bool Ok() const { return ZyrSucceeded(result_); }
  ZyrResult Result() const { return result_; }
  UNICODE_STRING* Counted() { return &counted_; }
  const char16_t* Text() const { return wide_.Text(); }
  std::size_t Length() const { return wide_.Length(); }

 private:
  ZyrBasString wide_;
  UNICODE_STRING counted_{};
  ZyrResult result_;
};

// A time-out in milliseconds as the system's relative interval; null (no
// limit) for all ones.
inline std::int64_t* NtTimeout(std::uint32_t milliseconds, std::int64_t* storage) {
  if (milliseconds == 0xffffffffu) return nullptr;
  *storage = -static_cast<std::int64_t>(milliseconds) * 10000;
  return storage;
}

inline HANDLE NtHandle(std::intptr_t h) { return reinterpret_cast<HANDLE>(h); }
inline std::intptr_t NtHandleValue(HANDLE h) { return reinterpret_cast<std::intptr_t>(h); }

#endif
