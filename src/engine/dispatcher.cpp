#include "engine/dispatcher.h"

#include <new>

#include "appender/file_appender.h"
#include "base/identity.h"
#include "base/result.h"
#include "base/time.h"
#include "engine/logger.h"
#include "records/event_capture.h"
#include "records/scramble.h"

namespace {
// The notice of a cut: identified by a file of its own, and carrying the
// count of the lines cut as one typed argument (a QWORD). It is not
// scrambled: the count is what a reader needs.
constexpr char16_t kNoticeFileId[] = u"{610B64A8-D676-4CD6-866D-5BE2C66FE3D2}";
constexpr std::uint32_t kNoticeLine = 223;
constexpr std::uint32_t kNoticeBuild = 185;
constexpr std::uint32_t kNoticeRevision = 8038423;
constexpr char16_t kNoticeRevisionText[] = u"54e9bc545d3f933969433d17a90f5186c51a9e73";
constexpr std::uint32_t kNoticeProduct = 7;
constexpr std::uint32_t kNoticeScrambleMode = 0;
constexpr std::uint32_t kNoWait = 0xffffffffu;
// At most one configuration change check per this many milliseconds.
constexpr std::uint32_t kChangeInterval = 1000;
// With an empty queue the worker looks again after a nap, so that callers
// wake nobody; only after this long without lines does it sleep until a
// caller wakes it, which costs that caller a system call.
constexpr std::uint32_t kNapMs = 1;
constexpr std::uint32_t kIdleBeforeSleepMs = 250;

// The body of a notice record.
struct NoticeBody {
  std::uint64_t lines;      // cut, including those of notices cut since
  std::uint64_t timestamp;  // of the cut
  std::uint32_t threadId;   // of the caller whose line caused it
  std::uint32_t logFlags;   // of the notice logger at the cut
};

constexpr std::uint32_t RecordSize(std::size_t body) {
  return static_cast<std::uint32_t>((sizeof(ZyrLogQueueRecord) + body + 7) & ~std::size_t{7});
}
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
  queue_.DropAll([this](ZyrLogQueueRecord& record) { DropRecord(record); });
  queueEvent_.Close();
  watchLock_.Delete();
  drainLock_.Delete();
  controlLock_.Delete();
}

ZyrResult ZyrLogDispatcher::Init() {
  ZyrResult r = controlLock_.Create();
  if (ZyrSucceeded(r)) r = drainLock_.Create();
  if (ZyrSucceeded(r)) r = watchLock_.Create();
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
  // Open logs are compared with their names at their next line. Every
  // thread that finds the tick due asks for it, not only the one that wins
  // the flag: a thread that lost the flag would otherwise write its line
  // before the winner asked, into a file that other processes may have
  // rolled away and removed while this one was idle.
  ZyrLogFileBasedAppender::HousekeepingTick();
  if (housekeepingBusy_.exchange(1) == 1) return;  // another thread is at it
  if (lastHousekeeping_.load(std::memory_order_relaxed) < now - 1000u) {
    lastHousekeeping_.store(now, std::memory_order_relaxed);
    (void)housekeeper_.CollectFinished();
    // Log file housekeeping and the configuration change check run here;
    // the check only while no worker runs (the worker watches folders).
    if (!running_.load() && changeCallback_) (void)changeCallback_(changeContext_);
  }
  housekeepingBusy_.store(0);
}

ZyrResult ZyrLogDispatcher::DeliverEvent(ZyrLoggerNode* logger, ZyrLogEvent& event) {
  ZyrResult r = ZyrLogFinishEvent(event);
  if (ZyrFailed(r)) return r;
  return logger->Append(event);
}

ZyrResult ZyrLogDispatcher::DeliverDirect(ZyrLoggerNode* logger, const ZyrLogEventSource& source) {
  ZyrLogEvent event;
  ZyrResult r = ZyrLogComposeEvent(event, source);
  if (ZyrFailed(r)) return r;
  return DeliverEvent(logger, event);
}

ZyrResult ZyrLogDispatcher::Dispatch(ZyrLoggerNode* logger, const ZyrLogEventSource& source) {
  // On the queue road the worker runs the tick between its batches.
  if (running_.load(std::memory_order_relaxed)) return Enqueue(logger, source);
  HousekeepingTick();
  return DeliverDirect(logger, source);
}

ZyrResult ZyrLogDispatcher::Enqueue(ZyrLoggerNode* logger, const ZyrLogEventSource& source) {
  ZyrLogCapturePlan plan;
  if (!ZyrLogMeasureCapture(source, texts_, &plan)) return EnqueueComposed(logger, source);
  // Taken before the record's place: queue order and time order agree
  // for the lines of one thread. A stamp, which the worker makes a time:
  // the cycle counter costs the caller less than the clock.
  std::uint64_t stamp = ZyrBasStamp();
  std::uint32_t threadId = ZyrBasCurrentThreadId();
  if (plan.bytes > 0xffffffffu - sizeof(ZyrLogQueueRecord)) return EnqueueComposed(logger, source);
  Admission admission;
  ZyrResult r = Admit(logger, ZyrLogRecordKind::kCapture, RecordSize(plan.bytes), &admission);
  if (ZyrFailed(r)) return r;
  // Stop has passed its last drain since the road was chosen: the message
  // is written directly, without the queue.
  if (admission.direct) return DeliverDirect(logger, source);
  ZyrLogWriteCapture(admission.record->Body(), source, plan, stamp, threadId);
  return Publish(admission);
}

ZyrResult ZyrLogDispatcher::EnqueueComposed(ZyrLoggerNode* logger, const ZyrLogEventSource& source) {
  ZyrLogEvent event;
  ZyrResult r = ZyrLogComposeEvent(event, source);
  if (ZyrFailed(r)) return r;
  Admission admission;
  r = Admit(logger, ZyrLogRecordKind::kEvent, RecordSize(sizeof(ZyrLogEvent)), &admission);
  if (ZyrFailed(r)) return r;  // the event stays with this call, which destroys it: lost
  if (admission.direct) return DeliverEvent(logger, event);
  // The strings change hands; none is copied.
  new (admission.record->Body()) ZyrLogEvent(static_cast<ZyrLogEvent&&>(event));
  return Publish(admission);
}

ZyrResult ZyrLogDispatcher::Admit(ZyrLoggerNode* logger, ZyrLogRecordKind kind, std::uint32_t size,
                                  Admission* admission) {
  for (;;) {
    std::uint32_t needed;
    {
      ZyrBasBriefGuard guard(queue_.Lock());
      if (!running_.load(std::memory_order_relaxed)) {
        admission->direct = true;
        return ZYR_OK;
      }
      std::uint64_t limit = maxQueueBytes_.load(std::memory_order_relaxed);
      if (limit != 0 && (queue_.ActiveCountLocked() + 1) * kZyrQueueEntryCharge > limit) CutLocked();
      // The notice of a cut stands ahead of the record that caused it.
      if (noticeDue_ && !WriteNoticeLocked()) {
        needed = RecordSize(sizeof(NoticeBody));
      } else {
        admission->record = queue_.ReserveLocked(size, kind, logger);
        if (admission->record) {
          admission->wake = queue_.workerAsleep;
          queue_.workerAsleep = false;
          return ZYR_OK;
        }
        needed = size;
      }
    }
    // No block has room: one is made without the lock, and the caller
    // tries again. Without memory the message is lost, and the caller hears.
    ZyrResult r = queue_.Supply(needed);
    if (ZyrFailed(r)) return r;
  }
}

ZyrResult ZyrLogDispatcher::Publish(const Admission& admission) {
  admission.record->MarkReady();
  if (admission.wake) {
    ZyrResult r = queueEvent_.Set();
    if (ZyrFailed(r)) return r;
  }
  if (workerFailure_.load(std::memory_order_relaxed) != ZYR_OK)
    return workerFailure_.exchange(ZYR_OK, std::memory_order_relaxed);
  return ZYR_OK;
}

// The oldest two thirds of the waiting records stay; the newest third is
// lost, never the record in hand, which is reserved after the cut. A notice
// among the lost passes its count on to the next.
void ZyrLogDispatcher::CutLocked() {
  std::uint64_t count = queue_.ActiveCountLocked();
  std::uint64_t cut = 0, told = 0;
  queue_.CutLocked(count * 2 / 3, [&](ZyrLogQueueRecord& record) {
    if (record.kind == ZyrLogRecordKind::kNotice)
      told += static_cast<NoticeBody*>(record.Body())->lines;
    else
      ++cut;
    DropRecord(record);
  });
  untoldLines_ += cut + told;
  cutLines_.fetch_add(cut, std::memory_order_relaxed);
  // With the notice logger above WARN the lines stay untold until a later
  // cut writes a notice.
  ZyrLoggerNode* notice = noticeLogger_;
  if (notice && notice->ReadThreshold() <= ZYR_SEVERITY_WARN) noticeDue_ = true;
}

bool ZyrLogDispatcher::WriteNoticeLocked() {
  ZyrLogQueueRecord* record =
      queue_.ReserveLocked(RecordSize(sizeof(NoticeBody)), ZyrLogRecordKind::kNotice, noticeLogger_);
  if (!record) return false;
  new (record->Body()) NoticeBody{untoldLines_, ZyrBasSystemTime(), ZyrBasCurrentThreadId(),
                                  noticeLogger_->flags.load()};
  untoldLines_ = 0;
  noticeDue_ = false;
  record->MarkReady();
  return true;
}

void ZyrLogDispatcher::DropRecord(ZyrLogQueueRecord& record) {
  if (record.kind == ZyrLogRecordKind::kEvent) static_cast<ZyrLogEvent*>(record.Body())->~ZyrLogEvent();
}

void ZyrLogDispatcher::Deliver(ZyrLogQueueRecord& record) {
  ZyrLoggerNode* logger = record.logger;
  ZyrResult r;
  switch (record.kind) {
    case ZyrLogRecordKind::kCapture:
      r = ZyrLogComposeCaptured(drainEvent_, *static_cast<const ZyrLogCapture*>(record.Body()),
                                stampClock_, logger->NameData(), logger->NameLength());
      if (ZyrSucceeded(r)) r = DeliverEvent(logger, drainEvent_);
      break;
    case ZyrLogRecordKind::kEvent:
      r = DeliverEvent(logger, *static_cast<ZyrLogEvent*>(record.Body()));
      break;
    case ZyrLogRecordKind::kNotice: {
      const auto& body = *static_cast<const NoticeBody*>(record.Body());
      const std::uint64_t items[] = {ZYR_TAG_QWORD, body.lines, ZYR_TAG_END};
      bool revisionText = (body.logFlags & ZYR_LOGGER_REVISION_TEXT) != 0;
      // The notice logger's preamble source is the hierarchy's, which is
      // always empty.
      ZyrLogEventSource source{logger->NameData(),
                               ZYR_SEVERITY_WARN,
                               nullptr,
                               kNoticeFileId,
                               kNoticeLine,
                               kNoticeBuild,
                               kNoticeRevision,
                               revisionText ? kNoticeRevisionText : nullptr,
                               kNoticeProduct,
                               body.logFlags,
                               kNoticeScrambleMode,
                               items,
                               nullptr,
                               logger->NameLength()};
      r = ZyrLogComposeEventAt(drainEvent_, source, body.timestamp, body.threadId);
      if (ZyrSucceeded(r)) r = DeliverEvent(logger, drainEvent_);
      break;
    }
    default:
      r = ZYR_E_INVALID_DATA;
      break;
  }
  DropRecord(record);
  if (ZyrFailed(r)) NoteWorkerFailure(r);
}

void ZyrLogDispatcher::NoteWorkerFailure(ZyrResult failure, std::uint64_t lines) {
  workerFailedLines_.fetch_add(lines, std::memory_order_relaxed);
  // Append answers an appender's failure as a warning already; a failure to
  // finish the message is made one here, so that every caller hears of
  // the worker's trouble in one form.
  workerFailure_.store(ZyrResultAsWarning(failure), std::memory_order_relaxed);
}

std::uint64_t ZyrLogDispatcher::Drain() { return DrainBatch(false); }

std::uint64_t ZyrLogDispatcher::DrainBatch(bool tend) {
  ZyrBasLockGuard guard(drainLock_);
  ZyrLogQueueRange range;
  {
    ZyrBasBriefGuard queueGuard(queue_.Lock());
    range = queue_.TakeLocked();
  }
  if (!range.count) return 0;
  stampClock_.Anchor();
  // The file appenders write each batch of lines in one write; the batch
  // ends before the drain lock goes, so that no line of it waits for the
  // next drain.
  batch_.Begin();
  queue_.Walk(range, [this](ZyrLogQueueRecord& record) { Deliver(record); });
  ZyrResult failure;
  std::uint64_t lost = batch_.End(&failure);
  if (lost) NoteWorkerFailure(failure, lost);
  // Under the drain lock, which a fork holds: the child never inherits an
  // allocation half done by the worker.
  if (tend) queue_.Tend(1);
  return range.count;
}

// The worker drains, and waits on one of two sets: the long one, with the
// stop event, the queue event and every armed folder, and the short one
// without folders. After a folder was signalled and the check has run, the
// worker waits only on the short set for 1000 milliseconds: changes that
// come meanwhile are picked up together at the next wait on the long set,
// so a busy folder costs at most one check per second.
//
// While lines arrive the worker does not sleep: after a batch it looks
// again at once, and with an empty queue it naps a millisecond at a time,
// so that callers never need to wake it. Only after kIdleBeforeSleepMs
// without lines does it announce that it sleeps, and the next caller sets
// the queue event.
ZyrResult ZyrLogDispatcher::Run() {
  ZyrBasWaitSet& longSet = longSet_;
  ZyrBasWaitSet& shortSet = shortSet_;
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
  std::uint32_t lastLines = ZyrBasTickCount();
  std::uint32_t settleStart = 0;
  bool settling = false;
  for (;;) {
    HousekeepingTick();
    std::uint64_t taken = DrainBatch(true);
    // The watch list is passed over only when there is something to arm,
    // so that a busy queue takes no lock for it.
    if (unarmed || newFolders_.load(std::memory_order_relaxed)) unarmed = ArmWatchers(longSet);
    std::uint32_t now = ZyrBasTickCount();
    if (taken) lastLines = now;
    if (settling && now - settleStart >= kChangeInterval) settling = false;

    std::uint32_t wait = taken ? 0 : now - lastLines < kIdleBeforeSleepMs ? kNapMs : kNoWait;
    bool asleep = false;
    if (wait == kNoWait) {
      // Reset before the announcement: a caller that sets the event after
      // it finds the worker's wait ready.
      (void)queueEvent_.Reset();
      ZyrBasBriefGuard guard(queue_.Lock());
      if (queue_.ActiveCountLocked() == 0) asleep = queue_.workerAsleep = true;
      else wait = 0;
    }
    std::uint32_t due = pollDue();
    if (due < wait) wait = due;
    if (settling && kChangeInterval - (now - settleStart) < wait) wait = kChangeInterval - (now - settleStart);
    ZyrBasWaitable* signalled = nullptr;
    ZyrResult r = (settling ? shortSet : longSet).Wait(wait, true, &signalled);
    if (asleep) {
      ZyrBasBriefGuard guard(queue_.Lock());
      queue_.workerAsleep = false;
    }
    if (r == ZYR_W_TIMEOUT) {
      if (pollDue() == 0) {
        lastPoll = ZyrBasTickCount();
        CheckForChanges();
        unarmed = ArmWatchers(longSet);
      }
      continue;
    }
    if (ZyrFailed(r)) return EndOnFailedWait(r, longSet);
    if (signalled == &worker_.StopReference()) {
      Drain();
      ZyrBasLockGuard guard(watchLock_);
      watchList_.ReleaseAll(longSet);
      return ZYR_OK;
    }
    if (signalled == &queueEvent_) continue;
    watchList_.Signalled(*static_cast<ZyrLogFolderWatcher*>(signalled), longSet);
    CheckForChanges();
    settling = true;
    settleStart = ZyrBasTickCount();
  }
}

// A folder newly armed is followed by a check: a change made before its
// notification stood (between the load and the arming, or while no worker
// ran) would otherwise wait for the next change in that folder.
std::size_t ZyrLogDispatcher::ArmWatchers(ZyrBasWaitSet& longSet) {
  std::size_t unarmed;
  std::uint32_t before = longSet.Count();
  {
    ZyrBasLockGuard guard(watchLock_);
    newFolders_.store(false, std::memory_order_relaxed);
    unarmed = watchList_.ArmAll(longSet);
  }
  if (longSet.Count() > before) CheckForChanges();
  return unarmed;
}

void ZyrLogDispatcher::CheckForChanges() {
  if (changeCallback_) (void)changeCallback_(changeContext_);
}

// No way to serve the queue any more: fall back to the direct road, where
// the tick polls for changes, and write out what waits.
ZyrResult ZyrLogDispatcher::EndOnFailedWait(ZyrResult failure, ZyrBasWaitSet& longSet) {
  {
    ZyrBasBriefGuard guard(queue_.Lock());
    running_.store(0);
  }
  {
    ZyrBasLockGuard guard(watchLock_);
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
  ZyrBasStampStart();  // before the first stamp
  // The worker's wait sets are made here, not on the worker: what the
  // worker allocates outside the locks that a fork holds could be half done
  // in a forked child, whose allocator would then never be free again.
  bool alive = workerStarted_ && worker_.Wait(0) == ZYR_W_TIMEOUT;
  if (!alive) {
    for (ZyrBasWaitSet* set : {&longSet_, &shortSet_}) {
      set->Clear();
      ZyrResult r = set->Add(worker_.StopReference());
      if (ZyrSucceeded(r)) r = set->Add(queueEvent_);
      if (ZyrFailed(r)) return r;
    }
  }
  running_.store(1);
  ZyrResult r = worker_.Start(0);
  if (r == ZYR_E_TIMEOUT) return r;  // the worker runs already and goes on
  if (ZyrFailed(r)) {
    // Without a worker nobody would serve the queue: back to the direct road.
    {
      ZyrBasBriefGuard guard(queue_.Lock());
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
  ZyrBasLockGuard guard(drainLock_);
  queue_.ReleaseMemory();
}

void ZyrLogDispatcher::SetMaxQueueSize(std::uint64_t bytes) {
  if (bytes != 0 && bytes < kZyrMinimumMaxQueueBytes) bytes = kZyrMinimumMaxQueueBytes;
  maxQueueBytes_.store(bytes);
}

std::size_t ZyrLogDispatcher::QueuedCount() {
  ZyrBasBriefGuard guard(queue_.Lock());
  return static_cast<std::size_t>(queue_.ActiveCountLocked());
}

std::uint64_t ZyrLogDispatcher::MaxQueueBytes() { return maxQueueBytes_.load(); }

// The worker arms a new folder at its next pass.
ZyrResult ZyrLogDispatcher::WatchFolder(const char16_t* folder) {
  ZyrBasLockGuard guard(watchLock_);
  ZyrResult r = watchList_.Add(folder);
  newFolders_.store(true, std::memory_order_relaxed);
  return r;
}

void ZyrLogDispatcher::ForkPrepareControl() { controlLock_.Enter(); }

void ZyrLogDispatcher::ForkPrepareQueue() {
  // With the drain lock held no batch is half written: the appenders hold
  // no line of the parent's that the child could write again.
  drainLock_.Enter();
  watchLock_.Enter();
  queue_.Lock().Acquire();
}

void ZyrLogDispatcher::ForkParent() {
  queue_.Lock().Release();
  watchLock_.Leave();
  drainLock_.Leave();
  controlLock_.Leave();
}

void ZyrLogDispatcher::ForkChild() {
  controlLock_.RenewAfterFork();
  drainLock_.RenewAfterFork();
  watchLock_.RenewAfterFork();
  queue_.Lock().RenewAfterFork();
  texts_.RenewAfterFork();
  running_.store(0);
  worker_.ForgetAfterFork();
  workerStarted_ = 0;
  // The parent writes these; written here too they would stand twice.
  queue_.DropAll([this](ZyrLogQueueRecord& record) { DropRecord(record); });
  untoldLines_ = 0;
  noticeDue_ = false;
  cutLines_.store(0, std::memory_order_relaxed);
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
