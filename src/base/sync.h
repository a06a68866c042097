// Waitable objects, events, wait sets, the thread class, the light lock and
// the per-thread record.
//
// Left out on this platform, on purpose: translating hardware faults into
// exception classes (the library throws nothing and starts no thread that
// asks for it). Per-thread slots are in base/tls.h.
#ifndef ZYR_BASE_SYNC_H
#define ZYR_BASE_SYNC_H

#include <atomic>
#include <cstdint>

#include "base/array.h"
#include "base/handle.h"
#include "zyrlog/result.h"

struct ZyrBasOsThread;

// Anything that can be waited on. It holds nothing, owns a handle, or
// stands for another waitable (a wait on it is a wait on that one).
class ZyrBasWaitable {
 public:
  enum Kind : std::uint32_t { kNothing = 0, kOwned = 1, kReference = 2 };

  ZyrBasWaitable() = default;
  ZyrBasWaitable(const ZyrBasWaitable&) = delete;
  ZyrBasWaitable& operator=(const ZyrBasWaitable&) = delete;

  // An owned handle is closed and the object holds nothing after; a failed
  // close leaves it as it was. A reference is simply dropped.
  virtual ZyrResult Close();
  virtual ~ZyrBasWaitable();

  // 0 when signalled, ZYR_W_TIMEOUT when the time ran out first. An object
  // that holds nothing gives ZYR_E_INVALID_HANDLE.
  virtual ZyrResult Wait(std::uint32_t milliseconds) const;

  std::uint32_t GetKind() const { return kind_; }
  // The handle at the end of the chain of references, or ZYR_NO_HANDLE.
  ZyrBasHandle Resolve() const;
  // Takes ownership of a handle / stands for another waitable. Either gives
  // ZYR_E_ALREADY_EXISTS if the object holds something.
  ZyrResult Adopt(ZyrBasHandle handle);
  ZyrResult Refer(ZyrBasWaitable& other);

 protected:
  union {
    ZyrBasHandle handle_ = ZYR_NO_HANDLE;
    const ZyrBasWaitable* referred_;
  };
  std::uint32_t kind_ = kNothing;
};

// Manual-reset event: once Set, every wait succeeds until Reset.
class ZyrBasEvent : public ZyrBasWaitable {
 public:
  ZyrBasEvent() = default;
  // Not signalled at first; ZYR_E_ALREADY_EXISTS if the object holds something.
  ZyrResult Create();
  ZyrResult Set();
  ZyrResult Reset();
  ZyrResult Close() override;

 private:
  // Set while the event stands set, so that setting a set event costs no
  // system call (the queue sets its event after every append). Kept only
  // for an event that owns its handle: every Set and Reset of it passes
  // through this object.
  std::atomic<std::uint32_t> setHint_{0};
};

// A set of waitables waited on together. It refers to its members; it does
// not own them.
class ZyrBasWaitSet {
 public:
  static constexpr std::uint32_t kMaxObjects = 64;

  ZyrBasWaitSet() = default;
  ZyrBasWaitSet(const ZyrBasWaitSet&) = delete;
  ZyrBasWaitSet& operator=(const ZyrBasWaitSet&) = delete;

  // The system's wait over resolved handles; 0 with the index of the
  // signalled one, or ZYR_W_TIMEOUT. Virtual so that a test can stand in.
  virtual ZyrResult WaitObjects(std::uint32_t count, const ZyrBasHandle* handles, bool waitAny,
                                std::uint32_t milliseconds, std::uint32_t* index);
  virtual ~ZyrBasWaitSet() = default;

  // 0; ZYR_I_ALREADY_IN_SET (nothing changes); ZYR_I_WAIT_SET_OVERFULL when
  // the object was added and the set now holds more than 64, so that a wait
  // on it will fail.
  ZyrResult Add(ZyrBasWaitable& object);
  // ZYR_I_NOT_FOUND if the object is not in the set.
  ZyrResult Remove(ZyrBasWaitable& object);
  void Clear() { objects_.Clear(); }
  std::uint32_t Count() const { return static_cast<std::uint32_t>(objects_.Count()); }

  // Waits for any (or all) of the objects. 0 with the signalled object in
  // *signalled (the first one when waiting for all); ZYR_W_TIMEOUT;
  // ZYR_W_WAIT_SET_EMPTY; ZYR_E_TOO_MANY_WAIT_HANDLES beyond 64 objects.
  ZyrResult Wait(std::uint32_t milliseconds, bool waitAny, ZyrBasWaitable** signalled);

 private:
  ZyrBasArray<ZyrBasWaitable*> objects_;
};

// A thread of the library, waitable for its end. Derive, implement Run,
// and call Start. The object must outlive its thread: wait for the end
// before destroying it.
class ZyrBasThread : public ZyrBasWaitable {
 public:
  enum Flags : std::uint32_t {
    kTranslateFaults = 1,   // accepted and ignored: no fault translation here
    kTranslateInPage = 2,   // likewise
    kTerminateSelf = 4,     // no difference here: the thread simply returns
    kStartSuspended = 8,    // runs nothing until Resume
  };
  static constexpr std::uint32_t kNoThreadId = 0xffffffffu;

  ZyrBasThread();
  // Lets go of the thread. A running thread goes on, detached; one that was
  // started suspended and never resumed ends without running.
  ZyrResult Close() override;
  ~ZyrBasThread() override;
  // A successful wait also orders everything the thread did before its end
  // ahead of what the caller does next.
  ZyrResult Wait(std::uint32_t milliseconds) const override;
  // The thread's work; its result is the exit code.
  virtual ZyrResult Run() = 0;
  // Runs on the thread after Run, as its last act on this object.
  virtual void OnExit() {}

  // Starts a thread unless one is still running (then ZYR_E_TIMEOUT, and
  // the running one goes on). The stop event is created, or reset if it
  // exists, first.
  ZyrResult Start(std::uint32_t flags);
  // In a forked child: the parent's thread does not exist here. The object
  // lets go of it and of the stop event, which the child shares with the
  // parent, so that the next Start makes both anew.
  void ForgetAfterFork();
  // Lets a thread started with kStartSuspended run. ZYR_E_INVALID_HANDLE
  // when there is no thread.
  ZyrResult Resume();
  // The exit code once the thread has ended; ZYR_W_TIMEOUT while it runs,
  // ZYR_E_INVALID_HANDLE without a thread.
  ZyrResult GetExitCode(ZyrResult* code) const;

  std::uint32_t ThreadId() const { return threadId_; }
  std::uint32_t ThreadFlags() const { return threadFlags_; }
  ZyrBasEvent& StopEvent() { return stopEvent_; }
  // What stands for the stop event in wait sets: the own stop event unless
  // the owner points it elsewhere.
  ZyrBasWaitable& StopReference() { return *stopReference_; }
  void SetStopReference(ZyrBasWaitable& stop) { stopReference_ = &stop; }

 private:
  static ZyrResult Entry(void* self);

  ZyrBasOsThread* os_ = nullptr;
  std::uint32_t threadId_ = kNoThreadId;
  ZyrBasEvent stopEvent_;
  ZyrBasWaitable* stopReference_;
  std::uint32_t threadFlags_ = 0;
};

// Ends the calling thread with `status` as its exit code. For the remote
// entry points, which run as threads of their own that others start.
[[noreturn]] void ZyrBasEndThread(ZyrResult status);

// A lock that needs no set-up: a count and a lazily made event. Without
// contention a lock and an unlock are one atomic operation each and no event
// exists. Zero-initialised statics are ready to use. Not recursive.
struct ZyrBasLightLock {
  std::atomic<std::int64_t> count{0};
  // The event's handle and, in bit 0, the mark that a waiter relies on it.
  std::atomic<std::uintptr_t> word{0};

  // A contended Acquire makes an event before it counts itself in, so that
  // a failure to make one (descriptors exhausted) is returned with nothing
  // changed: the caller does not hold the lock then. Release needs no
  // event of its own and cannot fail: a waiter that counted itself in
  // brings its event.
  ZyrResult Acquire();
  void Release();
};

// Holds the lock for a scope when Result() succeeded.
class ZyrBasLightGuard {
 public:
  explicit ZyrBasLightGuard(ZyrBasLightLock& lock) : lock_(lock), result_(lock_.Acquire()) {}
  ~ZyrBasLightGuard() {
    if (ZyrSucceeded(result_)) lock_.Release();
  }
  ZyrBasLightGuard(const ZyrBasLightGuard&) = delete;
  ZyrBasLightGuard& operator=(const ZyrBasLightGuard&) = delete;
  ZyrResult Result() const { return result_; }

 private:
  ZyrBasLightLock& lock_;
  ZyrResult result_;
};

// One record per thread: made when the base starts for the starting thread,
// at the start of every ZyrBasThread, and on demand for any other thread;
// dropped at the thread's end by the cleanup of a per-thread slot.
struct ZyrBasThreadRecord {
  std::uint32_t threadId;
  ZyrBasThreadRecord* previous;
  ZyrBasThreadRecord* next;
};

// The calling thread's record, made if it has none; ZYR_E_OUT_OF_MEMORY.
ZyrResult ZyrBasThreadRecordAttach(ZyrBasThreadRecord** record = nullptr);
// The record of the calling thread, made on demand; null without memory.
ZyrBasThreadRecord* ZyrBasThreadRecordCurrent();
// Unlinks and frees the calling thread's record, if it has one.
void ZyrBasThreadRecordDrop();
// How many records live, over all threads.
std::uint32_t ZyrBasThreadRecordCount();
// Around a fork (base/fork.h): the list's lock is taken before and given
// back after; the child makes it anew and keeps only its own thread's
// record, for the parent's other threads do not exist there.
void ZyrBasThreadRecordsForkPrepare();
void ZyrBasThreadRecordsForkParent();
void ZyrBasThreadRecordsForkChild();

#endif
