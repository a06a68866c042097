// ZyrLogDispatcher: every event of the process passes here. While no worker
// runs it is a pass-through and the calling thread writes; between Start and
// Stop every event is queued and the one worker thread writes, so that no
// caller waits for a file. Its Dispatch is also where the once-a-second
// housekeeping tick rides, since every message passes it.
#ifndef ZYR_ENGINE_DISPATCHER_H
#define ZYR_ENGINE_DISPATCHER_H

#include <atomic>
#include <cstdint>

#include "appender/housekeeper.h"
#include "base/array.h"
#include "base/lock.h"
#include "base/sync.h"
#include "engine/change_monitor.h"
#include "records/event.h"

class ZyrLoggerNode;
class ZyrLogDispatcher;

// One waiting message: the logger it was written through and the event,
// which the entry owns.
struct ZyrLogQueueEntry {
  ZyrLoggerNode* logger = nullptr;
  ZyrLogEvent event;

  ZyrLogQueueEntry() = default;
  ZyrLogQueueEntry(ZyrLoggerNode* l, ZyrLogEvent&& e) noexcept : logger(l), event(static_cast<ZyrLogEvent&&>(e)) {}
  ZyrLogQueueEntry(ZyrLogQueueEntry&& other) noexcept : logger(other.logger), event(static_cast<ZyrLogEvent&&>(other.event)) {}
  ZyrLogQueueEntry& operator=(ZyrLogQueueEntry&& other) noexcept {
    logger = other.logger;
    event.Swap(other.event);
    return *this;
  }
};

// Every waiting entry is charged this many bytes against MaxQueueSize,
// whatever its strings hold.
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
  // Creates the queue lock and the queue event.
  ZyrResult Init();

  ZyrResult Dispatch(ZyrLoggerNode* logger, ZyrLogEvent& event);
  ZyrResult Start();
  // Stops the worker and writes out everything that was queued.
  void Stop();
  // Writes out what waits now; may run on two threads at once.
  void Drain();
  // 0 turns the limit off; any value below five entries' charge is raised
  // to it. Takes effect at the next append.
  void SetMaxQueueSize(std::uint64_t bytes);
  ZyrResult WatchFolder(const char16_t* folder);

  // Fork. ForkPrepareControl takes the control lock and ForkPrepareQueue the
  // queue lock, each at its place in the library's lock order: the control
  // lock before the manager's, the queue lock after the manager's and
  // before the loggers'. ForkParent lets go of both. ForkChild leaves the
  // child on the direct road: no worker (the parent's does not exist
  // there), the entries inherited from the parent's queue dropped unwritten
  // (they are the parent's to write), events and locks of its own, and the
  // folders unarmed until the child starts a worker of its own.
  void ForkPrepareControl();
  void ForkPrepareQueue();
  void ForkParent();
  void ForkChild();

  // Lines that reached no appender on the worker's road (an appender
  // failed, or the message could not be finished), since the start of the
  // process or of a forked child.
  std::uint64_t WorkerFailedLines() const { return workerFailedLines_.load(std::memory_order_relaxed); }

  bool Running() const { return running_.load() != 0; }
  ZyrLogHousekeeper& Housekeeper() { return housekeeper_; }
  std::size_t QueuedCount();
  std::uint64_t MaxQueueBytes();

  // The worker's loop.
  ZyrResult Run();

  // For tests of the queue's own rules: events queue up as with a worker,
  // but nothing serves them until Stop.
  void TestQueueWithoutWorker() { running_.store(1); }

 private:
  // The event moves into a new entry built in place at the end of the
  // queue: its strings change hands once, and no entry on the stack is
  // moved again.
  ZyrResult Enqueue(ZyrLoggerNode* logger, ZyrLogEvent& event);
  ZyrResult EnqueueLocked(ZyrLoggerNode* logger, ZyrLogEvent& event);
  ZyrResult DeliverDirect(ZyrLoggerNode* logger, ZyrLogEvent& event);
  void HousekeepingTick();
  // A line the worker could not write: counted, and its result kept for
  // the next caller that enqueues.
  void NoteWorkerFailure(ZyrResult failure);
  void WriteNotice();
  // Pieces of the worker's loop.
  std::size_t ArmWatchers(ZyrBasWaitSet& longSet);
  void CheckForChanges();
  bool Serve(ZyrBasWaitable* signalled, ZyrBasWaitSet& longSet, std::size_t* unarmed);
  ZyrResult Settle(ZyrBasWaitSet& shortSet, ZyrBasWaitSet& longSet, std::size_t* unarmed,
                   bool* stopped);
  ZyrResult EndOnFailedWait(ZyrResult failure, ZyrBasWaitSet& longSet);

  ChangeCallback changeCallback_;
  void* changeContext_;
  std::atomic<std::uint32_t> housekeepingBusy_{0};
  std::atomic<std::uint32_t> lastHousekeeping_;
  ZyrLogHousekeeper housekeeper_;  // waits for its requests when destroyed
  ZyrLogWorker worker_;
  // Serialises Start and Stop: the worker's thread object is made, waited
  // for and released there, and two threads doing that at once would
  // release one thread object twice. Never taken by the worker itself.
  ZyrBasCriticalSection controlLock_;
  std::uint8_t workerStarted_ = 0;
  ZyrBasCriticalSection queueLock_;
  ZyrBasArray<ZyrLogQueueEntry> active_;
  ZyrBasArray<ZyrLogQueueEntry> spare_;
  ZyrBasEvent queueEvent_;
  std::atomic<std::uint32_t> running_{0};
  ZyrLoggerNode* noticeLogger_;
  // Read under queueLock at each append, but written without it: the
  // builder sets it while it holds every logger lock, and a thread that
  // falls back to the direct road holds queueLock on its way to a logger
  // lock, so taking queueLock here would order the two both ways.
  std::atomic<std::uint64_t> maxQueueBytes_{kZyrDefaultMaxQueueBytes};
  // The folders of loaded configuration files; guarded by queueLock.
  ZyrLogWatchList watchList_;
  std::atomic<bool> newFolders_{false};  // set by WatchFolder, taken by the arming pass
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
