#include "base/os/sync_os.h"

#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <climits>

#include "base/memory.h"
#include "base/result.h"
#include "base/sync.h"

namespace {

int Fd(ZyrBasHandle h) { return static_cast<int>(h); }

std::uint64_t MonotonicMs() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<std::uint64_t>(ts.tv_sec) * 1000u + static_cast<std::uint64_t>(ts.tv_nsec) / 1000000u;
}

// What is left of a wait, as poll's int; all ones stays unlimited (-1).
// Waits longer than poll can take in one call are made in pieces.
int PollTimeout(std::uint32_t milliseconds, std::uint64_t deadline) {
  if (milliseconds == ZYR_WAIT_FOREVER) return -1;
  std::uint64_t now = MonotonicMs();
  if (now >= deadline) return 0;
  std::uint64_t left = deadline - now;
  return left > static_cast<std::uint64_t>(INT_MAX) ? INT_MAX : static_cast<int>(left);
}

}  // namespace

// ---------------------------------------------------------------------------
// Events: an eventfd whose counter is non-zero while signalled. Poll does
// not consume the counter, so a manual-reset event stays readable for every
// waiter until Reset reads it empty. An auto-reset event is a blocking
// eventfd whose taker reads the counter back to zero.

ZyrResult ZyrBasOsEventCreate(ZyrBasOsEventType type, ZyrBasHandle* out) {
  int flags = EFD_CLOEXEC;
  if (type == ZyrBasOsEventType::ManualReset) flags |= EFD_NONBLOCK;
  int fd = eventfd(0, flags);
  if (fd < 0) return ZyrResultFromErrno(errno);
  *out = fd;
  return ZYR_OK;
}

ZyrResult ZyrBasOsEventSet(ZyrBasHandle event) {
  std::uint64_t one = 1;
  for (;;) {
    if (write(Fd(event), &one, sizeof one) == static_cast<ssize_t>(sizeof one)) return ZYR_OK;
    if (errno == EINTR) continue;
    // The counter is full: the event is as signalled as it gets.
    if (errno == EAGAIN) return ZYR_OK;
    return ZyrResultFromErrno(errno);
  }
}

ZyrResult ZyrBasOsEventReset(ZyrBasHandle event) {
  std::uint64_t value;
  for (;;) {
    if (read(Fd(event), &value, sizeof value) == static_cast<ssize_t>(sizeof value)) return ZYR_OK;
    if (errno == EINTR) continue;
    if (errno == EAGAIN) return ZYR_OK;  // was not signalled
    return ZyrResultFromErrno(errno);
  }
}

ZyrResult ZyrBasOsEventTake(ZyrBasHandle event) {
  std::uint64_t value;
  for (;;) {
    if (read(Fd(event), &value, sizeof value) == static_cast<ssize_t>(sizeof value)) return ZYR_OK;
    if (errno == EINTR) continue;
    return ZyrResultFromErrno(errno);
  }
}

ZyrResult ZyrBasOsClose(ZyrBasHandle handle) {
  // Linux releases the descriptor even when close reports EINTR; retrying
  // could close a descriptor that another thread has just been given.
  if (close(Fd(handle)) != 0 && errno != EINTR) return ZyrResultFromErrno(errno);
  return ZYR_OK;
}

// ---------------------------------------------------------------------------
// Waits.

ZyrResult ZyrBasOsWait(const ZyrBasHandle* handles, std::uint32_t count, bool waitAny,
                       std::uint32_t milliseconds, std::uint32_t* index) {
  if (count == 0 || count > 64) return ZYR_E_INVALID_ARGUMENT;
  struct pollfd all[64];
  for (std::uint32_t i = 0; i < count; ++i) {
    if (handles[i] < 0 || handles[i] > INT_MAX) return ZYR_E_INVALID_HANDLE;
    all[i].fd = Fd(handles[i]);
    all[i].events = POLLIN;
    all[i].revents = 0;
  }
  std::uint64_t deadline = milliseconds == ZYR_WAIT_FOREVER ? 0 : MonotonicMs() + milliseconds;

  if (waitAny) {
    for (;;) {
      int n = poll(all, count, PollTimeout(milliseconds, deadline));
      if (n < 0) {
        if (errno == EINTR) continue;
        return ZyrResultFromErrno(errno);
      }
      if (n == 0) {
        if (PollTimeout(milliseconds, deadline) != 0) continue;  // a piece of a long wait ended
        return ZYR_W_TIMEOUT;
      }
      for (std::uint32_t i = 0; i < count; ++i) {
        if (all[i].revents & POLLNVAL) return ZYR_E_INVALID_HANDLE;
        if (all[i].revents) {
          *index = i;
          return ZYR_OK;
        }
      }
    }
  }

  // All of them: the set counts as signalled when one look finds every
  // handle ready. Between looks it sleeps on those that were not, so a
  // handle that goes back to unsignalled meanwhile is simply waited for again.
  struct pollfd pending[64];
  for (;;) {
    int n = poll(all, count, 0);
    if (n < 0) {
      if (errno == EINTR) continue;
      return ZyrResultFromErrno(errno);
    }
    std::uint32_t waiting = 0;
    for (std::uint32_t i = 0; i < count; ++i) {
      if (all[i].revents & POLLNVAL) return ZYR_E_INVALID_HANDLE;
      if (!all[i].revents) pending[waiting++] = all[i];
    }
    if (waiting == 0) {
      *index = 0;
      return ZYR_OK;
    }
    int timeout = PollTimeout(milliseconds, deadline);
    if (timeout == 0) return ZYR_W_TIMEOUT;
    n = poll(pending, waiting, timeout);
    if (n < 0 && errno != EINTR) return ZyrResultFromErrno(errno);
  }
}

void ZyrBasEndThread(ZyrResult status) {
  pthread_exit(reinterpret_cast<void*>(static_cast<std::intptr_t>(static_cast<std::int32_t>(status))));
}

void ZyrBasOsSleep(std::uint32_t milliseconds) {
  struct timespec ts = {static_cast<time_t>(milliseconds / 1000),
                        static_cast<long>(milliseconds % 1000) * 1000000L};
  while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
  }
}

// ---------------------------------------------------------------------------
// Threads.

namespace {
constexpr std::uint32_t kGateClosed = 0;
constexpr std::uint32_t kGateOpen = 1;
constexpr std::uint32_t kGateCancelled = 2;
constexpr std::uint32_t kNoThreadId = 0xffffffffu;
constexpr std::size_t kStackSize = 0x100000;
}  // namespace

struct ZyrBasOsThread {
  std::atomic<std::uint32_t> references{2};  // the owner and the thread
  std::atomic<std::uint32_t> gate{kGateClosed};
  std::atomic<std::uint32_t> threadId{kNoThreadId};
  std::atomic<std::uint32_t> ended{0};
  ZyrResult exitCode = ZYR_OK;
  int doneEvent = -1;
  pthread_t thread;
  ZyrBasOsThreadEntry entry = nullptr;
  void* arg = nullptr;
};

namespace {

void DropReference(ZyrBasOsThread* t) {
  if (t->references.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  close(t->doneEvent);
  ZyrDelete(t);
}

void* ThreadMain(void* p) {
  ZyrBasOsThread* t = static_cast<ZyrBasOsThread*>(p);
  t->threadId.store(static_cast<std::uint32_t>(gettid()), std::memory_order_release);
  t->threadId.notify_all();

  std::uint32_t gate;
  while ((gate = t->gate.load(std::memory_order_acquire)) == kGateClosed) t->gate.wait(kGateClosed);
  ZyrResult code = ZYR_OK;
  if (gate == kGateOpen) code = t->entry(t->arg);

  // From here the owner's object may already be gone: only the control
  // block is touched.
  t->exitCode = code;
  t->ended.store(1, std::memory_order_release);
  std::uint64_t one = 1;
  while (write(t->doneEvent, &one, sizeof one) < 0 && errno == EINTR) {
  }
  DropReference(t);
  return nullptr;
}

}  // namespace

ZyrResult ZyrBasOsThreadCreate(ZyrBasOsThreadEntry entry, void* arg, ZyrBasOsThread** out) {
  ZyrBasOsThread* t = ZyrNew<ZyrBasOsThread>();
  if (!t) return ZYR_E_OUT_OF_MEMORY;
  t->entry = entry;
  t->arg = arg;
  t->doneEvent = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (t->doneEvent < 0) {
    ZyrResult r = ZyrResultFromErrno(errno);
    ZyrDelete(t);
    return r;
  }
  pthread_attr_t attr;
  int e = pthread_attr_init(&attr);
  if (e == 0) {
    e = pthread_attr_setstacksize(&attr, kStackSize);
    if (e == 0) e = pthread_create(&t->thread, &attr, ThreadMain, t);
    pthread_attr_destroy(&attr);
  }
  if (e != 0) {
    close(t->doneEvent);
    ZyrDelete(t);
    return ZyrResultFromErrno(e);
  }
  // The id is the thread's own to tell; it does so before its start gate.
  while (t->threadId.load(std::memory_order_acquire) == kNoThreadId) t->threadId.wait(kNoThreadId);
  *out = t;
  return ZYR_OK;
}

ZyrResult ZyrBasOsThreadResume(ZyrBasOsThread* t) {
  std::uint32_t expected = kGateClosed;
  if (t->gate.compare_exchange_strong(expected, kGateOpen, std::memory_order_acq_rel))
    t->gate.notify_all();
  return ZYR_OK;
}

ZyrBasHandle ZyrBasOsThreadWaitHandle(const ZyrBasOsThread* t) { return t->doneEvent; }

std::uint32_t ZyrBasOsThreadId(const ZyrBasOsThread* t) {
  return t->threadId.load(std::memory_order_acquire);
}

bool ZyrBasOsThreadExitCode(const ZyrBasOsThread* t, ZyrResult* code) {
  if (!t->ended.load(std::memory_order_acquire)) return false;
  *code = t->exitCode;
  return true;
}

void ZyrBasOsThreadForget(ZyrBasOsThread* t) {
  close(t->doneEvent);
  ZyrDelete(t);
}

void ZyrBasOsThreadRelease(ZyrBasOsThread* t) {
  std::uint32_t expected = kGateClosed;
  if (t->gate.compare_exchange_strong(expected, kGateCancelled, std::memory_order_acq_rel))
    t->gate.notify_all();
  // An ended thread is past its last use of the control block but for the
  // final drop; joining it costs at most that moment and reaps it at once.
  if (t->ended.load(std::memory_order_acquire) || expected == kGateClosed)
    pthread_join(t->thread, nullptr);
  else
    pthread_detach(t->thread);
  DropReference(t);
}
