// Critical sections of ntdll, and giving up the processor.
#include "base/lock.h"
#include "base/nt/nt_support.h"

static_assert(sizeof(ZyrBasNativeLock) == sizeof(RTL_CRITICAL_SECTION), "the layer's lock is ntdll's");

namespace {
RTL_CRITICAL_SECTION* Section(ZyrBasNativeLock* lock) { return reinterpret_cast<RTL_CRITICAL_SECTION*>(lock); }
}  // namespace

void ZyrBasNativeLockEnter(ZyrBasNativeLock* lock) { RtlEnterCriticalSection(Section(lock)); }
void ZyrBasNativeLockLeave(ZyrBasNativeLock* lock) { RtlLeaveCriticalSection(Section(lock)); }

ZyrResult ZyrBasCriticalSection::Create() {
  if (initialised_) return ZYR_E_ALREADY_EXISTS;
  NTSTATUS s = RtlInitializeCriticalSection(Section(&mutex_));
  if (!NtSucceeded(s)) return NtResult(s);
  initialised_ = 1;
  return ZYR_OK;
}

// No process of this system is forked from another: nothing to renew.
void ZyrBasCriticalSection::RenewAfterFork() {}

void ZyrBasCriticalSection::Delete() {
  if (!initialised_) return;
  RtlDeleteCriticalSection(Section(&mutex_));
  initialised_ = 0;
}

// A delay of 0 gives up the rest of the time slice.
void ZyrBasYield() {
  std::int64_t none = 0;
  NtDelayExecution(0, &none);
}
