// Whole-file locks of the system: NtLockFile with "fail at once", over the
// largest range, so that the lock covers the file however far it grows.
// A lock belongs to the handle and ends with it or with its process.
#include <atomic>

#include "base/file_lock.h"
#include "base/nt/nt_support.h"

namespace {

std::atomic<ZyrResult> g_refusal{ZYR_OK};
constexpr std::int64_t kWholeLength = INT64_MAX;
constexpr NTSTATUS kStatusFileLockConflict = static_cast<NTSTATUS>(0xC0000054u);

}  // namespace

ZyrResult ZyrBasTryLockFile(ZyrBasFileBase& file, bool exclusive) {
  if (file.NativeHandle() == -1) return ZYR_E_INVALID_HANDLE;
  ZyrResult refusal = g_refusal.load(std::memory_order_relaxed);
  if (ZyrFailed(refusal)) return refusal;
  std::int64_t offset = 0, length = kWholeLength;
  IO_STATUS_BLOCK io{};
  HANDLE handle = NtHandle(file.NativeHandle());
  NTSTATUS s = NtLockFile(handle, nullptr, nullptr, nullptr, &io, &offset, &length, nullptr, 1, exclusive ? 1 : 0);
  // Wine 8 answers STATUS_NOT_IMPLEMENTED to a call with a status block,
  // which the system itself requires, and locks for real without one. The
  // system never gives that answer, so the second call is wine's alone;
  // without it, processes sharing a rolling file under wine would roll it
  // over together and lose lines.
  if (s == STATUS_NOT_IMPLEMENTED)
    s = NtLockFile(handle, nullptr, nullptr, nullptr, nullptr, &offset, &length, nullptr, 1, exclusive ? 1 : 0);
  // Held elsewhere. Wine says so with the conflict status.
  if (s == STATUS_LOCK_NOT_GRANTED || s == kStatusFileLockConflict) return ZYR_W_TIMEOUT;
  // No lock of this kind here (a share without locks): the caller goes on
  // without one.
  if (s == STATUS_NOT_SUPPORTED || s == STATUS_INVALID_DEVICE_REQUEST || s == STATUS_NOT_IMPLEMENTED)
    return ZYR_E_NOT_SUPPORTED;
  return NtResult(s);
}

ZyrResult ZyrBasUnlockFile(ZyrBasFileBase& file) {
  if (file.NativeHandle() == -1) return ZYR_E_INVALID_HANDLE;
  std::int64_t offset = 0, length = kWholeLength;
  IO_STATUS_BLOCK io{};
  HANDLE handle = NtHandle(file.NativeHandle());
  NTSTATUS s = NtUnlockFile(handle, &io, &offset, &length, nullptr);
  if (s == STATUS_NOT_IMPLEMENTED) s = NtUnlockFile(handle, nullptr, &offset, &length, nullptr);  // wine, as above
  // Unlocking what is not locked is no fault.
  if (s == static_cast<NTSTATUS>(0xC000007Eu)) return ZYR_OK;  // STATUS_RANGE_NOT_LOCKED
  return NtResult(s);
}

void ZyrBasTestRefuseFileLocks(ZyrResult answer) { g_refusal.store(answer, std::memory_order_relaxed); }
