// Critical sections and spin locks. A critical section is a recursive lock
// with a flag that tells that it exists; a spin lock is a word taken by
// compare-and-swap, for process-wide start-up state that must work before
// any constructor has run.
#ifndef ZYR_BASE_LOCK_H
#define ZYR_BASE_LOCK_H

#include <atomic>
#include <cstdint>

#include "zyrlog/result.h"
#include ZYR_PLATFORM_LAYER

class ZyrBasCriticalSection {
 public:
  ZyrBasCriticalSection() = default;
  ~ZyrBasCriticalSection() { Delete(); }
  ZyrBasCriticalSection(const ZyrBasCriticalSection&) = delete;
  ZyrBasCriticalSection& operator=(const ZyrBasCriticalSection&) = delete;

  // ZYR_E_ALREADY_EXISTS if it exists already.
  ZyrResult Create();
  void Delete();
  bool Exists() const { return initialised_ != 0; }
  // In a forked child only, for a lock that the forking thread took before
  // the fork (base/fork.h): the lock is made anew, free. A lock taken before
  // the fork cannot simply be let go in the child: a recursive lock knows
  // its owner by thread id, and the forking thread has a new one there.
  void RenewAfterFork();
  void Enter() { ZyrBasNativeLockEnter(&mutex_); }
  void Leave() { ZyrBasNativeLockLeave(&mutex_); }

 private:
  ZyrBasNativeLock mutex_;
  std::uint8_t initialised_ = 0;
};

class ZyrBasLockGuard {
 public:
  explicit ZyrBasLockGuard(ZyrBasCriticalSection& cs) : cs_(cs) { cs_.Enter(); }
  ~ZyrBasLockGuard() { cs_.Leave(); }
  ZyrBasLockGuard(const ZyrBasLockGuard&) = delete;
  ZyrBasLockGuard& operator=(const ZyrBasLockGuard&) = delete;

 private:
  ZyrBasCriticalSection& cs_;
};

// Gives the processor to another thread that is ready to run.
void ZyrBasYield();

// Lock word and delay in milliseconds between attempts: 0 yields the rest of
// the time slice, all ones sleeps without limit. Zero-initialised statics
// need no constructor.
struct ZyrBasSpinLock {
  std::atomic<std::uint32_t> word{0};
  std::uint32_t delayMs = 0;

  void Acquire();
  void Release() { word.store(0, std::memory_order_release); }
};

// A lock around a few instructions of work: one exchange when it is free.
// A thread that finds it taken spins briefly with the processor's pause
// hint, then gives up the processor between attempts, so that a holder that
// lost its processor can finish. Not recursive; never held across a call
// that can block. Zero-initialised statics need no constructor.
struct ZyrBasBriefLock {
  std::atomic<std::uint32_t> word{0};

  void Acquire() {
    if (word.exchange(1, std::memory_order_acquire) != 0) AcquireContended();
  }
  void Release() { word.store(0, std::memory_order_release); }
  // In a forked child: free, whoever held it in the parent.
  void RenewAfterFork() { word.store(0, std::memory_order_relaxed); }

 private:
  void AcquireContended();
};

class ZyrBasBriefGuard {
 public:
  explicit ZyrBasBriefGuard(ZyrBasBriefLock& lock) : lock_(lock) { lock_.Acquire(); }
  ~ZyrBasBriefGuard() { lock_.Release(); }
  ZyrBasBriefGuard(const ZyrBasBriefGuard&) = delete;
  ZyrBasBriefGuard& operator=(const ZyrBasBriefGuard&) = delete;

 private:
  ZyrBasBriefLock& lock_;
};

// The processor's hint that the caller spins on a memory word.
inline void ZyrBasSpinPause() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#endif
}

class ZyrBasSpinGuard {
 public:
  explicit ZyrBasSpinGuard(ZyrBasSpinLock& lock) : lock_(&lock) { lock_->Acquire(); }
  ~ZyrBasSpinGuard() {
    if (lock_) lock_->Release();
  }
  ZyrBasSpinGuard(const ZyrBasSpinGuard&) = delete;
  ZyrBasSpinGuard& operator=(const ZyrBasSpinGuard&) = delete;

 private:
  ZyrBasSpinLock* lock_;
};

#endif
