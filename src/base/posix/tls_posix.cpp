// Per-thread slots over pthread keys: the key's destructor is the slot's
// cleanup, and glibc calls it at the thread's end without allocating.
#include <errno.h>
#include <pthread.h>

#include "base/result.h"
#include "base/tls.h"

static_assert(sizeof(pthread_key_t) <= sizeof(std::uint32_t), "a key fits a slot index");

ZyrResult ZyrBasTlsAlloc(std::uint32_t* index, ZyrBasTlsCleanup cleanup) {
  if (!index) return ZYR_E_INVALID_ARGUMENT;
  pthread_key_t key;
  int e = pthread_key_create(&key, cleanup);
  if (e == EAGAIN) return ZYR_E_NO_FREE_SLOT;
  if (e != 0) return ZyrResultFromErrno(e);
  *index = static_cast<std::uint32_t>(key);
  return ZYR_OK;
}

ZyrResult ZyrBasTlsFree(std::uint32_t index) {
  if (index == ZYR_TLS_NONE) return ZYR_E_NOT_INITIALIZED;
  int e = pthread_key_delete(static_cast<pthread_key_t>(index));
  return e == 0 ? ZYR_OK : ZYR_E_INVALID_ARGUMENT;
}

void* ZyrBasTlsGet(std::uint32_t index) {
  if (index == ZYR_TLS_NONE) return nullptr;
  return pthread_getspecific(static_cast<pthread_key_t>(index));
}

ZyrResult ZyrBasTlsSet(std::uint32_t index, void* value) {
  if (index == ZYR_TLS_NONE) return ZYR_E_NOT_INITIALIZED;
  int e = pthread_setspecific(static_cast<pthread_key_t>(index), value);
  if (e == ENOMEM) return ZYR_E_OUT_OF_MEMORY;
  return e == 0 ? ZYR_OK : ZYR_E_INVALID_ARGUMENT;
}

void ZyrBasTlsThreadDetach() {}
