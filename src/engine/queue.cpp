#include "engine/queue.h"

#include <new>

#include "base/memory.h"

namespace {

constexpr std::uint32_t kStandardCapacity =
    ZyrLogQueue::kBlockBytes - static_cast<std::uint32_t>(sizeof(ZyrLogQueueBlock));
constexpr std::size_t kPage = 4096;

}  // namespace

ZyrLogQueue::~ZyrLogQueue() {
  // The dispatcher drops what is left before; this frees the blocks.
  DropAll([](ZyrLogQueueRecord&) {});
}

ZyrLogQueueBlock* ZyrLogQueue::NewBlock(std::uint32_t size) {
  bool standard = size <= kStandardCapacity;
  std::size_t capacity = standard ? kStandardCapacity : (std::size_t{size} + 63) & ~std::size_t{63};
  std::size_t bytes = sizeof(ZyrLogQueueBlock) + capacity;
  if (bytes > 0xffffffffu) return nullptr;
  void* memory = ZyrBasAllocAligned(standard ? kBlockBytes : alignof(ZyrLogQueueBlock), bytes);
  if (!memory) return nullptr;
  auto* block = new (memory) ZyrLogQueueBlock{};
  block->capacity = static_cast<std::uint32_t>(capacity);
  return block;
}

void ZyrLogQueue::FreeBlock(ZyrLogQueueBlock* block) { ZyrBasFreeAligned(block); }

void ZyrLogQueue::WaitReady(const ZyrLogQueueRecord* record) {
  // Its writer reserved it before the walk began and is copying a few
  // hundred bytes; only a writer that lost its processor keeps us long.
  for (int spins = 0; !record->Ready(); ++spins) {
    if (spins < 256) ZyrBasSpinPause();
    else ZyrBasYield();
  }
}

void ZyrLogQueue::PutFreeLocked(ZyrLogQueueBlock* block) {
  block->next = free_;
  free_ = block;
  ++freeCount_;
}

bool ZyrLogQueue::AdvanceLocked(std::uint32_t size) {
  ZyrLogQueueBlock** link = &free_;
  while (*link && (*link)->capacity < size) link = &(*link)->next;
  ZyrLogQueueBlock* block = *link;
  if (!block) return false;
  *link = block->next;
  --freeCount_;
  block->next = nullptr;
  block->filled = 0;
  block->firstIndex = nextIndex_;
  if (!tail_.block) {
    active_ = {block, 0};
  } else {
    tail_.block->filled = tail_.offset;
    tail_.block->next = block;
  }
  tail_ = {block, 0};
  return true;
}

ZyrLogQueueRecord* ZyrLogQueue::ReserveLocked(std::uint32_t size, ZyrLogRecordKind kind,
                                              ZyrLoggerNode* logger) {
  if (!tail_.block || tail_.block->capacity - tail_.offset < size) {
    if (!AdvanceLocked(size)) return nullptr;
  }
  auto* record = reinterpret_cast<ZyrLogQueueRecord*>(tail_.block->Data() + tail_.offset);
  record->size = size;
  record->state.store(ZyrLogQueueRecord::kWriting, std::memory_order_relaxed);
  record->kind = kind;
  record->logger = logger;
  tail_.offset += size;
  ++activeCount_;
  ++nextIndex_;
  // The next record's lines are asked for now, so that its writer finds
  // them at hand rather than with the worker, which last read them.
  if (tail_.block->capacity - tail_.offset >= 256) {
    const unsigned char* next = tail_.block->Data() + tail_.offset;
    __builtin_prefetch(next, 1);
    __builtin_prefetch(next + 64, 1);
    __builtin_prefetch(next + 128, 1);
    __builtin_prefetch(next + 192, 1);
  }
  return record;
}

ZyrResult ZyrLogQueue::Supply(std::uint32_t size) {
  ZyrLogQueueBlock* block = NewBlock(size);
  if (!block) return ZYR_E_OUT_OF_MEMORY;
  ZyrBasBriefGuard guard(lock_);
  PutFreeLocked(block);
  return ZYR_OK;
}

// The record with queue index `index`, among the active ones: whole blocks
// are passed by their first index, then records one by one.
ZyrLogQueuePlace ZyrLogQueue::FindLocked(std::uint64_t index) const {
  ZyrLogQueuePlace at = active_;
  std::uint64_t i = nextIndex_ - activeCount_;
  while (at.block != tail_.block && at.block->next->firstIndex <= index) {
    at = {at.block->next, 0};
    i = at.block->firstIndex;
  }
  for (; i < index; ++i) at.offset += At(at)->size;
  return at;
}

void ZyrLogQueue::RewindLocked(const ZyrLogQueuePlace& place, std::uint64_t index) {
  for (ZyrLogQueueBlock* block = place.block->next; block;) {
    ZyrLogQueueBlock* next = block->next;
    if (block->capacity == kStandardCapacity) PutFreeLocked(block);
    else FreeBlock(block);
    block = next;
  }
  place.block->next = nullptr;
  tail_ = place;
  activeCount_ -= nextIndex_ - index;
  nextIndex_ = index;
}

ZyrLogQueueRange ZyrLogQueue::TakeLocked() {
  ZyrLogQueueRange range{active_, tail_, activeCount_};
  active_ = tail_;
  activeCount_ = 0;
  return range;
}

void ZyrLogQueue::Tend(std::size_t count) {
  std::size_t have, need;
  {
    ZyrBasBriefGuard guard(lock_);
    have = freeCount_;
    need = neededSinceTend_ > count ? neededSinceTend_ : count;
    neededSinceTend_ = 0;
  }
  for (; have < need; ++have) {
    ZyrLogQueueBlock* block = NewBlock(kStandardCapacity);
    if (!block) return;  // a caller that needs one tries again
    // Touched here, so that the faults of fresh pages fall on the worker.
    for (std::size_t at = 0; at < block->capacity; at += kPage) block->Data()[at] = 0;
    ZyrBasBriefGuard guard(lock_);
    PutFreeLocked(block);
  }
  if (have > 2 * need) ReleaseFreeBlocks(have - (have - 2 * need) / 2);
}

void ZyrLogQueue::ReleaseFreeBlocks(std::size_t keep) {
  ZyrLogQueueBlock* released = nullptr;
  {
    ZyrBasBriefGuard guard(lock_);
    while (freeCount_ > keep) {
      ZyrLogQueueBlock* block = free_;
      free_ = block->next;
      --freeCount_;
      block->next = released;
      released = block;
    }
  }
  while (released) {
    ZyrLogQueueBlock* next = released->next;
    FreeBlock(released);
    released = next;
  }
}

void ZyrLogQueue::ReleaseMemory() {
  ZyrLogQueueBlock* last = nullptr;
  {
    ZyrBasBriefGuard guard(lock_);
    if (activeCount_ == 0 && tail_.block && tail_.block == active_.block) {
      last = tail_.block;
      tail_ = active_ = ZyrLogQueuePlace{};
    }
  }
  if (last) FreeBlock(last);
  ReleaseFreeBlocks(0);
}
