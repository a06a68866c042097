// Events, waits and threads of the native interface: every waitable is a
// handle of the system, which waits on up to 64 of them at once.
#include <atomic>

#include "base/memory.h"
#include "base/nt/nt_support.h"
#include "base/os/sync_os.h"
#include "base/sync.h"
#include "base/tls.h"

namespace {
constexpr ULONG kNotificationEvent = 0;
constexpr ULONG kSynchronizationEvent = 1;
constexpr ULONG kWaitAll = 0;
constexpr ULONG kWaitAny = 1;
constexpr std::size_t kStackReserve = 0x100000;
constexpr std::size_t kStackCommit = 4096;
}  // namespace

ZyrResult ZyrBasOsEventCreate(ZyrBasOsEventType type, ZyrBasHandle* out) {
  HANDLE h = nullptr;
  NTSTATUS s = NtCreateEvent(&h, EVENT_ALL_ACCESS, nullptr,
                             type == ZyrBasOsEventType::ManualReset ? kNotificationEvent : kSynchronizationEvent, 0);
  if (!NtSucceeded(s)) return NtResult(s);
  *out = NtHandleValue(h);
  return ZYR_OK;
}

ZyrResult ZyrBasOsEventSet(ZyrBasHandle event) { return NtResult(NtSetEvent(NtHandle(event), nullptr)); }
ZyrResult ZyrBasOsEventReset(ZyrBasHandle event) { return NtResult(NtResetEvent(NtHandle(event), nullptr)); }

// A synchronization event clears itself as it releases its one waiter.
ZyrResult ZyrBasOsEventTake(ZyrBasHandle event) {
  NTSTATUS s = NtWaitForSingleObject(NtHandle(event), 0, nullptr);
  return NtSucceeded(s) ? ZYR_OK : NtResult(s);
}


ZyrResult ZyrBasOsWait(const ZyrBasHandle* handles, std::uint32_t count, bool waitAny,
                       std::uint32_t milliseconds, std::uint32_t* index) {
  if (count == 0 || count > 64) return ZYR_E_INVALID_ARGUMENT;
  HANDLE list[64];
  for (std::uint32_t i = 0; i < count; ++i) {
    if (handles[i] == ZYR_NO_HANDLE) return ZYR_E_INVALID_HANDLE;
    list[i] = NtHandle(handles[i]);
  }
  std::int64_t storage;
  std::int64_t* timeout = NtTimeout(milliseconds, &storage);
  NTSTATUS s = count == 1 ? NtWaitForSingleObject(list[0], 0, timeout)
                          : NtWaitForMultipleObjects(count, list, waitAny ? kWaitAny : kWaitAll, 0, timeout);
  if (s == STATUS_TIMEOUT) return ZYR_W_TIMEOUT;
  if (s >= 0 && static_cast<std::uint32_t>(s) < count) {
    *index = waitAny ? static_cast<std::uint32_t>(s) : 0;
    return ZYR_OK;
  }
  if (s >= STATUS_ABANDONED_WAIT_0 && static_cast<std::uint32_t>(s - STATUS_ABANDONED_WAIT_0) < count) {
    *index = static_cast<std::uint32_t>(s - STATUS_ABANDONED_WAIT_0);
    return ZYR_I_WAIT_ABANDONED;
  }
  return NtSucceeded(s) ? ZYR_E_UNEXPECTED_SYSTEM_RESULT : NtResult(s);
}

void ZyrBasOsSleep(std::uint32_t milliseconds) {
  std::int64_t storage;
  NtDelayExecution(0, NtTimeout(milliseconds, &storage));
}

void ZyrBasEndThread(ZyrResult status) { RtlExitUserThread(static_cast<NTSTATUS>(status)); }

// ---------------------------------------------------------------------------
// Threads. The thread is made suspended, so its id is known at once and
// nothing runs before the owner resumes it.

struct ZyrBasOsThread {
  std::atomic<std::uint32_t> references{2};  // the owner and the thread
  std::atomic<std::uint32_t> resumed{0};
  std::atomic<std::uint32_t> ended{0};
  ZyrResult exitCode = ZYR_OK;
  HANDLE thread = nullptr;
  std::uint32_t threadId = 0;
  ZyrBasOsThreadEntry entry = nullptr;
  void* arg = nullptr;
};

namespace {

void DropReference(ZyrBasOsThread* t) {
  if (t->references.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  NtClose(t->thread);
  ZyrDelete(t);
}

NTSTATUS __stdcall ThreadMain(void* p) {
  ZyrBasOsThread* t = static_cast<ZyrBasOsThread*>(p);
  ZyrResult code = t->entry(t->arg);
  // The thread's slots are cleaned up here: a thread of a program that
  // links the library has no module entry to do it at the thread's end.
  ZyrBasTlsThreadDetach();
  t->exitCode = code;
  t->ended.store(1, std::memory_order_release);
  DropReference(t);
  RtlExitUserThread(static_cast<NTSTATUS>(code));
}

}  // namespace

ZyrResult ZyrBasOsThreadCreate(ZyrBasOsThreadEntry entry, void* arg, ZyrBasOsThread** out) {
  ZyrBasOsThread* t = ZyrNew<ZyrBasOsThread>();
  if (!t) return ZYR_E_OUT_OF_MEMORY;
  t->entry = entry;
  t->arg = arg;
  CLIENT_ID client{};
  NTSTATUS s = RtlCreateUserThread(NtCurrentProcess(), nullptr, 1, 0, kStackReserve, kStackCommit, &ThreadMain, t,
                                   &t->thread, &client);
  if (!NtSucceeded(s)) {
    ZyrDelete(t);
    return NtResult(s);
  }
  t->threadId = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(client.UniqueThread));
  *out = t;
  return ZYR_OK;
}

ZyrResult ZyrBasOsThreadResume(ZyrBasOsThread* t) {
  std::uint32_t expected = 0;
  if (!t->resumed.compare_exchange_strong(expected, 1, std::memory_order_acq_rel)) return ZYR_OK;
  NTSTATUS s = NtResumeThread(t->thread, nullptr);
  if (NtSucceeded(s)) return ZYR_OK;
  // A thread that cannot run is ended, so that nothing waits for it forever.
  t->resumed.store(0, std::memory_order_release);
  return NtResult(s);
}

ZyrBasHandle ZyrBasOsThreadWaitHandle(const ZyrBasOsThread* t) { return NtHandleValue(t->thread); }
std::uint32_t ZyrBasOsThreadId(const ZyrBasOsThread* t) { return t->threadId; }

bool ZyrBasOsThreadExitCode(const ZyrBasOsThread* t, ZyrResult* code) {
  if (!t->ended.load(std::memory_order_acquire)) return false;
  *code = t->exitCode;
  return true;
}

// Only a forked child forgets a thread, and no process here is forked.
void ZyrBasOsThreadForget(ZyrBasOsThread* t) {
  NtClose(t->thread);
  ZyrDelete(t);
}

void ZyrBasOsThreadRelease(ZyrBasOsThread* t) {
  std::uint32_t expected = 0;
  if (t->resumed.compare_exchange_strong(expected, 2, std::memory_order_acq_rel)) {
    // Never resumed: it ends without running, and never takes its share.
    NtTerminateThread(t->thread, 0);
    NtWaitForSingleObject(t->thread, 0, nullptr);
    DropReference(t);
  }
  DropReference(t);
}
