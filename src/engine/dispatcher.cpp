#include "engine/dispatcher.h"

#include "appender/file_appender.h"
#include "base/result.h"
#include "base/time.h"
#include "engine/logger.h"
#include "records/scramble.h"

namespace {
// The notice of a trimmed queue: an event without text that tells by its
// identification alone that entries were dropped.
constexpr char16_t kNoticeFileId[] = u"{610B64A8-D676-4CD6-866D-5BE2C66FE3D2}";
constexpr std::uint32_t kNoticeLine = 223;
constexpr std::uint32_t kNoticeBuild = 185;
constexpr std::uint32_t kNoticeRevision = 8038423;
constexpr char16_t kNoticeRevisionText[] = u"54e9bc545d3f933969433d17a90f5186c51a9e73";
constexpr std::uint32_t kNoticeProduct = 7;
constexpr std::uint32_t kNoticeScrambleMode = 1;
constexpr std::uint32_t kNoWait = 0xffffffffu;
// At most one configuration change check per this many milliseconds.
constexpr std::uint32_t kChangeInterval = 1000;
}  // namespace

ZyrResult ZyrLogFinishEvent(ZyrLogEvent& event) { return ZyrLogScrambleEvent(event); }

ZyrResult ZyrLogWorker::Run() { return dispatcher_.Run(); }

ZyrLogDispatcher::ZyrLogDispatcher(ChangeCallback changeCallback, void* changeContext,
                                   ZyrLoggerNode* noticeLogger)
    : changeCallback_(changeCallback),
      changeContext_(changeContext),
      lastHousekeeping_(ZyrBasTickCount()),
      worker_(*this),
      noticeLogger_(noticeLogger) {}

ZyrLogDispatcher::~ZyrLogDispatcher() {
  active_.Free();
  spare_.Free();
  queueEvent_.Close();
  queueLock_.Delete();
  controlLock_.Delete();
}

ZyrResult ZyrLogDispatcher::Init() {
  ZyrResult r = queueLock_.Create();
  if (ZyrSucceeded(r)) r = controlLock_.Create();
  if (ZyrSucceeded(r)) r = queueEvent_.Create();
  if (ZyrSucceeded(r)) r = housekeeper_.Init();
  return r;
}

void ZyrLogDispatcher::HousekeepingTick() {
  // The time is looked at before the busy flag is taken: a message whose
  // tick has not come writes nothing that other threads share, so writers
  // on several threads do not pass the flag's cache line between them.
  std::uint32_t now = ZyrBasTickCount();
  if (!(lastHousekeeping_.load(std::memory_order_relaxed) < now - 1000u)) return;
  if (housekeepingBusy_.exchange(1) == 1) return;  // another thread is at it
  if (lastHousekeeping_.load(std::memory_order_relaxed) < now - 1000u) {
    lastHousekeeping_.store(now, std::memory_order_relaxed);
    (void)housekeeper_.CollectFinished();
    ZyrLogFileBasedAppender::HousekeepingTick();  // open logs compared with their names
    // Log file housekeeping and the configuration change check run here;
    // the check only while no worker runs (the worker watches folders).
    if (!running_.load() && changeCallback_) (void)changeCallback_(changeContext_);
  }
  housekeepingBusy_.store(0);
}

ZyrResult ZyrLogDispatcher::DeliverDirect(ZyrLoggerNode* logger, ZyrLogEvent& event) {
  ZyrResult r = ZyrLogFinishEvent(event);
  if (ZyrFailed(r)) return r;
  return logger->Append(event);
}

ZyrResult ZyrLogDispatcher::Dispatch(ZyrLoggerNode* logger, ZyrLogEvent& event) {
  HousekeepingTick();
  if (!running_.load()) return DeliverDirect(logger, event);
  // The event moves into the queue's entry: its strings change hands, none
  // is copied, and the caller's event is left empty.
  return Enqueue(logger, event);
}

void ZyrLogDispatcher::WriteNotice() {
  ZyrLoggerNode* notice = noticeLogger_;
  if (!notice || notice->ReadThreshold() > ZYR_SEVERITY_WARN) return;
  if (notice->flags.load() & ZYR_LOGGER_REVISION_TEXT)
    (void)notice->LogRevision(ZYR_SEVERITY_WARN, nullptr, kNoticeFileId, kNoticeLine, kNoticeBuild,
                              kNoticeRevisionText, kNoticeProduct, kNoticeScrambleMode, nullptr);
  else
    (void)notice->Log(ZYR_SEVERITY_WARN, nullptr, kNoticeFileId, kNoticeLine, kNoticeBuild,
                      kNoticeRevision, kNoticeProduct, kNoticeScrambleMode, nullptr);
}

ZyrResult ZyrLogDispatcher::Enqueue(ZyrLoggerNode* logger, ZyrLogEvent& event) {
  {
    ZyrBasLockGuard guard(queueLock_);
    if (running_.load()) return EnqueueLocked(logger, event);
  }
  // Stop has passed its last drain since the road was chosen: the event is
  // written directly, without the queue lock, which is never held across a
  // write to an appender.
  return DeliverDirect(logger, event);
}

ZyrResult ZyrLogDispatcher::EnqueueLocked(ZyrLoggerNode* logger, ZyrLogEvent& event) {
  std::uint64_t limit = maxQueueBytes_.load();
  if (limit != 0) {
    std::uint64_t count = active_.Count();
    if ((count + 1) * kZyrQueueEntryCharge > limit) {
      // The oldest two thirds stay; the newest third is lost, never the
      // entry in hand. The notice comes back here on this thread (the lock
      // is recursive) and stands ahead of the entry that caused it.
      active_.Truncate(static_cast<std::size_t>(count * 2 / 3));
      WriteNotice();
    }
  }
  // Without memory the event stays with the caller, who destroys it: lost.
  ZyrResult r = active_.Emplace(ZyrBasGrowth::HalfAgain, logger, static_cast<ZyrLogEvent&&>(event));
  if (ZyrFailed(r)) return r;
  r = queueEvent_.Set();
  if (ZyrFailed(r)) return r;
  if (workerFailure_.load(std::memory_order_relaxed) != ZYR_OK)
    return workerFailure_.exchange(ZYR_OK, std::memory_order_relaxed);
  return ZYR_OK;
}

void ZyrLogDispatcher::NoteWorkerFailure(ZyrResult failure) {
  workerFailedLines_.fetch_add(1, std::memory_order_relaxed);
  // Append answers an appender's failure as a warning already; a failure to
  // finish the message is made one here, so that every caller hears of
  // the worker's trouble in one form.
  workerFailure_.store(ZyrResultAsWarning(failure), std::memory_order_relaxed);
}

void ZyrLogDispatcher::Drain() {
  (void)queueEvent_.Reset();
  ZyrBasArray<ZyrLogQueueEntry> batch;
  {
    ZyrBasLockGuard guard(queueLock_);
    batch.Swap(active_);
    active_.Swap(spare_);  // producers go on at once in the spare buffer
  }
  for (ZyrLogQueueEntry& entry : batch) {
    ZyrResult r = ZyrLogFinishEvent(entry.event);
    if (ZyrSucceeded(r)) r = entry.logger->Append(entry.event);
    if (ZyrFailed(r)) NoteWorkerFailure(r);
  }
  // The queue's memory follows its load downward by halves.
  if (batch.Count() < batch.Capacity() / 4) {
    ZyrBasArray<ZyrLogQueueEntry> smaller;
    if (ZyrSucceeded(smaller.Reserve(batch.Capacity() / 2, ZyrBasGrowth::Exact))) batch.Swap(smaller);
  }
  batch.Clear();
  {
    ZyrBasLockGuard guard(queueLock_);
    batch.Swap(spare_);
  }
}

// The worker waits on two sets: the long one, with the stop event, the
// queue event and every armed folder, and the short one without folders.
// After a folder was signalled and the check has run, the worker serves
// only messages for 1000 milliseconds: changes that come meanwhile are
// picked up together at the next wait on the long set, so a busy folder
// costs at most one check per second.
ZyrResult ZyrLogDispatcher::Run() {
  ZyrBasWaitSet longSet, shortSet;
  for (ZyrBasWaitSet* set : {&longSet, &shortSet}) {
    (void)set->Add(worker_.StopReference());
    (void)set->Add(queueEvent_);
  }
  std::size_t unarmed = ArmWatchers(longSet);
  // A folder that could not be armed (inotify used up, say) is looked at by
  // polling, once a second on the worker's own clock, as without the
  // worker: whether or not messages keep the wait from timing out.
  std::uint32_t lastPoll = ZyrBasTickCount();
  auto pollDue = [&]() -> std::uint32_t {
    if (!unarmed) return kNoWait;
    std::uint32_t spent = ZyrBasTickCount() - lastPoll;
    return spent >= kChangeInterval ? 0 : kChangeInterval - spent;
  };
  auto poll = [&] {
    lastPoll = ZyrBasTickCount();
    CheckForChanges();
    unarmed = ArmWatchers(longSet);
  };
  for (;;) {
    ZyrBasWaitable* signalled = nullptr;
    ZyrResult r = longSet.Wait(pollDue(), true, &signalled);
    if (r == ZYR_W_TIMEOUT) {
      poll();
      continue;
    }
    if (ZyrFailed(r)) return EndOnFailedWait(r, longSet);
    if (signalled != &worker_.StopReference() && signalled != &queueEvent_) {
      watchList_.Signalled(*static_cast<ZyrLogFolderWatcher*>(signalled), longSet);
      CheckForChanges();
      bool stopped = false;
      r = Settle(shortSet, longSet, &unarmed, &stopped);
      if (ZyrFailed(r)) return EndOnFailedWait(r, longSet);
      if (stopped) return ZYR_OK;
      continue;
    }
    if (Serve(signalled, longSet, &unarmed)) return ZYR_OK;
    if (pollDue() == 0) poll();
  }
}

// A folder newly armed is followed by a check: a change made before its
// notification stood (between the load and the arming, or while no worker
// ran) would otherwise wait for the next change in that folder.
std::size_t ZyrLogDispatcher::ArmWatchers(ZyrBasWaitSet& longSet) {
  std::size_t unarmed;
  std::uint32_t before = longSet.Count();
  {
    ZyrBasLockGuard guard(queueLock_);
    newFolders_.store(false, std::memory_order_relaxed);
    unarmed = watchList_.ArmAll(longSet);
  }
  if (longSet.Count() > before) CheckForChanges();
  return unarmed;
}

void ZyrLogDispatcher::CheckForChanges() {
  if (changeCallback_) (void)changeCallback_(changeContext_);
}

// The queue or the stop event: write out what waits; at the stop release
// the folders (true), else arm those that came since.
bool ZyrLogDispatcher::Serve(ZyrBasWaitable* signalled, ZyrBasWaitSet& longSet, std::size_t* unarmed) {
  Drain();
  if (signalled == &worker_.StopReference()) {
    ZyrBasLockGuard guard(queueLock_);
    watchList_.ReleaseAll(longSet);
    return true;
  }
  // The watch list is passed over only when there is something to arm, so
  // that a busy queue takes no queue lock for it.
  if (*unarmed || newFolders_.load(std::memory_order_relaxed)) *unarmed = ArmWatchers(longSet);
  return false;
}

ZyrResult ZyrLogDispatcher::Settle(ZyrBasWaitSet& shortSet, ZyrBasWaitSet& longSet,
                                   std::size_t* unarmed, bool* stopped) {
  const std::uint32_t start = ZyrBasTickCount();
  for (;;) {
    std::uint32_t spent = ZyrBasTickCount() - start;
    if (spent >= kChangeInterval) return ZYR_OK;
    ZyrBasWaitable* signalled = nullptr;
    ZyrResult r = shortSet.Wait(kChangeInterval - spent, true, &signalled);
    if (r == ZYR_W_TIMEOUT) return ZYR_OK;
    if (ZyrFailed(r)) return r;
    if (Serve(signalled, longSet, unarmed)) {
      *stopped = true;
      return ZYR_OK;
    }
  }
}

// No way to serve the queue any more: fall back to the direct road, where
// the tick polls for changes, and write out what waits.
ZyrResult ZyrLogDispatcher::EndOnFailedWait(ZyrResult failure, ZyrBasWaitSet& longSet) {
  {
    ZyrBasLockGuard guard(queueLock_);
    running_.store(0);
    watchList_.ReleaseAll(longSet);
  }
  Drain();
  return failure;
}

ZyrResult ZyrLogDispatcher::Start() {
  ZyrBasLockGuard control(controlLock_);
  // A forked child whose fresh event could not be made tries again here.
  if (queueEvent_.GetKind() != ZyrBasWaitable::kOwned) {
    ZyrResult r = queueEvent_.Create();
    if (ZyrFailed(r)) return r;
  }
  running_.store(1);
  ZyrResult r = worker_.Start(0);
  if (r == ZYR_E_TIMEOUT) return r;  // the worker runs already and goes on
  if (ZyrFailed(r)) {
    // Without a worker nobody would serve the queue: back to the direct road.
    {
      ZyrBasLockGuard guard(queueLock_);
      running_.store(0);
    }
    Drain();
    return r;
  }
  workerStarted_ = 1;
  return ZYR_OK;
}

void ZyrLogDispatcher::Stop() {
  ZyrBasLockGuard control(controlLock_);
  running_.store(0);
  if (workerStarted_) {
    (void)worker_.StopEvent().Set();
    (void)worker_.Wait(kNoWait);
    (void)worker_.Close();  // joined now: a process that ends next leaves no thread behind
  }
  Drain();
  ZyrBasLockGuard guard(queueLock_);
  (void)active_.Trim();
  (void)spare_.Trim();
}

void ZyrLogDispatcher::SetMaxQueueSize(std::uint64_t bytes) {
  if (bytes != 0 && bytes < kZyrMinimumMaxQueueBytes) bytes = kZyrMinimumMaxQueueBytes;
  maxQueueBytes_.store(bytes);
}

std::size_t ZyrLogDispatcher::QueuedCount() {
  ZyrBasLockGuard guard(queueLock_);
  return active_.Count();
}

std::uint64_t ZyrLogDispatcher::MaxQueueBytes() { return maxQueueBytes_.load(); }

// The worker arms a new folder at its next pass, after the next message.
ZyrResult ZyrLogDispatcher::WatchFolder(const char16_t* folder) {
  ZyrBasLockGuard guard(queueLock_);
  ZyrResult r = watchList_.Add(folder);
  newFolders_.store(true, std::memory_order_relaxed);
  return r;
}

void ZyrLogDispatcher::ForkPrepareControl() { controlLock_.Enter(); }
void ZyrLogDispatcher::ForkPrepareQueue() { queueLock_.Enter(); }

void ZyrLogDispatcher::ForkParent() {
  queueLock_.Leave();
  controlLock_.Leave();
}

void ZyrLogDispatcher::ForkChild() {
  controlLock_.RenewAfterFork();
  queueLock_.RenewAfterFork();
  running_.store(0);
  worker_.ForgetAfterFork();
  workerStarted_ = 0;
  // The parent writes these; written here too they would stand twice.
  active_.Free();
  spare_.Free();
  // The event's descriptor is shared with the parent: a set here would
  // wake the parent's worker, a reset there would swallow the child's.
  (void)queueEvent_.Close();
  (void)queueEvent_.Create();  // failing here, Start tries again
  // Likewise the folder notifications: the child reads its own.
  ZyrBasWaitSet none;
  watchList_.ReleaseAll(none);
  newFolders_.store(true, std::memory_order_relaxed);
  // A thread of the parent may have been inside the tick at the fork.
  housekeepingBusy_.store(0);
  workerFailure_.store(ZYR_OK, std::memory_order_relaxed);
  workerFailedLines_.store(0, std::memory_order_relaxed);
}
