// Critical sections over recursive pthread mutexes.
#include <pthread.h>
#include <sched.h>

#include "base/lock.h"
#include "base/result.h"

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#endif

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
#if defined(__SANITIZE_THREAD__)
  // The race detector still counts the lock as held by this thread, which
  // took it before the fork; it learns that the lock is let go, as the
  // fresh one is.
  (void)__tsan_mutex_pre_unlock(&mutex_, __tsan_mutex_recursive_unlock);
  __tsan_mutex_post_unlock(&mutex_, 0);
#endif
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
