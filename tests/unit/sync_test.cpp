#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "base/identity.h"
#include "base/sync.h"
#include "test_support.h"

namespace {

using Clock = std::chrono::steady_clock;

long ElapsedMs(Clock::time_point since) {
  return static_cast<long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - since).count());
}

// --------------------------------------------------------------------------
// Events and single waits

TEST(SyncEvent, ManualResetTimedWaitAndWakeOnSet) {
  ZyrBasEvent e;
  EXPECT_EQ(e.Wait(0), ZYR_E_INVALID_HANDLE);
  ASSERT_EQ(e.Create(), ZYR_OK);
  EXPECT_EQ(e.Create(), ZYR_E_ALREADY_EXISTS);

  auto start = Clock::now();
  EXPECT_EQ(e.Wait(0), ZYR_W_TIMEOUT);
  EXPECT_LT(ElapsedMs(start), 500);  // at once, not after some default

  ASSERT_EQ(e.Set(), ZYR_OK);
  EXPECT_EQ(e.Wait(0), ZYR_OK);
  EXPECT_EQ(e.Wait(0), ZYR_OK);  // a wait does not consume the signal
  ASSERT_EQ(e.Set(), ZYR_OK);    // setting twice needs one reset only
  ASSERT_EQ(e.Reset(), ZYR_OK);
  EXPECT_EQ(e.Wait(0), ZYR_W_TIMEOUT);

  // A timed wait lasts about its time, and a set wakes a waiter.
  start = Clock::now();
  EXPECT_EQ(e.Wait(60), ZYR_W_TIMEOUT);
  long waited = ElapsedMs(start);
  EXPECT_GE(waited, 55);
  EXPECT_LT(waited, 3000);
  std::thread setter([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    e.Set();
  });
  EXPECT_EQ(e.Wait(ZYR_WAIT_FOREVER), ZYR_OK);
  setter.join();

  EXPECT_EQ(e.Close(), ZYR_OK);
  EXPECT_EQ(e.Set(), ZYR_E_INVALID_HANDLE);
  EXPECT_EQ(e.Create(), ZYR_OK);
}

TEST(SyncWaitable, ReferenceWaitsOnTheReferredObjectAtAnyDepth) {
  ZyrBasEvent e;
  ASSERT_EQ(e.Create(), ZYR_OK);
  ZyrBasWaitable one, two;
  ASSERT_EQ(one.Refer(e), ZYR_OK);
  ASSERT_EQ(two.Refer(one), ZYR_OK);
  EXPECT_EQ(two.Refer(e), ZYR_E_ALREADY_EXISTS);
  EXPECT_EQ(two.Wait(0), ZYR_W_TIMEOUT);
  e.Set();
  EXPECT_EQ(two.Wait(0), ZYR_OK);
  // Closing a reference drops it and leaves the event alone.
  EXPECT_EQ(two.Close(), ZYR_OK);
  EXPECT_EQ(two.Wait(0), ZYR_E_INVALID_HANDLE);
  EXPECT_EQ(e.Wait(0), ZYR_OK);

  // A cycle is no handle, not a hang.
  ZyrBasWaitable a, b;
  ASSERT_EQ(a.Refer(b), ZYR_OK);
  ASSERT_EQ(b.Refer(a), ZYR_OK);
  EXPECT_EQ(a.Wait(0), ZYR_E_INVALID_HANDLE);
}

// --------------------------------------------------------------------------
// Wait sets

TEST(SyncWaitSet, AnyReportsTheSignalledObject) {
  ZyrBasEvent a, b, c;
  ZyrBasWaitable refToC;
  ZyrBasWaitSet set;
  for (ZyrBasEvent* e : {&a, &b, &c}) ASSERT_EQ(e->Create(), ZYR_OK);
  ASSERT_EQ(refToC.Refer(c), ZYR_OK);
  set.Add(a);
  set.Add(b);
  set.Add(refToC);
  ZyrBasWaitable* out = nullptr;
  EXPECT_EQ(set.Wait(0, true, &out), ZYR_W_TIMEOUT);
  b.Set();
  EXPECT_EQ(set.Wait(0, true, &out), ZYR_OK);
  EXPECT_EQ(out, &b);
  b.Reset();
  c.Set();
  EXPECT_EQ(set.Wait(ZYR_WAIT_FOREVER, true, &out), ZYR_OK);
  EXPECT_EQ(out, &refToC);  // the member of the set, not what it refers to
}

TEST(SyncWaitSet, AllWaitsForEveryMember) {
  ZyrBasEvent a, b;
  ZyrBasWaitSet set;
  for (ZyrBasEvent* e : {&a, &b}) {
    ASSERT_EQ(e->Create(), ZYR_OK);
    set.Add(*e);
  }
  ZyrBasWaitable* out = nullptr;
  a.Set();
  EXPECT_EQ(set.Wait(30, false, &out), ZYR_W_TIMEOUT);
  std::thread setter([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    b.Set();
  });
  EXPECT_EQ(set.Wait(ZYR_WAIT_FOREVER, false, &out), ZYR_OK);
  setter.join();
}

TEST(SyncWaitSet, EmptyUnknownDuplicateAndSixtyFifthMembers) {
  ZyrBasWaitSet set;
  ZyrBasWaitable* out = nullptr;
  EXPECT_EQ(set.Wait(0, true, &out), ZYR_W_WAIT_SET_EMPTY);
  ZyrBasEvent never;  // holds nothing
  EXPECT_EQ(set.Add(never), ZYR_OK);
  EXPECT_EQ(set.Wait(0, true, &out), ZYR_E_INVALID_HANDLE);
  EXPECT_EQ(set.Remove(never), ZYR_OK);
  EXPECT_EQ(set.Remove(never), ZYR_I_NOT_FOUND);

  ZyrBasEvent events[65];
  for (int i = 0; i < 64; ++i) {
    ASSERT_EQ(events[i].Create(), ZYR_OK);
    ASSERT_EQ(set.Add(events[i]), ZYR_OK) << i;
  }
  EXPECT_EQ(set.Add(events[0]), ZYR_I_ALREADY_IN_SET);
  EXPECT_EQ(set.Count(), 64u);
  events[63].Set();
  EXPECT_EQ(set.Wait(0, true, &out), ZYR_OK);  // 64 is still a valid set
  EXPECT_EQ(out, &events[63]);
  ASSERT_EQ(events[64].Create(), ZYR_OK);
  EXPECT_EQ(set.Add(events[64]), ZYR_I_WAIT_SET_OVERFULL);
  EXPECT_EQ(set.Wait(0, true, &out), ZYR_E_TOO_MANY_WAIT_HANDLES);
  set.Remove(events[0]);
  EXPECT_EQ(set.Wait(0, true, &out), ZYR_OK);
}

// --------------------------------------------------------------------------
// Threads

class WaitingThread : public ZyrBasThread {
 public:
  ZyrResult Run() override {
    runs.fetch_add(1);
    seenId.store(ZyrBasCurrentThreadId());
    ZyrBasThreadRecord* record = ZyrBasThreadRecordCurrent();
    recordId.store(record ? record->threadId : 0);
    recordsWhileRunning.store(ZyrBasThreadRecordCount());
    if (StopReference().Wait(ZYR_WAIT_FOREVER) != ZYR_OK) return ZYR_E_UNEXPECTED_SYSTEM_RESULT;
    return exitCode;
  }
  void OnExit() override { exits.fetch_add(1); }

  std::atomic<int> runs{0};
  std::atomic<int> exits{0};
  std::atomic<std::uint32_t> seenId{0};
  std::atomic<std::uint32_t> recordId{0};
  std::atomic<std::uint32_t> recordsWhileRunning{0};
  ZyrResult exitCode = 42;
};

TEST(SyncThread, SecondStartWhileRunningTimesOutAndARestartResetsTheStopEvent) {
  WaitingThread t;
  ZyrResult code;
  EXPECT_EQ(t.GetExitCode(&code), ZYR_E_INVALID_HANDLE);
  ASSERT_EQ(t.Start(0), ZYR_OK);
  EXPECT_EQ(t.Start(0), ZYR_E_TIMEOUT);
  EXPECT_EQ(t.Wait(0), ZYR_W_TIMEOUT);  // still running
  EXPECT_EQ(t.GetExitCode(&code), ZYR_W_TIMEOUT);
  ASSERT_EQ(t.StopEvent().Set(), ZYR_OK);
  ASSERT_EQ(t.Wait(ZYR_WAIT_FOREVER), ZYR_OK);
  EXPECT_EQ(t.runs.load(), 1);
  EXPECT_EQ(t.exits.load(), 1);
  EXPECT_EQ(t.seenId.load(), t.ThreadId());
  ASSERT_EQ(t.GetExitCode(&code), ZYR_OK);
  EXPECT_EQ(code, 42);

  std::uint32_t firstId = t.ThreadId();
  t.exitCode = 7;
  ASSERT_EQ(t.Start(0), ZYR_OK);
  EXPECT_NE(t.ThreadId(), firstId);
  // Had the stop event stayed set, the second run would end at once.
  EXPECT_EQ(t.Wait(50), ZYR_W_TIMEOUT);
  t.StopEvent().Set();
  ASSERT_EQ(t.Wait(ZYR_WAIT_FOREVER), ZYR_OK);
  ASSERT_EQ(t.GetExitCode(&code), ZYR_OK);
  EXPECT_EQ(code, 7);
  EXPECT_EQ(t.runs.load(), 2);
}

TEST(SyncThread, SuspendedThreadRunsOnlyWhenResumed) {
  WaitingThread t, closed;
  ASSERT_EQ(t.Start(ZyrBasThread::kStartSuspended), ZYR_OK);
  t.StopEvent().Set();  // Run would return at once if it ran
  EXPECT_EQ(t.Wait(80), ZYR_W_TIMEOUT);
  EXPECT_EQ(t.runs.load(), 0);
  ASSERT_EQ(t.Resume(), ZYR_OK);
  ASSERT_EQ(t.Wait(ZYR_WAIT_FOREVER), ZYR_OK);
  EXPECT_EQ(t.runs.load(), 1);

  // Closing a never resumed thread ends it without running.
  ASSERT_EQ(closed.Start(ZyrBasThread::kStartSuspended), ZYR_OK);
  EXPECT_EQ(closed.Close(), ZYR_OK);
  EXPECT_EQ(closed.runs.load(), 0);
  EXPECT_EQ(closed.Resume(), ZYR_E_INVALID_HANDLE);
}

TEST(SyncThread, StopReferenceCanStandForAnotherEvent) {
  WaitingThread t;
  ZyrBasEvent shared;
  ASSERT_EQ(shared.Create(), ZYR_OK);
  t.SetStopReference(shared);
  ASSERT_EQ(t.Start(0), ZYR_OK);
  EXPECT_EQ(t.StopEvent().GetKind(), ZyrBasWaitable::kNothing);  // own event left alone
  shared.Set();
  EXPECT_EQ(t.Wait(ZYR_WAIT_FOREVER), ZYR_OK);
}

TEST(SyncThread, OneRecordPerThreadDroppedAtItsEnd) {
  std::uint32_t before = ZyrBasThreadRecordCount();
  WaitingThread t;
  ASSERT_EQ(t.Start(0), ZYR_OK);
  t.StopEvent().Set();
  ASSERT_EQ(t.Wait(ZYR_WAIT_FOREVER), ZYR_OK);
  EXPECT_EQ(t.recordsWhileRunning.load(), before + 1);
  EXPECT_EQ(t.recordId.load(), t.ThreadId());
  EXPECT_EQ(ZyrBasThreadRecordCount(), before);

  // A thread the library did not start gets one on demand, once, and
  // loses it when it ends.
  std::uint32_t during = 0;
  bool same = false;
  std::thread foreign([&] {
    ZyrBasThreadRecord* a = ZyrBasThreadRecordCurrent();
    ZyrBasThreadRecord* b = ZyrBasThreadRecordCurrent();
    same = a && a == b;
    during = ZyrBasThreadRecordCount();
  });
  foreign.join();
  EXPECT_TRUE(same);
  EXPECT_EQ(during, before + 1);
  EXPECT_EQ(ZyrBasThreadRecordCount(), before);
}

// --------------------------------------------------------------------------
// Light lock (hand-off under contention in tests/stress/sync_stress_test.cpp)

TEST(SyncLightLock, NoEventWithoutContention) {
  static ZyrBasLightLock lock;  // zero-initialised, never constructed by hand
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(lock.Acquire(), ZYR_OK);
    ASSERT_EQ(lock.count.load(), 1);
    ASSERT_EQ(lock.word.load(), 0u);
    lock.Release();
    ASSERT_EQ(lock.count.load(), 0);
    ASSERT_EQ(lock.word.load(), 0u);
  }
}

// A contender that can't make its event is told so and does not count
// itself in: the holder releases as if alone, and the lock works on.
TEST(SyncLightLock, FailedEventCreationIsReturnedAndChangesNothing) {
  if (zyrtest::SanitizerNeedsDescriptors())
    GTEST_SKIP() << "the sanitizer runtime needs free descriptors of its own";
  int code = zyrtest::RunInChild([] {
    ZyrBasLightLock lock;
    if (lock.Acquire() != ZYR_OK) return 1;
    zyrtest::ExhaustDescriptors();
    ZyrResult contended = ZYR_OK;
    std::thread other([&] { contended = lock.Acquire(); });
    other.join();
    if (!ZyrFailed(contended)) return 2;
    if (lock.count.load() != 1 || lock.word.load() != 0) return 3;
    lock.Release();
    if (lock.Acquire() != ZYR_OK || lock.count.load() != 1) return 4;
    lock.Release();
    return lock.count.load() == 0 ? 0 : 5;
  });
  EXPECT_EQ(code, 0) << "-1: the contender hung";
}

}  // namespace
