// ZyrLogDispatcher: every event of the process passes here. While no worker
// runs it is a pass-through and the calling thread writes; between Start and
// Stop every event is queued and the one worker thread writes, so that no
// caller waits for a file. Its Dispatch is also where the once-a-second
// housekeeping tick rides, since every message passes it; while the worker
// runs, the worker ticks between its batches.
//
// On the queue road a caller captures its message (ZyrLogCapture: the
// format, a copy of the arguments, time and thread) into a record of the
// queue and goes: no system call, no allocation and no lock but the
// queue's brief one, in steady state. The worker composes, scrambles and
// writes the records in queue order, through the configuration in force
// when it writes them.
#ifndef ZYR_ENGINE_DISPATCHER_H
#define ZYR_ENGINE_DISPATCHER_H

#include <atomic>
#include <cstdint>

#include "appender/batch.h"
#include "appender/housekeeper.h"
#include "base/lock.h"
#include "base/sync.h"
#include "base/time.h"
#include "engine/change_monitor.h"
#include "engine/queue.h"
#include "records/event.h"
#include "records/text_pool.h"

class ZyrLoggerNode;
class ZyrLogDispatcher;

// Every waiting entry is charged this many bytes against MaxQueueSize,
// whatever its record holds.
inline constexpr std::uint64_t kZyrQueueEntryCharge = 376;
inline constexpr std::uint64_t kZyrDefaultMaxQueueBytes = 0x2000000;
// The smallest limit other than 0: five entries.
inline constexpr std::uint64_t kZyrMinimumMaxQueueBytes = 5 * kZyrQueueEntryCharge;

class ZyrLogWorker final : public ZyrBasThread {
 public:
  explicit ZyrLogWorker(ZyrLogDispatcher& dispatcher) : dispatcher_(dispatcher) {}
  ZyrResult Run() override;

 private:
  ZyrLogDispatcher& dispatcher_;
};

class ZyrLogDispatcher {
 public:
  typedef ZyrResult (*ChangeCallback)(void* context);

  ZyrLogDispatcher(ChangeCallback changeCallback, void* changeContext, ZyrLoggerNode* noticeLogger);
  ~ZyrLogDispatcher();
  // Creates the locks and the queue event.
  ZyrResult Init();

  // The road of one message of a logger's log operation.
  ZyrResult Dispatch(ZyrLoggerNode* logger, const ZyrLogEventSource& source);
  ZyrResult Start();
  // Stops the worker and writes out everything that was queued.
  void Stop();
  // Writes out what waits now; drainers take turns, so a caller's drain
  // waits for the worker's batch in hand. Returns the records written.
  std::uint64_t Drain();
  // 0 turns the limit off; any value below five entries' charge is raised
  // to it. Takes effect at the next append.
  void SetMaxQueueSize(std::uint64_t bytes);
  ZyrResult WatchFolder(const char16_t* folder);

  // Fork. ForkPrepareControl takes the control lock and ForkPrepareQueue
  // the queue's locks (the drain lock, the watch list's, the queue's brief
  // lock), each at its place in the library's lock order: the control lock
  // before the manager's, the queue's after the manager's and before the
  // loggers'. ForkParent lets go of all. ForkChild leaves the child on the
  // direct road: no worker (the parent's does not exist there), the records
  // inherited from the parent's queue dropped unwritten (they are the
  // parent's to write), events and locks of its own, and the folders
  // unarmed until the child starts a worker of its own.
  void ForkPrepareControl();
  void ForkPrepareQueue();
  void ForkParent();
  void ForkChild();

  // Lines that reached no appender on the worker's road (an appender
  // failed, or the message could not be composed or finished), since the
  // start of the process or of a forked child.
  std::uint64_t WorkerFailedLines() const { return workerFailedLines_.load(std::memory_order_relaxed); }
  // Lines that cuts removed from the queue, notices not counted.
  std::uint64_t CutLines() const { return cutLines_.load(std::memory_order_relaxed); }

  bool Running() const { return running_.load() != 0; }
  ZyrLogHousekeeper& Housekeeper() { return housekeeper_; }
  std::size_t QueuedCount();
  std::uint64_t MaxQueueBytes();

  // The worker's loop.
  ZyrResult Run();

  // For tests of the queue's own rules: events queue up as with a worker,
  // but nothing serves them until Stop.
  void TestQueueWithoutWorker() {
    ZyrBasStampStart();
    running_.store(1);
  }

 private:
  // The outcome of asking the queue for room.
  struct Admission {
    ZyrLogQueueRecord* record = nullptr;
    bool direct = false;  // Stop has passed: the caller takes the direct road
    bool wake = false;    // the worker sleeps: the caller sets the queue event
  };

  // The worker's drain also keeps free blocks ready for the callers.
  std::uint64_t DrainBatch(bool tend);
  ZyrResult Enqueue(ZyrLoggerNode* logger, const ZyrLogEventSource& source);
  // A message that is not captured is composed at the call and its event
  // moved into the record.
  ZyrResult EnqueueComposed(ZyrLoggerNode* logger, const ZyrLogEventSource& source);
  // Room for a record of `size` bytes, under the queue's lock: the cut and
  // its notice when the budget is full, and a block when none has room.
  ZyrResult Admit(ZyrLoggerNode* logger, ZyrLogRecordKind kind, std::uint32_t size, Admission* admission);
  // The record is written: the worker may take it.
  ZyrResult Publish(const Admission& admission);
  void CutLocked();
  bool WriteNoticeLocked();
  ZyrResult DeliverDirect(ZyrLoggerNode* logger, const ZyrLogEventSource& source);
  ZyrResult DeliverEvent(ZyrLoggerNode* logger, ZyrLogEvent& event);
  // One record on the draining thread: composed, finished, appended.
  void Deliver(ZyrLogQueueRecord& record);
  void DropRecord(ZyrLogQueueRecord& record);
  void HousekeepingTick();
  // Lines the worker could not write: counted, and the result kept for
  // the next caller that enqueues.
  void NoteWorkerFailure(ZyrResult failure, std::uint64_t lines = 1);
  // Pieces of the worker's loop.
  std::size_t ArmWatchers(ZyrBasWaitSet& longSet);
  void CheckForChanges();
  ZyrResult EndOnFailedWait(ZyrResult failure, ZyrBasWaitSet& longSet);

  ChangeCallback changeCallback_;
  void* changeContext_;
  std::atomic<std::uint32_t> housekeepingBusy_{0};
  std::atomic<std::uint32_t> lastHousekeeping_;
  ZyrLogHousekeeper housekeeper_;  // waits for its requests when destroyed
  ZyrLogWorker worker_;
  // The worker's two wait sets: the long one with the armed folders, the
  // short one with the stop and queue events only. Made by Start.
  ZyrBasWaitSet longSet_;
  ZyrBasWaitSet shortSet_;
  // Serialises Start and Stop: the worker's thread object is made, waited
  // for and released there, and two threads doing that at once would
  // release one thread object twice. Never taken by the worker itself.
  ZyrBasCriticalSection controlLock_;
  std::uint8_t workerStarted_ = 0;
  // Drainers take turns: the worker between its batches, Flush, Stop.
  ZyrBasCriticalSection drainLock_;
  // Formats and file names that queued messages refer to: declared before
  // the queue, so that it outlives every record.
  ZyrLogTextPool texts_;
  ZyrLogQueue queue_;

  ZyrBasEvent queueEvent_;  // set by a caller that finds the worker asleep
  std::atomic<std::uint32_t> running_{0};
  ZyrLoggerNode* noticeLogger_;
  // Read at each append, but written without the queue's lock: the
  // builder sets it while it holds every logger lock.
  std::atomic<std::uint64_t> maxQueueBytes_{kZyrDefaultMaxQueueBytes};
  // Under the queue's lock: lines cut and not yet told by a notice in the
  // queue, and whether a notice is owed ahead of the next record.
  std::uint64_t untoldLines_ = 0;
  bool noticeDue_ = false;
  std::atomic<std::uint64_t> cutLines_{0};
  // The folders of loaded configuration files, guarded by watchLock_.
  ZyrBasCriticalSection watchLock_;
  ZyrLogWatchList watchList_;
  std::atomic<bool> newFolders_{false};  // set by WatchFolder, taken by the arming pass
  // The event that the draining thread composes queued records into, kept
  // so that its strings keep their room; under drainLock_.
  ZyrLogEvent drainEvent_;
  ZyrBasStampClock stampClock_;  // makes the callers' stamps times; under drainLock_
  // The lines the draining thread's file appenders hold back, written at
  // the end of each drain; under drainLock_.
  ZyrLogBatch batch_;
  // On the worker's road a caller learns nothing of the appenders at its
  // own call; what the worker could not write is told, as a warning, to
  // the next caller that enqueues, so that a failing log file is never
  // silent.
  std::atomic<ZyrResult> workerFailure_{ZYR_OK};
  std::atomic<std::uint64_t> workerFailedLines_{0};
};

// Makes the message ready for the appenders on the delivering thread:
// scrambles it when its mode asks for it.
ZyrResult ZyrLogFinishEvent(ZyrLogEvent& event);

#endif
