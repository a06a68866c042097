// Wide strings of UTF-16 code units: ZyrBasString with its inline buffer,
// the plain ZyrBasText and ZyrBasNarrowText, the ZyrBasStringRef view, the
// free functions over terminated text and the three comparison rules.
//
// Nothing here throws or takes a lock; every operation that may allocate
// answers ZYR_E_OUT_OF_MEMORY and leaves the string as it was.
#ifndef ZYR_BASE_STRING_H
#define ZYR_BASE_STRING_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "base/memory.h"
#include "zyrlog/result.h"

// A length of all ones means: count up to the terminator.
inline constexpr std::size_t ZYR_TERMINATED = static_cast<std::size_t>(-1);
inline constexpr std::size_t ZYR_NPOS = static_cast<std::size_t>(-1);

// The constant empty text that an empty string shows; never null.
extern const char16_t kZyrEmptyText[1];

class ZyrBasString {
 public:
  static constexpr std::size_t kInlineCapacity = 16;  // characters, terminator included

  ZyrBasString() noexcept = default;
  ~ZyrBasString() {
    if (begin_ && !inlineInUse_) ZyrBasFree(begin_);
  }
  // Copying can fail, so it is spelled Assign; moving cannot.
  ZyrBasString(const ZyrBasString&) = delete;
  ZyrBasString& operator=(const ZyrBasString&) = delete;
  ZyrBasString(ZyrBasString&& other) noexcept;
  ZyrBasString& operator=(ZyrBasString&& other) noexcept;

  std::size_t Length() const noexcept {
    std::size_t units = static_cast<std::size_t>(end_ - begin_);
    return units == 0 ? 0 : units - 1;
  }
  bool Empty() const noexcept { return end_ == begin_; }
  // The terminated text; the shared empty constant for an empty string.
  const char16_t* Text() const noexcept { return Empty() ? kZyrEmptyText : begin_; }
  // Writable characters, valid up to Length(); null for a string that never held storage.
  char16_t* Data() noexcept { return begin_; }
  // Capacity in characters, terminator included.
  std::size_t Capacity() const noexcept { return static_cast<std::size_t>(capEnd_ - begin_); }
  bool IsInline() const noexcept { return inlineInUse_ != 0; }
  char16_t operator[](std::size_t i) const noexcept { return begin_[i]; }

  // The growth rule; the one place that allocates. n counts the terminator.
  ZyrResult Reserve(std::size_t n, bool exact = false) noexcept {
    if (Capacity() >= n) return ZYR_OK;
    if (!begin_ && n <= kInlineCapacity) {  // a fresh string's first short text
      begin_ = end_ = inline_;
      capEnd_ = inline_ + kInlineCapacity;
      inlineInUse_ = 1;
      return ZYR_OK;
    }
    return Grow(n, exact);
  }
  ZyrResult Assign(const char16_t* first, const char16_t* last) noexcept;
  ZyrResult Assign(const char16_t* text, std::size_t length = ZYR_TERMINATED) noexcept;
  ZyrResult Assign(const ZyrBasString& other) noexcept { return Assign(other.begin_, other.begin_ + other.Length()); }
  // ASCII literal, for the library's own fixed texts.
  ZyrResult AssignAscii(const char* text) noexcept;
  ZyrResult Append(const char16_t* first, const char16_t* last) noexcept;
  ZyrResult Append(const char16_t* text, std::size_t length = ZYR_TERMINATED) noexcept;
  ZyrResult Append(const ZyrBasString& other) noexcept { return Append(other.begin_, other.begin_ + other.Length()); }
  ZyrResult Append(char16_t c) noexcept { return Append(&c, &c + 1); }
  ZyrResult AppendAscii(const char* text) noexcept;
  ZyrResult Insert(std::size_t position, const char16_t* first, const char16_t* last) noexcept;
  void Erase(std::size_t first, std::size_t last) noexcept;
  // Erase then insert; a count of all ones cuts to the position; the
  // position clamps to the length.
  ZyrResult Replace(std::size_t position, std::size_t count, const char16_t* text,
                    std::size_t length) noexcept;
  // Length of all ones recounts up to the first 0 in the stored text.
  // Otherwise exact storage for length + 1; new characters are undefined.
  ZyrResult Resize(std::size_t length) noexcept;
  void Clear() noexcept { end_ = begin_; }
  std::size_t Find(const char16_t* pattern, std::size_t patternLength, std::size_t start) const noexcept;
  ZyrResult ReplaceAll(const char16_t* from, std::size_t fromLength, const char16_t* to,
                       std::size_t toLength) noexcept;
  void Swap(ZyrBasString& other) noexcept;
  // Ordinal comparison: <0, 0, >0.
  int Compare(const char16_t* text, std::size_t length = ZYR_TERMINATED) const noexcept;
  int Compare(const ZyrBasString& other) const noexcept { return Compare(other.Text(), other.Length()); }
  bool Equals(const char16_t* text, std::size_t length = ZYR_TERMINATED) const noexcept { return Compare(text, length) == 0; }
  bool Equals(const ZyrBasString& other) const noexcept { return Compare(other) == 0; }
  bool EqualsAscii(const char* text) const noexcept;

 private:
  ZyrResult Grow(std::size_t n, bool exact) noexcept;
  void Release() noexcept;
  void TakeFrom(ZyrBasString& other) noexcept;

  char16_t inline_[kInlineCapacity];
  std::uint8_t inlineInUse_ = 0;
  char16_t* begin_ = nullptr;
  char16_t* end_ = nullptr;     // one past the stored terminator
  char16_t* capEnd_ = nullptr;  // end of usable storage
};

// View through which a routine fills a caller's string without knowing the
// string class.
class ZyrBasStringRef {
 public:
  explicit ZyrBasStringRef(ZyrBasString& target) : target_(target) {}
  virtual void Reserved() {}
  virtual const char16_t* Data() { return target_.Text(); }
  virtual std::size_t Length() { return target_.Length(); }
  // A null text empties the string; length all ones means terminated text.
  virtual ZyrResult Assign(const char16_t* text, std::size_t length) {
    if (!text) {
      target_.Clear();
      return ZYR_OK;
    }
    return target_.Assign(text, length);
  }
  virtual ~ZyrBasStringRef() = default;
  ZyrBasString& Target() { return target_; }

 private:
  ZyrBasString& target_;
};

// Plain wide text of the low layers: length, capacity, data; terminated at
// the length when data is present.
class ZyrBasText {
 public:
  ZyrBasText() = default;
  ~ZyrBasText();
  ZyrBasText(const ZyrBasText&) = delete;
  ZyrBasText& operator=(const ZyrBasText&) = delete;

  std::size_t Length() const { return length_; }
  std::size_t Capacity() const { return capacity_; }
  const char16_t* Data() const { return data_; }
  char16_t* Data() { return data_; }
  // Exact reservation of length + 2; keeps the text; terminates at length.
  // All ones recounts up to the first 0 within the capacity.
  ZyrResult Resize(std::size_t length);
  ZyrResult Reserve(std::size_t characters);
  // A null text frees the block and zeroes all three words.
  ZyrResult Assign(const char16_t* text, std::size_t length = ZYR_TERMINATED);
  ZyrResult Append(const char16_t* text, std::size_t length = ZYR_TERMINATED);

 private:
  std::size_t length_ = 0;
  std::size_t capacity_ = 0;
  char16_t* data_ = nullptr;
};

class ZyrBasNarrowText {
 public:
  ZyrBasNarrowText() = default;
  ~ZyrBasNarrowText();
  ZyrBasNarrowText(const ZyrBasNarrowText&) = delete;
  ZyrBasNarrowText& operator=(const ZyrBasNarrowText&) = delete;

  std::size_t Length() const { return length_; }
  std::size_t Capacity() const { return capacity_; }
  const char* Data() const { return data_; }
  char* Data() { return data_; }
  ZyrResult Resize(std::size_t length);
  ZyrResult Reserve(std::size_t bytes);

 private:
  std::size_t length_ = 0;
  std::size_t capacity_ = 0;
  char* data_ = nullptr;
};

// ---------------------------------------------------------------------------
// Free functions over wide text.
std::size_t ZyrBasStrLen(const char16_t* text);
ZyrResult ZyrBasStrCopy(char16_t* target, std::size_t capacity, const char16_t* text,
                        std::size_t length = ZYR_TERMINATED);
ZyrResult ZyrBasStrCopyRange(char16_t* target, std::size_t capacity, const char16_t* text,
                             std::size_t offset, std::size_t count,
                             std::size_t textLength = ZYR_TERMINATED);
// Appends at *position, or at the target's terminator when position is null.
ZyrResult ZyrBasStrAppendAt(char16_t* target, std::size_t capacity, const char16_t* text,
                            std::size_t* position, std::size_t length = ZYR_TERMINATED);
ZyrResult ZyrBasStrUpper(char16_t* target, std::size_t capacity, const char16_t* source,
                         std::size_t* outLength, std::size_t sourceLength = ZYR_TERMINATED);
// Index of the last "." / first ":", or ZYR_NPOS.
std::size_t ZyrBasFindLastDot(const char16_t* text, std::size_t length = ZYR_TERMINATED);
std::size_t ZyrBasFindColon(const char16_t* text, std::size_t length = ZYR_TERMINATED);

// Counted-buffer variants: a fixed (length, capacity, data) triple. When the
// capacity does not suffice they report the size needed, length + 1, and
// leave the target as it was.
struct ZyrBasCountedBuffer {
  std::size_t length;
  std::size_t capacity;  // characters, terminator included
  char16_t* data;
};
ZyrResult ZyrBasCountedCopy(ZyrBasCountedBuffer& target, const char16_t* text,
                            std::size_t length, std::size_t* needed);
ZyrResult ZyrBasCountedAppend(ZyrBasCountedBuffer& target, const char16_t* text,
                              std::size_t length, std::size_t* needed);

// ---------------------------------------------------------------------------
// The three comparison rules.
// 1. Ordinal: bytes of the common prefix (little-endian units), then length.
int ZyrBasCompareOrdinal(const char16_t* a, std::size_t aLength, const char16_t* b,
                         std::size_t bLength);
// 2. ASCII fold: only "a" to "z" fold. Zero means equal; the sign of an
//    unequal result means nothing.
int ZyrBasCompareNoCaseAscii(const char16_t* a, std::size_t aLength, const char16_t* b,
                             std::size_t bLength);
// 3. System fold: the simple Unicode case table, no locale. -1, 0 or 1; with
//    an equal prefix the longer text is greater. `fold` false compares units.
int ZyrBasCompareNoCase(const char16_t* a, std::size_t aLength, const char16_t* b,
                        std::size_t bLength, bool fold = true);
// Upper case of one unit by the system fold.
char16_t ZyrBasUpcaseChar(char16_t c);

// "00" to "99", for numbers written two digits a step.
struct ZyrBasDigitPairs {
  char16_t pair[100][2];
  constexpr ZyrBasDigitPairs() : pair() {
    for (int i = 0; i < 100; ++i) {
      pair[i][0] = static_cast<char16_t>(u'0' + i / 10);
      pair[i][1] = static_cast<char16_t>(u'0' + i % 10);
    }
  }
};
inline constexpr ZyrBasDigitPairs kZyrBasDigitPairs;

// Copies `n` units that do not overlap. The pieces of a log line are
// mostly a few units long, for which a call into the C library's copy costs
// more than the copy: up to 16 units go as two overlapping moves of a fixed
// size, inline.
inline void ZyrBasCopyUnits(char16_t* target, const char16_t* source, std::size_t n) noexcept {
  if (n >= 8 && n <= 16) {
    char first[16], last[16];
    std::memcpy(first, source, 16);
    std::memcpy(last, source + n - 8, 16);
    std::memcpy(target, first, 16);
    std::memcpy(target + n - 8, last, 16);
  } else if (n >= 4 && n < 8) {
    std::uint64_t first, last;
    std::memcpy(&first, source, 8);
    std::memcpy(&last, source + n - 4, 8);
    std::memcpy(target, &first, 8);
    std::memcpy(target + n - 4, &last, 8);
  } else if (n >= 2 && n < 4) {
    std::uint32_t first, last;
    std::memcpy(&first, source, 4);
    std::memcpy(&last, source + n - 2, 4);
    std::memcpy(target, &first, 4);
    std::memcpy(target + n - 2, &last, 4);
  } else if (n == 1) {
    *target = *source;
  } else if (n > 16) {
    std::memcpy(target, source, n * sizeof(char16_t));
  }
}

// Replaces every LF and CR in the text by `with`, in place.
void ZyrBasReplaceLineBreaks(char16_t* text, std::size_t length, char16_t with);
// The same while copying: `target` is `source` itself or does not overlap it.
void ZyrBasCopyReplacingBreaks(char16_t* target, const char16_t* source, std::size_t length,
                               char16_t with);

// Index of the first "%" or terminator at or after `text`.
const char16_t* ZyrBasFindPercentOrEnd(const char16_t* text);

// Appends a decimal number: the magnitude, with "-" in front if `negative`.
ZyrResult ZyrBasAppendDecimal(ZyrBasString& out, std::uint64_t magnitude, bool negative = false);

// Growth rule shared by the library's growable arrays: an exact request
// takes n; otherwise n + n/2 from 256 bytes on, and below that the count
// that just passes 256 bytes.
std::size_t ZyrBasGrowCount(std::size_t needed, std::size_t elementSize, bool exact);

#endif
