#include "base/string.h"

#include <cstring>

#include "base/memory.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

const char16_t kZyrEmptyText[1] = {0};

namespace {

std::size_t Measure(const char16_t* text, std::size_t length) {
  if (!text) return 0;
  return length == ZYR_TERMINATED ? ZyrBasStrLen(text) : length;
}

}  // namespace

// ---------------------------------------------------------------------------
// ZyrBasString

void ZyrBasString::Release() noexcept {
  if (begin_ && !inlineInUse_) ZyrBasFree(begin_);
  begin_ = end_ = capEnd_ = nullptr;
  inlineInUse_ = 0;
}

void ZyrBasString::TakeFrom(ZyrBasString& other) noexcept {
  if (other.inlineInUse_) {
    // The whole inline buffer, a constant size: cheaper than measuring.
    std::memcpy(inline_, other.inline_, sizeof inline_);
    inlineInUse_ = 1;
    begin_ = inline_;
    end_ = inline_ + (other.end_ - other.begin_);
    capEnd_ = inline_ + (other.capEnd_ - other.begin_);
  } else {
    begin_ = other.begin_;
    end_ = other.end_;
    capEnd_ = other.capEnd_;
    inlineInUse_ = 0;
  }
  other.begin_ = other.end_ = other.capEnd_ = nullptr;
  other.inlineInUse_ = 0;
}

ZyrBasString::ZyrBasString(ZyrBasString&& other) noexcept { TakeFrom(other); }

ZyrBasString& ZyrBasString::operator=(ZyrBasString&& other) noexcept {
  if (this != &other) {
    Release();
    TakeFrom(other);
  }
  return *this;
}

ZyrResult ZyrBasString::Grow(std::size_t n, bool exact) noexcept {
  if (inlineInUse_ && n <= kInlineCapacity) {
    capEnd_ = begin_ + n;
    return ZYR_OK;
  }
  // No in-place extension of heap blocks: the platform heap offers no
  // reliable in-place-only form, and nothing depends on it.
  std::size_t capacity;
  if (n <= kInlineCapacity) {
    capacity = kInlineCapacity;
  } else if (exact) {
    capacity = n;
  } else if (n < 128) {
    capacity = 129;
  } else {
    capacity = n + n / 2;
    if (capacity < n) capacity = static_cast<std::size_t>(-1);
  }
  std::size_t used = static_cast<std::size_t>(end_ - begin_);
  char16_t* block;
  bool toInline = capacity == kInlineCapacity && !inlineInUse_;
  if (toInline) {
    block = inline_;
  } else {
    if (capacity > static_cast<std::size_t>(-1) / sizeof(char16_t)) return ZYR_E_OUT_OF_MEMORY;
    block = static_cast<char16_t*>(ZyrBasAlloc(capacity * sizeof(char16_t)));
    if (!block) return ZYR_E_OUT_OF_MEMORY;
  }
  if (used) std::memcpy(block, begin_, used * sizeof(char16_t));
  if (begin_ && !inlineInUse_) ZyrBasFree(begin_);
  inlineInUse_ = toInline ? 1 : 0;
  begin_ = block;
  end_ = block + used;
  capEnd_ = block + capacity;
  return ZYR_OK;
}

ZyrResult ZyrBasString::Assign(const char16_t* first, const char16_t* last) noexcept {
  std::size_t n = static_cast<std::size_t>(last - first);
  if (n == 0) {
    end_ = begin_;
    return ZYR_OK;
  }
  // The source may lie inside this string: copy through a fresh string then.
  if (begin_ && first >= begin_ && first < capEnd_) {
    ZyrBasString copy;
    ZyrResult r = copy.Assign(first, last);
    if (ZyrFailed(r)) return r;
    Swap(copy);
    return ZYR_OK;
  }
  ZyrResult r = Reserve(n + 1, true);
  if (ZyrFailed(r)) return r;
  ZyrBasCopyUnits(begin_, first, n);
  begin_[n] = 0;
  end_ = begin_ + n + 1;
  return ZYR_OK;
}

ZyrResult ZyrBasString::Assign(const char16_t* text, std::size_t length) noexcept {
  std::size_t n = Measure(text, length);
  if (n == 0) {
    end_ = begin_;
    return ZYR_OK;
  }
  return Assign(text, text + n);
}

ZyrResult ZyrBasString::AssignAscii(const char* text) noexcept {
  Clear();
  return AppendAscii(text);
}

ZyrResult ZyrBasString::Append(const char16_t* first, const char16_t* last) noexcept {
  return Insert(Length(), first, last);
}

ZyrResult ZyrBasString::Append(const char16_t* text, std::size_t length) noexcept {
  std::size_t n = Measure(text, length);
  if (n == 0) return ZYR_OK;
  return Insert(Length(), text, text + n);
}

ZyrResult ZyrBasString::AppendAscii(const char* text) noexcept {
  std::size_t n = std::strlen(text);
  if (n == 0) return ZYR_OK;
  std::size_t len = Length();
  ZyrResult r = Reserve(len + n + 1);
  if (ZyrFailed(r)) return r;
  for (std::size_t i = 0; i < n; ++i) begin_[len + i] = static_cast<unsigned char>(text[i]);
  begin_[len + n] = 0;
  end_ = begin_ + len + n + 1;
  return ZYR_OK;
}

ZyrResult ZyrBasString::Insert(std::size_t position, const char16_t* first,
                               const char16_t* last) noexcept {
  std::size_t n = static_cast<std::size_t>(last - first);
  if (n == 0) return ZYR_OK;
  std::size_t len = Length();
  if (position > len) position = len;
  // A source inside this string would move under our feet.
  if (begin_ && first >= begin_ && first < capEnd_) {
    ZyrBasString copy;
    ZyrResult r = copy.Assign(first, last);
    if (ZyrFailed(r)) return r;
    return Insert(position, copy.begin_, copy.begin_ + n);
  }
  ZyrResult r = Reserve(len + n + 1);
  if (ZyrFailed(r)) return r;
  std::memmove(begin_ + position + n, begin_ + position, (len - position) * sizeof(char16_t));
  std::memcpy(begin_ + position, first, n * sizeof(char16_t));
  begin_[len + n] = 0;
  end_ = begin_ + len + n + 1;
  return ZYR_OK;
}

void ZyrBasString::Erase(std::size_t first, std::size_t last) noexcept {
  std::size_t len = Length();
  if (last > len) last = len;
  if (first >= last) return;
  std::memmove(begin_ + first, begin_ + last, (len - last) * sizeof(char16_t));
  std::size_t newLen = len - (last - first);
  if (newLen == 0) {
    end_ = begin_;
  } else {
    begin_[newLen] = 0;
    end_ = begin_ + newLen + 1;
  }
}

ZyrResult ZyrBasString::Replace(std::size_t position, std::size_t count, const char16_t* text,
                                std::size_t length) noexcept {
  std::size_t len = Length();
  if (position > len) position = len;
  std::size_t last = count == ZYR_NPOS || count > len - position ? len : position + count;
  std::size_t n = Measure(text, length);
  // Build on a copy so that a failure leaves the string whole.
  ZyrBasString result;
  ZyrResult r = result.Reserve(len - (last - position) + n + 1);
  if (ZyrSucceeded(r)) r = result.Assign(begin_, begin_ + position);
  if (ZyrSucceeded(r)) r = result.Append(text, text + n);
  if (ZyrSucceeded(r)) r = result.Append(begin_ + last, begin_ + len);
  if (ZyrFailed(r)) return r;
  Swap(result);
  return ZYR_OK;
}

ZyrResult ZyrBasString::Resize(std::size_t length) noexcept {
  if (length == ZYR_TERMINATED) {
    if (!begin_) return ZYR_OK;
    std::size_t cap = Capacity();
    std::size_t n = 0;
    while (n < cap && begin_[n] != 0) ++n;
    if (n == cap) return ZYR_E_INVALID_DATA;
    end_ = n == 0 ? begin_ : begin_ + n + 1;
    return ZYR_OK;
  }
  if (length == 0) {
    end_ = begin_;
    return ZYR_OK;
  }
  ZyrResult r = Reserve(length + 1, true);
  if (ZyrFailed(r)) return r;
  begin_[length] = 0;
  end_ = begin_ + length + 1;
  return ZYR_OK;
}

std::size_t ZyrBasString::Find(const char16_t* pattern, std::size_t patternLength,
                               std::size_t start) const noexcept {
  std::size_t len = Length();
  std::size_t n = Measure(pattern, patternLength);
  if (len == 0 || start >= len) return ZYR_NPOS;
  if (n == 0) return start;
  if (n > len) return ZYR_NPOS;
  for (std::size_t i = start; i + n <= len; ++i)
    if (std::memcmp(begin_ + i, pattern, n * sizeof(char16_t)) == 0) return i;
  return ZYR_NPOS;
}

ZyrResult ZyrBasString::ReplaceAll(const char16_t* from, std::size_t fromLength, const char16_t* to,
                                   std::size_t toLength) noexcept {
  std::size_t fromN = Measure(from, fromLength);
  std::size_t toN = Measure(to, toLength);
  if (fromN == 0) return ZYR_E_INVALID_ARGUMENT;
  std::size_t hit = Find(from, fromN, 0);
  if (hit == ZYR_NPOS) return ZYR_I_NOT_FOUND;
  ZyrBasString result;
  std::size_t done = 0;
  std::size_t len = Length();
  ZyrResult r = ZYR_OK;
  while (hit != ZYR_NPOS && ZyrSucceeded(r)) {
    r = result.Append(begin_ + done, begin_ + hit);
    if (ZyrSucceeded(r)) r = result.Append(to, to + toN);
    done = hit + fromN;
    hit = Find(from, fromN, done);
  }
  if (ZyrSucceeded(r)) r = result.Append(begin_ + done, begin_ + len);
  if (ZyrFailed(r)) return r;
  Swap(result);
  return ZYR_OK;
}

void ZyrBasString::Swap(ZyrBasString& other) noexcept {
  if (this == &other) return;
  if (!inlineInUse_ && !other.inlineInUse_) {  // two heap blocks: exchange the pointers
    char16_t* b = begin_;
    char16_t* e = end_;
    char16_t* c = capEnd_;
    begin_ = other.begin_, end_ = other.end_, capEnd_ = other.capEnd_;
    other.begin_ = b, other.end_ = e, other.capEnd_ = c;
    return;
  }
  ZyrBasString tmp(static_cast<ZyrBasString&&>(*this));
  TakeFrom(other);
  other.TakeFrom(tmp);
}

int ZyrBasString::Compare(const char16_t* text, std::size_t length) const noexcept {
  return ZyrBasCompareOrdinal(Text(), Length(), text ? text : kZyrEmptyText, Measure(text, length));
}

bool ZyrBasString::EqualsAscii(const char* text) const noexcept {
  std::size_t n = std::strlen(text);
  if (n != Length()) return false;
  for (std::size_t i = 0; i < n; ++i)
    if (begin_[i] != static_cast<unsigned char>(text[i])) return false;
  return true;
}

// ---------------------------------------------------------------------------
// ZyrBasText, ZyrBasNarrowText

ZyrBasText::~ZyrBasText() { ZyrBasFree(data_); }

ZyrResult ZyrBasText::Resize(std::size_t length) {
  if (length == ZYR_TERMINATED) {
    if (!data_) return ZYR_E_INVALID_DATA;
    for (std::size_t i = 0; i < capacity_; ++i)
      if (data_[i] == 0) {
        length_ = i;
        return ZYR_OK;
      }
    return ZYR_E_INVALID_DATA;
  }
  std::size_t cap = length + 2;
  char16_t* block = static_cast<char16_t*>(ZyrBasAlloc(cap * sizeof(char16_t)));
  if (!block) return ZYR_E_OUT_OF_MEMORY;
  std::size_t keep = length_ < length ? length_ : length;
  if (data_ && keep) std::memcpy(block, data_, keep * sizeof(char16_t));
  block[length] = 0;
  ZyrBasFree(data_);
  data_ = block;
  capacity_ = cap;
  length_ = length;
  return ZYR_OK;
}

ZyrResult ZyrBasText::Reserve(std::size_t characters) {
  if (capacity_ >= characters) return ZYR_OK;
  char16_t* block = static_cast<char16_t*>(ZyrBasAlloc(characters * sizeof(char16_t)));
  if (!block) return ZYR_E_OUT_OF_MEMORY;
  if (data_) std::memcpy(block, data_, (length_ + 1 <= characters ? length_ + 1 : characters) * sizeof(char16_t));
  else block[0] = 0;
  block[characters - 1] = 0;
  ZyrBasFree(data_);
  data_ = block;
  capacity_ = characters;
  if (length_ >= characters) length_ = characters - 1;
  return ZYR_OK;
}

ZyrResult ZyrBasText::Assign(const char16_t* text, std::size_t length) {
  if (!text) {
    ZyrBasFree(data_);
    data_ = nullptr;
    length_ = capacity_ = 0;
    return ZYR_OK;
  }
  std::size_t n = Measure(text, length);
  if (capacity_ < n + 1) {
    ZyrResult r = Reserve(n + 1);
    if (ZyrFailed(r)) return r;
  }
  std::memmove(data_, text, n * sizeof(char16_t));
  data_[n] = 0;
  length_ = n;
  return ZYR_OK;
}

ZyrResult ZyrBasText::Append(const char16_t* text, std::size_t length) {
  std::size_t n = Measure(text, length);
  if (n == 0) return ZYR_OK;
  if (capacity_ < length_ + n + 1) {
    ZyrResult r = Reserve(length_ + n + 1);
    if (ZyrFailed(r)) return r;
  }
  std::memmove(data_ + length_, text, n * sizeof(char16_t));
  length_ += n;
  data_[length_] = 0;
  return ZYR_OK;
}

ZyrBasNarrowText::~ZyrBasNarrowText() { ZyrBasFree(data_); }

ZyrResult ZyrBasNarrowText::Resize(std::size_t length) {
  if (length == ZYR_TERMINATED) {
    if (!data_) return ZYR_E_INVALID_DATA;
    for (std::size_t i = 0; i < capacity_; ++i)
      if (data_[i] == 0) {
        length_ = i;
        return ZYR_OK;
      }
    return ZYR_E_INVALID_DATA;
  }
  std::size_t cap = length + 2;
  char* block = static_cast<char*>(ZyrBasAlloc(cap));
  if (!block) return ZYR_E_OUT_OF_MEMORY;
  std::size_t keep = length_ < length ? length_ : length;
  if (data_ && keep) std::memcpy(block, data_, keep);
  block[length] = 0;
  ZyrBasFree(data_);
  data_ = block;
  capacity_ = cap;
  length_ = length;
  return ZYR_OK;
}

ZyrResult ZyrBasNarrowText::Reserve(std::size_t bytes) {
  if (capacity_ >= bytes) return ZYR_OK;
  char* block = static_cast<char*>(ZyrBasAlloc(bytes));
  if (!block) return ZYR_E_OUT_OF_MEMORY;
  if (data_) std::memcpy(block, data_, length_ + 1 <= bytes ? length_ + 1 : bytes);
  else block[0] = 0;
  block[bytes - 1] = 0;
  ZyrBasFree(data_);
  data_ = block;
  capacity_ = bytes;
  if (length_ >= bytes) length_ = bytes - 1;
  return ZYR_OK;
}

// ---------------------------------------------------------------------------
// Free functions

std::size_t ZyrBasStrLen(const char16_t* text) {
  std::size_t n = 0;
  if (text)
    while (text[n]) ++n;
  return n;
}

ZyrResult ZyrBasStrCopy(char16_t* target, std::size_t capacity, const char16_t* text,
                        std::size_t length) {
  if (capacity == 0) return ZYR_E_INVALID_ARGUMENT;
  std::size_t n = Measure(text, length);
  if (capacity <= n) {
    target[0] = 0;
    return ZYR_E_BUFFER_TOO_SMALL;
  }
  if (n) std::memmove(target, text, n * sizeof(char16_t));
  target[n] = 0;
  return ZYR_OK;
}

ZyrResult ZyrBasStrCopyRange(char16_t* target, std::size_t capacity, const char16_t* text,
                             std::size_t offset, std::size_t count, std::size_t textLength) {
  std::size_t n = Measure(text, textLength);
  if (offset > n || count > n - offset) return ZYR_E_INVALID_ARGUMENT;
  return ZyrBasStrCopy(target, capacity, text + offset, count);
}

ZyrResult ZyrBasStrAppendAt(char16_t* target, std::size_t capacity, const char16_t* text,
                            std::size_t* position, std::size_t length) {
  std::size_t at;
  if (position) {
    at = *position;
    if (at >= capacity) return ZYR_E_STRING_BUFFER_FULL;
  } else {
    at = 0;
    while (at < capacity && target[at] != 0) ++at;
    if (at == capacity) return ZYR_E_STRING_BUFFER_FULL;
  }
  std::size_t n = Measure(text, length);
  if (capacity - at <= n) return ZYR_E_BUFFER_TOO_SMALL;
  if (n) std::memmove(target + at, text, n * sizeof(char16_t));
  target[at + n] = 0;
  if (position) *position = at + n;
  return ZYR_OK;
}

ZyrResult ZyrBasStrUpper(char16_t* target, std::size_t capacity, const char16_t* source,
                         std::size_t* outLength, std::size_t sourceLength) {
  std::size_t n = Measure(source, sourceLength);
  // The system's counted strings hold a 16-bit byte length.
  if (n >= 65535 || capacity >= 65535) return ZYR_E_BAD_LENGTH;
  if (capacity <= n) return ZYR_E_BUFFER_TOO_SMALL;
  for (std::size_t i = 0; i < n; ++i) target[i] = ZyrBasUpcaseChar(source[i]);
  target[n] = 0;
  if (outLength) *outLength = n;
  return ZYR_OK;
}

std::size_t ZyrBasFindLastDot(const char16_t* text, std::size_t length) {
  std::size_t n = Measure(text, length);
  while (n > 0) {
    --n;
    if (text[n] == u'.') return n;
  }
  return ZYR_NPOS;
}

std::size_t ZyrBasFindColon(const char16_t* text, std::size_t length) {
  std::size_t n = Measure(text, length);
  for (std::size_t i = 0; i < n; ++i)
    if (text[i] == u':') return i;
  return ZYR_NPOS;
}

ZyrResult ZyrBasCountedCopy(ZyrBasCountedBuffer& target, const char16_t* text, std::size_t length,
                            std::size_t* needed) {
  std::size_t n = Measure(text, length);
  if (target.capacity < n + 1) {
    if (needed) *needed = n + 1;
    return ZYR_E_BUFFER_TOO_SMALL;
  }
  if (n) std::memmove(target.data, text, n * sizeof(char16_t));
  target.data[n] = 0;
  target.length = n;
  return ZYR_OK;
}

ZyrResult ZyrBasCountedAppend(ZyrBasCountedBuffer& target, const char16_t* text,
                              std::size_t length, std::size_t* needed) {
  std::size_t n = Measure(text, length);
  if (target.capacity < target.length + n + 1) {
    if (needed) *needed = target.length + n + 1;
    return ZYR_E_BUFFER_TOO_SMALL;
  }
  if (n) std::memmove(target.data + target.length, text, n * sizeof(char16_t));
  target.length += n;
  target.data[target.length] = 0;
  return ZYR_OK;
}

// ---------------------------------------------------------------------------
// Comparison

int ZyrBasCompareOrdinal(const char16_t* a, std::size_t aLength, const char16_t* b,
                         std::size_t bLength) {
  std::size_t an = Measure(a, aLength);
  std::size_t bn = Measure(b, bLength);
  std::size_t common = an < bn ? an : bn;
  // Byte order of the units as they lie in memory (little-endian).
  int c = common ? std::memcmp(a, b, common * sizeof(char16_t)) : 0;
  if (c != 0) return c;
  return an < bn ? -1 : (an > bn ? 1 : 0);
}

int ZyrBasCompareNoCaseAscii(const char16_t* a, std::size_t aLength, const char16_t* b,
                             std::size_t bLength) {
  std::size_t an = Measure(a, aLength);
  std::size_t bn = Measure(b, bLength);
  if (an != bn) return an < bn ? -1 : 1;
  for (std::size_t i = 0; i < an; ++i) {
    char16_t x = a[i], y = b[i];
    if (x >= u'a' && x <= u'z') x = static_cast<char16_t>(x - 32);
    if (y >= u'a' && y <= u'z') y = static_cast<char16_t>(y - 32);
    if (x != y) return x < y ? -1 : 1;
  }
  return 0;
}

int ZyrBasCompareNoCase(const char16_t* a, std::size_t aLength, const char16_t* b,
                        std::size_t bLength, bool fold) {
  std::size_t an = Measure(a, aLength);
  std::size_t bn = Measure(b, bLength);
  std::size_t common = an < bn ? an : bn;
  for (std::size_t i = 0; i < common; ++i) {
    char16_t x = a[i], y = b[i];
    if (x == y) continue;
    if (fold) {
      x = ZyrBasUpcaseChar(x);
      y = ZyrBasUpcaseChar(y);
    }
    if (x != y) return x < y ? -1 : 1;
  }
  return an < bn ? -1 : (an > bn ? 1 : 0);
}

void ZyrBasReplaceLineBreaks(char16_t* text, std::size_t length, char16_t with) {
  ZyrBasCopyReplacingBreaks(text, text, length, with);
}

void ZyrBasCopyReplacingBreaks(char16_t* target, const char16_t* source, std::size_t length,
                               char16_t with) {
  std::size_t i = 0;
#if defined(__SSE2__)
  // Eight units at a time: most messages hold no line break at all.
  const __m128i lf = _mm_set1_epi16(0x0a);
  const __m128i cr = _mm_set1_epi16(0x0d);
  const __m128i replacement = _mm_set1_epi16(static_cast<short>(with));
  for (; i + 8 <= length; i += 8) {
    __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source + i));
    __m128i hit = _mm_or_si128(_mm_cmpeq_epi16(units, lf), _mm_cmpeq_epi16(units, cr));
    units = _mm_or_si128(_mm_and_si128(hit, replacement), _mm_andnot_si128(hit, units));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(target + i), units);
  }
#endif
  for (; i < length; ++i) {
    char16_t c = source[i];
    target[i] = c == 0x0a || c == 0x0d ? with : c;
  }
}

// An aligned block may reach past the terminator into bytes that belong to
// no object, though never into another page; the address and thread
// checkers would call that an overflow or a race, so they look away here,
// as they do for the C library's own string scans.
__attribute__((no_sanitize("address", "thread"))) const char16_t* ZyrBasFindPercentOrEnd(
    const char16_t* text) {
  std::uintptr_t address = reinterpret_cast<std::uintptr_t>(text);
  if (address & 1) {  // not a unit boundary: no block can be read in units
    while (*text != 0 && *text != u'%') ++text;
    return text;
  }
#if defined(__SSE2__)
  // Aligned blocks of eight units from the one that holds the first unit,
  // whose hits before the text are masked off: no block reaches into a page
  // the text does not touch.
  const __m128i zero = _mm_setzero_si128();
  const __m128i percent = _mm_set1_epi16(u'%');
  const char16_t* block = reinterpret_cast<const char16_t*>(address & ~static_cast<std::uintptr_t>(15));
  unsigned mask = 0xffffu << (address & 15);
  for (;;) {
    __m128i units = _mm_load_si128(reinterpret_cast<const __m128i*>(block));
    __m128i hit = _mm_or_si128(_mm_cmpeq_epi16(units, zero), _mm_cmpeq_epi16(units, percent));
    unsigned found = static_cast<unsigned>(_mm_movemask_epi8(hit)) & mask;
    if (found) return block + (__builtin_ctz(found) >> 1);
    block += 8;
    mask = 0xffffu;
  }
#else
  // Unit by unit up to an 8-byte boundary; from there whole aligned words.
  while ((reinterpret_cast<std::uintptr_t>(text) & 7) != 0) {
    if (*text == 0 || *text == u'%') return text;
    ++text;
  }
  constexpr std::uint64_t kOnes = 0x0001000100010001ull;
  constexpr std::uint64_t kHighs = 0x8000800080008000ull;
  constexpr std::uint64_t kPercents = 0x0025002500250025ull;
  typedef std::uint64_t __attribute__((may_alias, aligned(8))) AlignedWord;
  for (;;) {
    std::uint64_t word = *reinterpret_cast<const AlignedWord*>(text);
    std::uint64_t percent = word ^ kPercents;
    // A lane that is zero, in the word or in its XOR with "%", sets its top bit.
    std::uint64_t zero = (word - kOnes) & ~word & kHighs;
    std::uint64_t hit = (percent - kOnes) & ~percent & kHighs;
    if (zero | hit) break;
    text += 4;
  }
  while (*text != 0 && *text != u'%') ++text;
  return text;
#endif
}

ZyrResult ZyrBasAppendDecimal(ZyrBasString& out, std::uint64_t magnitude, bool negative) {
  char16_t buffer[21];
  char16_t* p = buffer + 21;
  do {
    *--p = static_cast<char16_t>(u'0' + magnitude % 10);
    magnitude /= 10;
  } while (magnitude);
  if (negative) *--p = u'-';
  return out.Append(p, buffer + 21);
}

std::size_t ZyrBasGrowCount(std::size_t needed, std::size_t elementSize, bool exact) {
  if (exact) return needed;
  if (needed * elementSize >= 256) {
    std::size_t grown = needed + needed / 2;
    return grown < needed ? needed : grown;
  }
  std::size_t small = 256 / elementSize + 1;
  return small < needed ? needed : small;
}
