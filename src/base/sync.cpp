#include "base/sync.h"

#include <new>

#include "base/identity.h"
#include "base/lock.h"
#include "base/memory.h"
#include "base/os/sync_os.h"
#include "base/tls.h"

// ---------------------------------------------------------------------------
// ZyrBasWaitable

namespace {
// References may chain; a chain this long can only be a cycle.
constexpr int kMaxReferenceDepth = 64;
}  // namespace

ZyrResult ZyrBasWaitable::Close() {
  if (kind_ == kOwned) {
    ZyrResult r = ZyrBasOsClose(handle_);
    if (ZyrFailed(r)) return r;
  }
  kind_ = kNothing;
  handle_ = ZYR_NO_HANDLE;
  return ZYR_OK;
}

ZyrBasWaitable::~ZyrBasWaitable() { ZyrBasWaitable::Close(); }

ZyrBasHandle ZyrBasWaitable::Resolve() const {
  const ZyrBasWaitable* w = this;
  for (int depth = 0; depth < kMaxReferenceDepth; ++depth) {
    if (w->kind_ == kOwned) return w->handle_;
    if (w->kind_ != kReference) return ZYR_NO_HANDLE;
    w = w->referred_;
  }
  return ZYR_NO_HANDLE;
}

ZyrResult ZyrBasWaitable::Adopt(ZyrBasHandle handle) {
  if (kind_ != kNothing) return ZYR_E_ALREADY_EXISTS;
  if (handle < 0) return ZYR_E_INVALID_HANDLE;
  handle_ = handle;
  kind_ = kOwned;
  return ZYR_OK;
}

ZyrResult ZyrBasWaitable::Refer(ZyrBasWaitable& other) {
  if (kind_ != kNothing) return ZYR_E_ALREADY_EXISTS;
  if (&other == this) return ZYR_E_INVALID_ARGUMENT;
  referred_ = &other;
  kind_ = kReference;
  return ZYR_OK;
}

ZyrResult ZyrBasWaitable::Wait(std::uint32_t milliseconds) const {
  if (kind_ != kOwned && kind_ != kReference) {
    return kind_ == kNothing ? ZYR_E_INVALID_HANDLE : ZYR_E_NOT_IMPLEMENTED;
  }
  ZyrBasHandle h = Resolve();
  if (h == ZYR_NO_HANDLE) return ZYR_E_INVALID_HANDLE;
  std::uint32_t index;
  // No object here can be abandoned (there are no owned mutexes), so the
  // answers are signalled, time-out, or a failure of the wait itself.
  return ZyrBasOsWait(&h, 1, true, milliseconds, &index);
}

// ---------------------------------------------------------------------------
// ZyrBasEvent

ZyrResult ZyrBasEvent::Create() {
  if (kind_ != kNothing) return ZYR_E_ALREADY_EXISTS;
  ZyrBasHandle h;
  ZyrResult r = ZyrBasOsEventCreate(ZyrBasOsEventType::ManualReset, &h);
  if (ZyrFailed(r)) return r;
  handle_ = h;
  kind_ = kOwned;
  return ZYR_OK;
}

ZyrResult ZyrBasEvent::Set() {
  ZyrBasHandle h = Resolve();
  if (h == ZYR_NO_HANDLE) return ZYR_E_INVALID_HANDLE;
  bool owned = kind_ == kOwned;
  if (owned && (setHint_.load() == 1 || setHint_.exchange(1) == 1)) return ZYR_OK;
  ZyrResult r = ZyrBasOsEventSet(h);
  if (owned && ZyrFailed(r)) setHint_.store(0);
  return r;
}

// The event is emptied before the hint is cleared. The other order loses a
// Set that falls between the two: it finds the hint cleared, sets the hint
// and the event, and the reset then empties the event behind it, leaving the
// hint standing over an empty event, so that every later Set is skipped and
// a waiter sleeps for good. In this order a Set skipped in the window ran
// after the reset had begun, so whoever reset sees what that Set announced.
ZyrResult ZyrBasEvent::Reset() {
  ZyrBasHandle h = Resolve();
  if (h == ZYR_NO_HANDLE) return ZYR_E_INVALID_HANDLE;
  ZyrResult r = ZyrBasOsEventReset(h);
  if (kind_ == kOwned && ZyrSucceeded(r)) setHint_.store(0);
  return r;
}

ZyrResult ZyrBasEvent::Close() {
  setHint_.store(0);
  return ZyrBasWaitable::Close();
}

// ---------------------------------------------------------------------------
// ZyrBasWaitSet

ZyrResult ZyrBasWaitSet::WaitObjects(std::uint32_t count, const ZyrBasHandle* handles,
                                     bool waitAny, std::uint32_t milliseconds,
                                     std::uint32_t* index) {
  return ZyrBasOsWait(handles, count, waitAny, milliseconds, index);
}

ZyrResult ZyrBasWaitSet::Add(ZyrBasWaitable& object) {
  for (ZyrBasWaitable* w : objects_)
    if (w == &object) return ZYR_I_ALREADY_IN_SET;
  ZyrResult r = objects_.Append(&object);
  if (ZyrFailed(r)) return r;
  return objects_.Count() > kMaxObjects ? ZYR_I_WAIT_SET_OVERFULL : ZYR_OK;
}

ZyrResult ZyrBasWaitSet::Remove(ZyrBasWaitable& object) {
  for (std::size_t i = 0; i < objects_.Count(); ++i) {
    if (objects_[i] == &object) {
      objects_.RemoveAt(i);
      return ZYR_OK;
    }
  }
  return ZYR_I_NOT_FOUND;
}

ZyrResult ZyrBasWaitSet::Wait(std::uint32_t milliseconds, bool waitAny,
                              ZyrBasWaitable** signalled) {
  std::uint32_t count = Count();
  if (count == 0) return ZYR_W_WAIT_SET_EMPTY;
  if (count > kMaxObjects) return ZYR_E_TOO_MANY_WAIT_HANDLES;
  ZyrBasHandle handles[kMaxObjects];
  for (std::uint32_t i = 0; i < count; ++i) handles[i] = objects_[i]->Resolve();
  std::uint32_t index = 0;
  ZyrResult r = WaitObjects(count, handles, waitAny, milliseconds, &index);
  if (r == ZYR_OK && signalled) *signalled = index < count ? objects_[index] : nullptr;
  return r;
}

// ---------------------------------------------------------------------------
// ZyrBasThread

ZyrBasThread::ZyrBasThread() : stopReference_(&stopEvent_) {}

ZyrResult ZyrBasThread::Close() {
  if (os_) {
    ZyrBasOsThreadRelease(os_);
    os_ = nullptr;
  }
  kind_ = kNothing;
  handle_ = ZYR_NO_HANDLE;
  return ZYR_OK;
}

ZyrBasThread::~ZyrBasThread() { Close(); }

ZyrResult ZyrBasThread::Wait(std::uint32_t milliseconds) const {
  ZyrResult r = ZyrBasWaitable::Wait(milliseconds);
  // The end is told through a descriptor, which the language's memory model
  // does not see; reading the exit code pairs with the thread's last store.
  ZyrResult code;
  if (r == ZYR_OK && os_) ZyrBasOsThreadExitCode(os_, &code);
  return r;
}

ZyrResult ZyrBasThread::Start(std::uint32_t flags) {
  if (os_) {
    ZyrResult r = Wait(0);
    if (r == ZYR_W_TIMEOUT) return ZYR_E_TIMEOUT;
    if (ZyrFailed(r)) return r;
  }
  threadFlags_ = flags;
  if (stopReference_ == &stopEvent_) {
    ZyrResult r = stopEvent_.GetKind() == kOwned ? stopEvent_.Reset() : stopEvent_.Create();
    if (ZyrFailed(r)) return r;
  }

  ZyrBasOsThread* fresh;
  ZyrResult r = ZyrBasOsThreadCreate(&ZyrBasThread::Entry, this, &fresh);
  if (ZyrFailed(r)) return r;
  Close();  // the ended predecessor, if any
  os_ = fresh;
  handle_ = ZyrBasOsThreadWaitHandle(fresh);
  kind_ = kOwned;
  threadId_ = ZyrBasOsThreadId(fresh);
  if (flags & kStartSuspended) return ZYR_OK;
  return ZyrBasOsThreadResume(fresh);
}

void ZyrBasThread::ForgetAfterFork() {
  if (os_) ZyrBasOsThreadForget(os_);
  os_ = nullptr;
  kind_ = kNothing;
  handle_ = ZYR_NO_HANDLE;
  threadId_ = kNoThreadId;
  (void)stopEvent_.Close();
}

ZyrResult ZyrBasThread::Resume() {
  if (!os_) return ZYR_E_INVALID_HANDLE;
  return ZyrBasOsThreadResume(os_);
}

ZyrResult ZyrBasThread::GetExitCode(ZyrResult* code) const {
  if (!os_) return ZYR_E_INVALID_HANDLE;
  return ZyrBasOsThreadExitCode(os_, code) ? ZYR_OK : ZYR_W_TIMEOUT;
}

ZyrResult ZyrBasThread::Entry(void* self) {
  ZyrBasThread* thread = static_cast<ZyrBasThread*>(self);
  // Without memory for the record the thread still runs: nothing in the
  // library needs the record to do its work.
  ZyrBasThreadRecordAttach();
  ZyrResult code = thread->Run();
  ZyrBasThreadRecordDrop();
  thread->OnExit();
  return code;
}

// ---------------------------------------------------------------------------
// ZyrBasLightLock
//
// The count is the number of threads that hold or want the lock. The one
// that takes it from 0 to 1 holds it; every other one waits on the event
// for a hand-off, and every release that leaves the count above 0 hands the
// lock on by setting the event once. The event is auto-reset, so each
// setting releases exactly one waiter, and one that has not reached its wait
// yet finds the event signalled.
//
// A thread that has counted itself in cannot step out again without risking
// a hand-off meant for it, so the only step that can fail, making an event,
// comes before the count: a contended Acquire brings an event of its own,
// and a failure there is returned with nothing changed. A waiter's event is
// installed flagged, so no quiet acquirer takes it away before the wait.

namespace {

constexpr std::uintptr_t kFlagged = 1;

std::uintptr_t Encode(ZyrBasHandle h) { return (static_cast<std::uintptr_t>(h) + 1) << 1; }
ZyrBasHandle Decode(std::uintptr_t word) {
  return static_cast<ZyrBasHandle>((word >> 1) - 1);
}

// Held without contention: an event left from earlier contention that no
// waiter relies on goes now.
void DropQuietEvent(std::atomic<std::uintptr_t>& word) {
  std::uintptr_t w = word.load(std::memory_order_acquire);
  if (w != 0 && !(w & kFlagged) && word.compare_exchange_strong(w, 0, std::memory_order_acq_rel))
    ZyrBasOsClose(Decode(w));
}

}  // namespace

ZyrResult ZyrBasLightLock::Acquire() {
  std::int64_t free = 0;
  if (count.compare_exchange_strong(free, 1, std::memory_order_acq_rel)) {
    DropQuietEvent(word);
    return ZYR_OK;
  }
  ZyrBasHandle spare;
  ZyrResult r = ZyrBasOsEventCreate(ZyrBasOsEventType::AutoReset, &spare);
  if (ZyrFailed(r)) return r;
  if (count.fetch_add(1, std::memory_order_acq_rel) == 0) {
    ZyrBasOsClose(spare);  // freed in the meantime
    DropQuietEvent(word);
    return ZYR_OK;
  }
  for (;;) {
    std::uintptr_t w = word.load(std::memory_order_acquire);
    std::uintptr_t mine = w | kFlagged;
    if (w == 0) {
      mine = Encode(spare) | kFlagged;
      if (!word.compare_exchange_strong(w, mine, std::memory_order_acq_rel)) continue;
      spare = ZYR_NO_HANDLE;  // the word owns it now
    } else if (!(w & kFlagged) &&
               !word.compare_exchange_strong(w, mine, std::memory_order_acq_rel)) {
      continue;
    }
    if (spare != ZYR_NO_HANDLE) ZyrBasOsClose(spare);
    (void)ZyrBasOsEventTake(Decode(mine));
    return ZYR_OK;
  }
}

void ZyrBasLightLock::Release() {
  std::uintptr_t w = word.load(std::memory_order_acquire);
  if (w & kFlagged) word.compare_exchange_strong(w, w & ~kFlagged, std::memory_order_acq_rel);

  if (count.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    // Nobody waits: an event that no waiter has flagged since goes.
    std::uintptr_t unflagged = word.load(std::memory_order_acquire) & ~kFlagged;
    if (unflagged != 0 &&
        word.compare_exchange_strong(unflagged, 0, std::memory_order_acq_rel))
      ZyrBasOsClose(Decode(unflagged));
    return;
  }

  // A waiter is there or on its way, with an event of its own that it
  // installs before it waits: hand the lock on through whatever stands.
  for (;;) {
    w = word.load(std::memory_order_acquire);
    if (w != 0) break;
    ZyrBasOsSleep(0);
  }
  ZyrBasOsEventSet(Decode(w));
}

// ---------------------------------------------------------------------------
// Per-thread records
//
// The list lock and the slot that holds each thread's record are made on
// first use under a spin lock and never destroyed, so a record can be
// dropped by a thread that ends after everything static has been torn down.
// The slot's cleanup drops the record at the thread's end; it allocates
// nothing, unlike a thread_local destructor, whose registration can fail.

namespace {

ZyrBasSpinLock gRecordStart;
alignas(ZyrBasCriticalSection) unsigned char gRecordLockStorage[sizeof(ZyrBasCriticalSection)];
std::atomic<ZyrBasCriticalSection*> gRecordLock{nullptr};
std::uint32_t gRecordSlot = ZYR_TLS_NONE;
ZyrBasThreadRecord* gRecordHead = nullptr;
std::uint32_t gRecordCount = 0;

void Unlink(void* value);

ZyrBasCriticalSection* RecordLock() {
  ZyrBasCriticalSection* cs = gRecordLock.load(std::memory_order_acquire);
  if (cs) return cs;
  ZyrBasSpinGuard guard(gRecordStart);
  cs = gRecordLock.load(std::memory_order_relaxed);
  if (cs) return cs;
  if (gRecordSlot == ZYR_TLS_NONE && ZyrFailed(ZyrBasTlsAlloc(&gRecordSlot, &Unlink))) return nullptr;
  cs = new (gRecordLockStorage) ZyrBasCriticalSection();
  if (ZyrFailed(cs->Create())) {
    cs->~ZyrBasCriticalSection();
    return nullptr;
  }
  gRecordLock.store(cs, std::memory_order_release);
  return cs;
}

void Unlink(void* value) {
  auto* record = static_cast<ZyrBasThreadRecord*>(value);
  ZyrBasCriticalSection* cs = RecordLock();
  if (cs) {
    ZyrBasLockGuard guard(*cs);
    if (record->previous) record->previous->next = record->next;
    else gRecordHead = record->next;
    if (record->next) record->next->previous = record->previous;
    --gRecordCount;
  }
  ZyrBasFree(record);
}

}  // namespace

ZyrResult ZyrBasThreadRecordAttach(ZyrBasThreadRecord** out) {
  ZyrBasCriticalSection* cs = RecordLock();
  if (!cs) return ZYR_E_OUT_OF_MEMORY;
  auto* record = static_cast<ZyrBasThreadRecord*>(ZyrBasTlsGet(gRecordSlot));
  if (!record) {
    record = static_cast<ZyrBasThreadRecord*>(ZyrBasAllocZero(sizeof(ZyrBasThreadRecord)));
    if (!record) return ZYR_E_OUT_OF_MEMORY;
    record->threadId = ZyrBasCurrentThreadId();
    ZyrResult r = ZyrBasTlsSet(gRecordSlot, record);
    if (ZyrFailed(r)) {
      ZyrBasFree(record);
      return r;
    }
    ZyrBasLockGuard guard(*cs);
    record->next = gRecordHead;
    if (gRecordHead) gRecordHead->previous = record;
    gRecordHead = record;
    ++gRecordCount;
  }
  if (out) *out = record;
  return ZYR_OK;
}

ZyrBasThreadRecord* ZyrBasThreadRecordCurrent() {
  ZyrBasThreadRecord* record = nullptr;
  return ZyrSucceeded(ZyrBasThreadRecordAttach(&record)) ? record : nullptr;
}

void ZyrBasThreadRecordDrop() {
  if (!gRecordLock.load(std::memory_order_acquire)) return;
  void* record = ZyrBasTlsGet(gRecordSlot);
  if (!record) return;
  (void)ZyrBasTlsSet(gRecordSlot, nullptr);  // clearing a set value needs no memory
  Unlink(record);
}

std::uint32_t ZyrBasThreadRecordCount() {
  ZyrBasCriticalSection* cs = RecordLock();
  if (!cs) return 0;
  ZyrBasLockGuard guard(*cs);
  return gRecordCount;
}

void ZyrBasThreadRecordsForkPrepare() {
  if (ZyrBasCriticalSection* cs = gRecordLock.load(std::memory_order_acquire)) cs->Enter();
}

void ZyrBasThreadRecordsForkParent() {
  if (ZyrBasCriticalSection* cs = gRecordLock.load(std::memory_order_acquire)) cs->Leave();
}

void ZyrBasThreadRecordsForkChild() {
  ZyrBasCriticalSection* cs = gRecordLock.load(std::memory_order_acquire);
  if (!cs) return;
  cs->RenewAfterFork();
  auto* mine = static_cast<ZyrBasThreadRecord*>(ZyrBasTlsGet(gRecordSlot));
  for (ZyrBasThreadRecord* record = gRecordHead; record;) {
    ZyrBasThreadRecord* next = record->next;
    if (record != mine) ZyrBasFree(record);
    record = next;
  }
  gRecordHead = mine;
  gRecordCount = mine ? 1 : 0;
  if (mine) mine->previous = mine->next = nullptr;
}
