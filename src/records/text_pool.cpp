#include "records/text_pool.h"

#include <cstring>

#include "base/memory.h"
#include "base/string.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {
// Units of readable room before and behind a kept text: a block compare
// reads up to seven units beyond either end.
constexpr std::size_t kPad = 8;
}  // namespace

// The caller's text is read in aligned blocks, which may reach past its
// terminator into bytes of no object, though never into another page; the
// address and thread checkers would call that an overflow or a race, so
// they look away here, as for the library's other string scans.
__attribute__((no_sanitize("address", "thread"))) bool ZyrLogSameText(const char16_t* text,
                                                                       const char16_t* kept,
                                                                       std::size_t length) {
  std::uintptr_t address = reinterpret_cast<std::uintptr_t>(text);
#if defined(__SSE2__)
  const std::size_t units = length + 1;  // with the terminator
  auto same = [](const char16_t* a, const char16_t* b) {
    __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a));
    __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b));
    return _mm_movemask_epi8(_mm_cmpeq_epi16(x, y)) == 0xffff;
  };
  // The usual case, a text that lies within one page: whole blocks of
  // eight units, the last one overlapping the one before it.
  if (units >= 8 && (address & 4095) + units * sizeof(char16_t) <= 4096) {
    for (std::size_t at = 0; at + 8 < units; at += 8)
      if (!same(text + at, kept + at)) return false;
    return same(text + units - 8, kept + units - 8);
  }
  if (!(address & 1)) {
    std::size_t lead = (address & 15) / 2;  // units of the first block before the text
    const char16_t* block = reinterpret_cast<const char16_t*>(address & ~static_cast<std::uintptr_t>(15));
    const char16_t* mirror = kept - lead;  // the kept units that face the block
    // Block i faces the text's units from 8i - lead; those from 0 to
    // `length` (the terminator) count.
    for (std::size_t first = 0;; first += 8, block += 8, mirror += 8) {
      __m128i units = _mm_load_si128(reinterpret_cast<const __m128i*>(block));
      __m128i other = _mm_loadu_si128(reinterpret_cast<const __m128i*>(mirror));
      unsigned same = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi16(units, other)));
      unsigned counted = 0xffffu;
      if (first == 0) counted &= 0xffffu << (2 * lead);
      std::size_t end = length + lead + 1;  // block units up to and with the terminator
      if (end < first + 8) counted &= (1u << (2 * (end - first))) - 1;
      if ((same & counted) != counted) return false;
      if (end <= first + 8) return true;
    }
  }
#endif
  for (std::size_t i = 0; i < length; ++i)
    if (text[i] != kept[i]) return false;
  return text[length] == 0;
}

ZyrLogTextPool::~ZyrLogTextPool() {
  while (all_) {
    ZyrLogKeptText* older = all_->older;
    ZyrBasFree(all_);
    all_ = older;
  }
}

std::size_t ZyrLogTextPool::SlotOf(const char16_t* text) {
  std::uint64_t key = reinterpret_cast<std::uintptr_t>(text);
  return static_cast<std::size_t>((key * 0x9e3779b97f4a7c15ull) >> 56) % kSlots;
}

const ZyrLogKeptText* ZyrLogTextPool::Find(const char16_t* text) const {
  const ZyrLogKeptText* kept = slots_[SlotOf(text)].load(std::memory_order_acquire);
  if (!kept || kept->source != text || !ZyrLogSameText(text, kept->text_, kept->length)) return nullptr;
  return kept;
}

const ZyrLogKeptText* ZyrLogTextPool::Keep(const char16_t* text, std::size_t length,
                                           const ZyrBasFormatPlan* plan) {
  if (length > kMaxLength) return nullptr;
  std::size_t units = kPad + length + 1 + kPad;
  std::size_t bytes = sizeof(ZyrLogKeptText) + units * sizeof(char16_t);
  ZyrBasSpinGuard guard(keepLock_);
  if (bytes_ + bytes > kMaxBytes) return nullptr;
  void* memory = ZyrBasAllocZero(bytes);
  if (!memory) return nullptr;
  auto* kept = static_cast<ZyrLogKeptText*>(memory);
  kept->source = text;
  kept->length = static_cast<std::uint32_t>(length);
  kept->planned = plan != nullptr;
  if (plan) kept->plan = *plan;
  kept->text_ = reinterpret_cast<char16_t*>(kept + 1) + kPad;
  std::memcpy(kept->text_, text, length * sizeof(char16_t));
  // Older texts in the slot stay kept: waiting messages may refer to them.
  kept->older = all_;
  all_ = kept;
  bytes_ += bytes;
  slots_[SlotOf(text)].store(kept, std::memory_order_release);
  return kept;
}
