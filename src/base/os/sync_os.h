// The platform half of events, waits and threads. Only src/base/sync.cpp
// uses it; a second platform implements these few functions again.
//
// Every waitable thing (event, thread, folder notification) is a handle
// that stands signalled while the object is: on Linux a descriptor that
// poll reports readable, on NT a handle of the system.
#ifndef ZYR_BASE_OS_SYNC_OS_H
#define ZYR_BASE_OS_SYNC_OS_H

#include <cstdint>

#include "base/handle.h"
#include "zyrlog/result.h"

// Manual reset: signalled from Set until Reset, whoever waits meanwhile.
// Auto reset: one waiter consumes the signal (see ZyrBasOsEventTake).
enum class ZyrBasOsEventType { ManualReset, AutoReset };

ZyrResult ZyrBasOsEventCreate(ZyrBasOsEventType type, ZyrBasHandle* out);
ZyrResult ZyrBasOsEventSet(ZyrBasHandle event);
ZyrResult ZyrBasOsEventReset(ZyrBasHandle event);
// Auto-reset events only: blocks until signalled and clears the signal in
// the same step, so that one Set wakes one taker.
ZyrResult ZyrBasOsEventTake(ZyrBasHandle event);
ZyrResult ZyrBasOsClose(ZyrBasHandle handle);

// Waits until one (waitAny) or all of the handles are signalled. 0 with the
// index of the first signalled handle (0 when waiting for all), or
// ZYR_W_TIMEOUT. At most 64 handles; a negative handle gives
// ZYR_E_INVALID_HANDLE.
ZyrResult ZyrBasOsWait(const ZyrBasHandle* handles, std::uint32_t count, bool waitAny,
                       std::uint32_t milliseconds, std::uint32_t* index);

void ZyrBasOsSleep(std::uint32_t milliseconds);

// A thread of 1 MiB stack that runs entry(arg) once it has been resumed. Its
// wait handle becomes signalled after entry returned. The control block is
// shared by the thread and its owner, so the owner may let go at any time.
struct ZyrBasOsThread;
typedef ZyrResult (*ZyrBasOsThreadEntry)(void* arg);

// Creates the thread held at its start gate; on return its id is known.
ZyrResult ZyrBasOsThreadCreate(ZyrBasOsThreadEntry entry, void* arg, ZyrBasOsThread** out);
ZyrResult ZyrBasOsThreadResume(ZyrBasOsThread* thread);
ZyrBasHandle ZyrBasOsThreadWaitHandle(const ZyrBasOsThread* thread);
std::uint32_t ZyrBasOsThreadId(const ZyrBasOsThread* thread);
// True with the exit code once entry has returned.
bool ZyrBasOsThreadExitCode(const ZyrBasOsThread* thread, ZyrResult* code);
// The owner lets go: an ended thread is joined, a running one detached, and
// one that was never resumed ends without running entry.
void ZyrBasOsThreadRelease(ZyrBasOsThread* thread);
// In a forked child: the thread of the parent does not exist here. Its
// control block and wait handle go without a join or a detach.
void ZyrBasOsThreadForget(ZyrBasOsThread* thread);

#endif
