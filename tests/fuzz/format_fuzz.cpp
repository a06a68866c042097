// Arbitrary format text through the printing engine, with slots of the
// right kind for every conversion. The slot plan below follows the grammar
// written in base/format.h, not the engine's code, so a mismatch between
// the two shows up as a crash. Invariants: a fixed buffer holds a prefix of
// the whole text and says so with ZYR_E_BUFFER_TOO_SMALL; the growing form
// gives the same text as a buffer large enough.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/format.h"
#include "fuzz_support.h"

namespace {

enum SlotKind { kRaw, kWide, kNarrow, kNarrowCounted, kWideCounted };

bool IsDigit(char16_t c) { return c >= u'0' && c <= u'9'; }

// The kinds of slot that the format reads, in order.
std::vector<SlotKind> PlanSlots(const char16_t* p) {
  std::vector<SlotKind> kinds;
  while (*p) {
    if (*p != u'%') {
      ++p;
      continue;
    }
    const char16_t* percent = p++;
    std::size_t before = kinds.size();
    while (*p == u' ' || *p == u'#' || *p == u'+' || *p == u'-' || *p == u'0') ++p;
    if (*p == u'*') ++p, kinds.push_back(kRaw);
    else while (IsDigit(*p)) ++p;
    if (*p == u'.') {
      ++p;
      if (*p == u'*') ++p, kinds.push_back(kRaw);
      else while (IsDigit(*p)) ++p;
    }
    int size = 0;  // 1 "w", 3 "h", 4 "l", 9 any other
    if (p[0] == u'I' && ((p[1] == u'3' && p[2] == u'2') || (p[1] == u'6' && p[2] == u'4'))) p += 3, size = 9;
    else if (p[0] == u'I' || p[0] == u'z') p += 1, size = 9;
    else if ((p[0] == u'l' && p[1] == u'l') || (p[0] == u'h' && p[1] == u'h')) p += 2, size = 9;
    else if (p[0] == u'l') p += 1, size = 4;
    else if (p[0] == u'h') p += 1, size = 3;
    else if (p[0] == u'w') p += 1, size = 1;
    char16_t c = *p;
    if (c < 32 || c > 127) {
      kinds.resize(before);
      p = percent + 1;
      continue;
    }
    ++p;
    bool takes = true;
    switch (c) {
      case u'd': case u'i': case u'u': case u'o': case u'x': case u'X':
        takes = size != 1;
        if (takes) kinds.push_back(kRaw);
        break;
      case u'c': case u'p': case u'e': case u'E': case u'f': case u'g': case u'G':
        kinds.push_back(kRaw);
        break;
      case u's':
        if (size == 0 || size == 4) kinds.push_back(kWide);
        else if (size == 3) kinds.push_back(kNarrow);
        else takes = false;
        break;
      case u'Z':
        if (size == 0) kinds.push_back(kNarrowCounted);
        else if (size == 1) kinds.push_back(kWideCounted);
        else takes = false;
        break;
      default:
        takes = false;
    }
    if (!takes) kinds.resize(before);  // "*" slots are given back
  }
  return kinds;
}

// Whether the text can only grow to a modest size: no "*" and no width or
// precision of five digits or more.
bool Modest(const char16_t* p) {
  int run = 0;
  for (; *p; ++p) {
    if (*p == u'*') return false;
    run = IsDigit(*p) ? run + 1 : 0;
    if (run > 4) return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zyrfuzz::Input in(data, size);
  std::size_t capacity = 1 + in.Byte();
  ZyrBasCodePage selector = static_cast<ZyrBasCodePage>(in.Byte() % 6);
  std::vector<char16_t> format = in.Wide(in.Byte() + 1);
  std::vector<char16_t> wide = in.Wide(48);
  std::vector<char> narrow = in.Bytes(48);
  std::size_t wideLength = wide.size() - 1;
  std::size_t narrowLength = narrow.size() - 4;

  std::vector<SlotKind> kinds = PlanSlots(format.data());
  std::vector<std::uint64_t> slots;
  for (SlotKind kind : kinds) {
    std::uint8_t pick = in.Byte();
    bool null = pick % 8 == 0;
    std::size_t wideAt = pick % (wideLength + 1), narrowAt = pick % (narrowLength + 1);
    switch (kind) {
      case kRaw:
        slots.push_back(in.U64());
        break;
      case kWide:
        slots.push_back(null ? 0 : ZyrBasSlotFromPointer(wide.data() + wideAt));
        break;
      case kNarrow:
        slots.push_back(null ? 0 : ZyrBasSlotFromPointer(narrow.data() + narrowAt));
        break;
      case kNarrowCounted:
        slots.push_back(in.Byte() % (narrowLength - narrowAt + 1));
        slots.push_back(null ? 0 : ZyrBasSlotFromPointer(narrow.data() + narrowAt));
        break;
      case kWideCounted:
        slots.push_back(in.Byte() % (2 * (wideLength - wideAt) + 1));
        slots.push_back(null ? 0 : ZyrBasSlotFromPointer(wide.data() + wideAt));
        break;
    }
  }
  const std::uint64_t* arguments = slots.empty() ? nullptr : slots.data();

  std::vector<char16_t> small(capacity, 0xfffe);
  std::size_t smallLength = 0;
  ZyrResult rs = ZyrBasFormatFixed(selector, small.data(), capacity, format.data(), &smallLength, arguments);
  ZYR_FUZZ_CHECK(smallLength < capacity && small[smallLength] == 0);

  if (!Modest(format.data())) return 0;
  ZyrBasString grown;
  ZyrResult rg = ZyrBasFormat(grown, format.data(), arguments);
  if (selector != ZYR_CP_ANSI && selector != ZYR_CP_OEM) return 0;  // the growing form reads ANSI
  if (ZyrFailed(rg)) {
    // Narrow text that does not decode fails both forms alike.
    ZYR_FUZZ_CHECK(rg != ZYR_E_BUFFER_TOO_SMALL && ZyrFailed(rs));
    return 0;
  }
  ZYR_FUZZ_CHECK(rs == ZYR_OK || rs == ZYR_E_BUFFER_TOO_SMALL);
  if (rs == ZYR_OK) {
    ZYR_FUZZ_CHECK(grown.Equals(small.data(), smallLength));
  } else if (rs == ZYR_E_BUFFER_TOO_SMALL) {
    ZYR_FUZZ_CHECK(smallLength <= grown.Length() && grown.Length() >= capacity - 1);
    for (std::size_t i = 0; i < smallLength; ++i) ZYR_FUZZ_CHECK(small[i] == grown[i]);
  }
  return 0;
}
