// ZyrLogTextPool: the formats that callers pass with every message, which
// hardly ever change, kept once, so that a queued message refers to the
// kept copy instead of carrying one of its own, and a format is planned once
// instead of at every call.
//
// A text is found by its address and taken only when its units still equal
// the kept ones: a buffer that a caller fills anew, or a module unloaded
// and another loaded in its place, shows other units and is kept anew, or
// copied into the message. Kept texts live as long as the pool, so a
// queued message may refer to them however long it waits; the pool stops
// keeping more at a fixed size.
#ifndef ZYR_RECORDS_TEXT_POOL_H
#define ZYR_RECORDS_TEXT_POOL_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "base/format.h"
#include "base/lock.h"

struct ZyrLogKeptText {
  const char16_t* source;  // the caller's address it was kept from
  std::uint32_t length;    // units, without the terminator
  bool planned;            // `plan` holds the format's plan
  ZyrBasFormatPlan plan;
  ZyrLogKeptText* older;   // every kept text, for the pool's end
  const char16_t* Text() const { return text_; }

  char16_t* text_;  // length units and a terminator, in room readable in whole blocks
};

class ZyrLogTextPool {
 public:
  // Room for kept texts in all; beyond it texts are copied into messages.
  static constexpr std::size_t kMaxBytes = 1024 * 1024;
  static constexpr std::uint32_t kMaxLength = 4096;

  ZyrLogTextPool() = default;
  ~ZyrLogTextPool();
  ZyrLogTextPool(const ZyrLogTextPool&) = delete;
  ZyrLogTextPool& operator=(const ZyrLogTextPool&) = delete;

  // The kept copy of `text`, if one is kept and its units are the same.
  const ZyrLogKeptText* Find(const char16_t* text) const;
  // Keeps `text` of `length` units, with its format plan if given. Null
  // when it is not kept (too long, the pool full, no memory).
  const ZyrLogKeptText* Keep(const char16_t* text, std::size_t length, const ZyrBasFormatPlan* plan);
  // In a forked child: a keeper of the parent may have held the lock.
  void RenewAfterFork() { keepLock_.word.store(0, std::memory_order_relaxed); }

 private:
  static constexpr std::size_t kSlots = 256;
  static std::size_t SlotOf(const char16_t* text);

  std::atomic<ZyrLogKeptText*> slots_[kSlots] = {};
  ZyrBasSpinLock keepLock_;  // keepers take turns; finders take no lock
  ZyrLogKeptText* all_ = nullptr;
  std::size_t bytes_ = 0;
};

// True when the terminated text at `text` holds exactly the `length` units
// of `kept` (which has a terminator behind them). Reads the text in aligned
// blocks that never pass the block of its first difference, and `kept` in
// room that ZyrLogTextPool makes readable in whole blocks.
bool ZyrLogSameText(const char16_t* text, const char16_t* kept, std::size_t length);

#endif
