#include "base/lock.h"

#include <sched.h>
#include <time.h>

#include "base/result.h"

ZyrResult ZyrBasCriticalSection::Create() {
  if (initialised_) return ZYR_E_ALREADY_EXISTS;
  pthread_mutexattr_t attr;
  int e = pthread_mutexattr_init(&attr);
  if (e == 0) e = pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
  if (e == 0) e = pthread_mutex_init(&mutex_, &attr);
  pthread_mutexattr_destroy(&attr);
  if (e != 0) return ZyrResultFromErrno(e);
  initialised_ = 1;
  return ZYR_OK;
}

void ZyrBasCriticalSection::RenewAfterFork() {
  if (!initialised_) return;
  initialised_ = 0;
  // The old mutex is not destroyed: destroying a held mutex is undefined,
  // and nothing of it is needed any more.
  (void)Create();
}

void ZyrBasCriticalSection::Delete() {
  if (!initialised_) return;
  pthread_mutex_destroy(&mutex_);  // a failure here is dropped: nothing to report it to
  initialised_ = 0;
}

void ZyrBasYield() { sched_yield(); }

void ZyrBasBriefLock::AcquireContended() {
  // About a microsecond of spinning covers a holder that runs; after that
  // the holder has most likely lost its processor, which it gets back
  // sooner when the spinners give theirs up.
  constexpr int kSpins = 128;
  for (int spins = 0;; ++spins) {
    if (word.load(std::memory_order_relaxed) == 0 &&
        word.exchange(1, std::memory_order_acquire) == 0)
      return;
    if (spins < kSpins) ZyrBasSpinPause();
    else ZyrBasYield();
  }
}

void ZyrBasSpinLock::Acquire() {
  for (;;) {
    std::uint32_t expected = 0;
    if (word.compare_exchange_strong(expected, 1, std::memory_order_acquire)) return;
    if (delayMs == 0) {
      ZyrBasYield();
    } else {
      // All ones would be an untimed delay, which on this platform could
      // never end; it sleeps one second between attempts instead.
      std::uint32_t ms = delayMs == 0xffffffffu ? 1000 : delayMs;
      struct timespec ts = {static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
      nanosleep(&ts, nullptr);
    }
  }
}
