// ZyrLogQueue: the records of the messages that wait for the worker, in a
// chain of blocks. A caller reserves room for its record under a brief
// lock, which covers a few stores and never a copy, an allocation or a
// system call, then writes the record outside the lock and marks it ready.
// Nothing moves once written: the queue grows by linking a block, and the
// blocks that the worker has passed are recycled for later records, so that
// a warm queue touches no fresh memory.
//
// The records reserved since the worker last took its share are the
// active ones: the budget counts them, and a cut removes the newest of them.
// The worker takes all active records at once and walks them in order.
//
// The queue's lock is the brief lock below. Operations named ...Locked run
// under it; the others take it themselves, or need no lock as said.
#ifndef ZYR_ENGINE_QUEUE_H
#define ZYR_ENGINE_QUEUE_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "base/lock.h"
#include "zyrlog/result.h"

class ZyrLoggerNode;

enum class ZyrLogRecordKind : std::uint16_t {
  kCapture = 0,  // a ZyrLogCapture: composed on the worker
  kEvent = 1,    // a ZyrLogEvent composed at the call, moved in
  kNotice = 2,   // the notice of a cut: a ZyrLogNoticeBody
};

// One record: this header, then its body, 8-aligned.
struct ZyrLogQueueRecord {
  static constexpr std::uint16_t kWriting = 0;
  static constexpr std::uint16_t kReady = 1;

  std::uint32_t size;  // bytes, header included, a multiple of 8
  std::atomic<std::uint16_t> state;
  ZyrLogRecordKind kind;
  ZyrLoggerNode* logger;

  void* Body() { return this + 1; }
  // Written by its caller: the walk waits for it.
  void MarkReady() { state.store(kReady, std::memory_order_release); }
  bool Ready() const { return state.load(std::memory_order_acquire) == kReady; }
};
static_assert(sizeof(ZyrLogQueueRecord) == 16, "records are laid out in 8-byte units");

struct ZyrLogQueueBlock;

// Where a record starts, or where the records end.
struct ZyrLogQueuePlace {
  ZyrLogQueueBlock* block = nullptr;
  std::uint32_t offset = 0;
};

// The records that a drainer took: from `first` up to `end`.
struct ZyrLogQueueRange {
  ZyrLogQueuePlace first;
  ZyrLogQueuePlace end;
  std::uint64_t count = 0;
};

class ZyrLogQueue {
 public:
  // A block with its header is one huge page where the system has them:
  // fresh memory costs a fault per page (some 4 us for 4 KiB here), and a
  // burst that outruns the worker grows the queue into fresh memory. At
  // this size a caller meets a fresh page once in some 9,000 records, not
  // once in 18. A larger record gets a block of its own.
  static constexpr std::uint32_t kBlockBytes = 2 * 1024 * 1024;

  ZyrLogQueue() = default;
  ~ZyrLogQueue();
  ZyrLogQueue(const ZyrLogQueue&) = delete;
  ZyrLogQueue& operator=(const ZyrLogQueue&) = delete;

  ZyrBasBriefLock& Lock() { return lock_; }

  // Room for a record of `size` bytes at the end: its header is written
  // (size, kind, logger, state kWriting) and counted as active. Null when
  // no block has room and none is free: the caller lets go of the lock,
  // calls Supply and tries again.
  ZyrLogQueueRecord* ReserveLocked(std::uint32_t size, ZyrLogRecordKind kind, ZyrLoggerNode* logger);
  // A block for a record of `size` bytes, for ReserveLocked: allocated
  // without the lock, then added to the free blocks. ZYR_E_OUT_OF_MEMORY.
  ZyrResult Supply(std::uint32_t size);

  std::uint64_t ActiveCountLocked() const { return activeCount_; }

  // Cuts the active records to their oldest `keep`: every newer record is
  // visited, newest last, once its writer has marked it ready, so that the
  // caller can destroy what it owns; then its room is free again.
  template <class Visit>
  void CutLocked(std::uint64_t keep, Visit visit);

  // The drainer's share: every active record, which are active no longer.
  ZyrLogQueueRange TakeLocked();
  // Visits the records of `range` in order, each once its writer has marked
  // it ready, and recycles the blocks passed. Without the lock; drainers
  // take turns (the dispatcher's drain lock).
  template <class Visit>
  void Walk(const ZyrLogQueueRange& range, Visit visit);

  // Keeps at least `count` free blocks, allocated and touched here, so
  // that callers in a burst find them ready. The worker calls it between
  // batches. Free blocks beyond twice the largest need seen since the last
  // call are released, half of the excess at a time, so that the memory
  // follows the load down.
  void Tend(std::size_t count);
  // Releases every free block and, when nothing is active, the last block
  // too. Drainers must be done.
  void ReleaseMemory();
  // Forgets every active record and releases every block: in a forked
  // child, whose records are the parent's, and at the end. Each ready
  // record is visited, so that what it owns can be freed; one that a
  // thread of the parent was writing at the fork is never finished here.
  template <class Visit>
  void DropAll(Visit visit);

  std::size_t FreeBlocksLocked() const { return freeCount_; }

  // The worker sleeps without a time limit: the next caller wakes it.
  bool workerAsleep = false;  // under the lock

 private:
  static ZyrLogQueueRecord* At(const ZyrLogQueuePlace& place);
  static ZyrLogQueueBlock* NewBlock(std::uint32_t bytes);
  static void FreeBlock(ZyrLogQueueBlock* block);
  static void WaitReady(const ZyrLogQueueRecord* record);
  template <class Visit, class Leave>
  static void Pass(ZyrLogQueuePlace from, const ZyrLogQueuePlace& end, Visit visit, Leave leave);
  // Moves the tail to a free block that holds `size`; false when none does.
  bool AdvanceLocked(std::uint32_t size);
  void PutFreeLocked(ZyrLogQueueBlock* block);
  ZyrLogQueuePlace FindLocked(std::uint64_t index) const;
  void RewindLocked(const ZyrLogQueuePlace& place, std::uint64_t index);
  void ReleaseFreeBlocks(std::size_t keep);

  ZyrBasBriefLock lock_;
  ZyrLogQueuePlace tail_;             // where the next record goes
  ZyrLogQueuePlace active_;           // the oldest active record
  std::uint64_t activeCount_ = 0;
  std::uint64_t nextIndex_ = 0;       // index of the next record; the first active one is nextIndex_ - activeCount_
  ZyrLogQueueBlock* free_ = nullptr;  // blocks of the standard size only
  std::size_t freeCount_ = 0;
  std::size_t neededSinceTend_ = 0;   // most blocks that one walk passed since the last Tend
};

struct alignas(64) ZyrLogQueueBlock {
  ZyrLogQueueBlock* next;
  std::uint32_t capacity;    // bytes for records
  std::uint32_t filled;      // bytes of records, set when the tail moved on to the next block
  std::uint64_t firstIndex;  // index of the first record that starts here
  unsigned char* Data() { return reinterpret_cast<unsigned char*>(this + 1); }
};

inline ZyrLogQueueRecord* ZyrLogQueue::At(const ZyrLogQueuePlace& place) {
  return reinterpret_cast<ZyrLogQueueRecord*>(place.block->Data() + place.offset);
}

// Visits the records from `from` up to `end` in order, then gives each
// block that the walk left behind, the end's block excepted, to `leave`.
template <class Visit, class Leave>
void ZyrLogQueue::Pass(ZyrLogQueuePlace from, const ZyrLogQueuePlace& end, Visit visit, Leave leave) {
  for (ZyrLogQueuePlace at = from;;) {
    std::uint32_t stop = at.block == end.block ? end.offset : at.block->filled;
    while (at.offset < stop) {
      ZyrLogQueueRecord* record = At(at);
      std::uint32_t size = record->size;  // written with the reservation
      visit(*record);
      at.offset += size;
    }
    if (at.block == end.block) return;
    ZyrLogQueueBlock* left = at.block;
    at = {left->next, 0};
    leave(left);
  }
}

template <class Visit>
void ZyrLogQueue::CutLocked(std::uint64_t keep, Visit visit) {
  if (keep >= activeCount_) return;
  std::uint64_t index = nextIndex_ - activeCount_ + keep;
  ZyrLogQueuePlace cut = FindLocked(index);
  Pass(
      cut, tail_,
      [&](ZyrLogQueueRecord& record) {
        WaitReady(&record);
        visit(record);
      },
      [](ZyrLogQueueBlock*) {});
  RewindLocked(cut, index);
}

template <class Visit>
void ZyrLogQueue::Walk(const ZyrLogQueueRange& range, Visit visit) {
  if (!range.count) return;
  // Every record of a block before the end block was in this range: the
  // block is nobody's any more.
  ZyrLogQueueBlock* passed = nullptr;
  std::size_t blocks = 0;
  Pass(
      range.first, range.end,
      [&](ZyrLogQueueRecord& record) {
        WaitReady(&record);
        visit(record);
      },
      [&](ZyrLogQueueBlock* block) {
        block->next = passed;
        passed = block;
        ++blocks;
      });
  ZyrBasBriefGuard guard(lock_);
  if (blocks > neededSinceTend_) neededSinceTend_ = blocks;
  while (passed) {
    ZyrLogQueueBlock* next = passed->next;
    PutFreeLocked(passed);
    passed = next;
  }
}

template <class Visit>
void ZyrLogQueue::DropAll(Visit visit) {
  if (tail_.block) {
    Pass(
        active_, tail_,
        [&](ZyrLogQueueRecord& record) {
          if (record.Ready()) visit(record);
        },
        [](ZyrLogQueueBlock* block) { FreeBlock(block); });
    FreeBlock(tail_.block);
  }
  tail_ = active_ = ZyrLogQueuePlace{};
  activeCount_ = 0;
  workerAsleep = false;
  ReleaseFreeBlocks(0);
}

#endif
