// interim: replaced by the text conversion component
// Narrow-to-wide conversion for the UTF-8 selectors only (ANSI, OEM and
// UTF-8 are all UTF-8 on Linux), so that printing of narrow text works
// before the full transcoders arrive. Other selectors answer
// ZYR_E_NOT_IMPLEMENTED.
#include "base/textconv.h"

#include <cstring>

namespace {

bool IsUtf8Selector(ZyrBasCodePage selector) {
  return selector == ZYR_CP_ANSI || selector == ZYR_CP_ANSI_LATIN1 || selector == ZYR_CP_OEM ||
         selector == ZYR_CP_UTF8;
}

// Decodes UTF-8 into UTF-16 units; a null target only counts. Stray
// continuation bytes are skipped; overlong and broken sequences are
// invalid. Stops writing when `capacity` units are used but keeps counting.
ZyrResult Decode(const unsigned char* s, std::size_t n, char16_t* target, std::size_t capacity,
                 std::size_t* units) {
  std::size_t out = 0;
  auto put = [&](char16_t u) {
    if (target && out < capacity) target[out] = u;
    ++out;
  };
  static const std::uint32_t kMinimum[4] = {0, 0x80, 0x800, 0x10000};
  for (std::size_t i = 0; i < n;) {
    unsigned char b = s[i++];
    if (b < 0x80) {
      put(b);
      continue;
    }
    if (b < 0xc0) continue;
    int extra = b >= 0xf0 ? (b >= 0xf8 ? 4 : 3) : b >= 0xe0 ? 2 : 1;
    if (extra > 3) return ZYR_E_INVALID_DATA;
    std::uint32_t cp = b & (0x3f >> extra);
    for (int k = 0; k < extra; ++k) {
      if (i >= n || (s[i] & 0xc0) != 0x80) return ZYR_E_INVALID_DATA;
      cp = (cp << 6) | (s[i++] & 0x3f);
    }
    if (cp < kMinimum[extra]) return ZYR_E_INVALID_DATA;
    if (cp >= 0x10000) {
      cp -= 0x10000;
      put(static_cast<char16_t>(0xd800 | ((cp >> 10) & 0x3ff)));
      put(static_cast<char16_t>(0xdc00 | (cp & 0x3ff)));
    } else {
      put(static_cast<char16_t>(cp));
    }
  }
  *units = out;
  return ZYR_OK;
}

}  // namespace

ZyrResult ZyrBasMeasureWide(std::size_t* outLength, const char* text, ZyrBasCodePage selector,
                            std::size_t length) {
  if (outLength) *outLength = 0;
  if (!IsUtf8Selector(selector)) return ZYR_E_NOT_IMPLEMENTED;
  if (!text) return ZYR_OK;
  std::size_t n = length == ZYR_TERMINATED ? std::strlen(text) : length;
  std::size_t units = 0;
  ZyrResult r = Decode(reinterpret_cast<const unsigned char*>(text), n, nullptr, 0, &units);
  if (ZyrSucceeded(r) && outLength) *outLength = units;
  return r;
}

ZyrResult ZyrBasToWide(char16_t* target, std::size_t capacity, const char* text,
                       ZyrBasCodePage selector, std::size_t* outLength, std::size_t length) {
  if (outLength) *outLength = 0;
  if (!IsUtf8Selector(selector)) return ZYR_E_NOT_IMPLEMENTED;
  std::size_t n = !text ? 0 : length == ZYR_TERMINATED ? std::strlen(text) : length;
  std::size_t units = 0;
  ZyrResult r = Decode(reinterpret_cast<const unsigned char*>(text), n, target, capacity, &units);
  if (ZyrFailed(r)) {
    if (capacity) target[0] = 0;
    return r;
  }
  if (units + 1 > capacity) {
    if (capacity) target[0] = 0;
    if (outLength) *outLength = units + 1;
    return ZYR_E_BUFFER_TOO_SMALL;
  }
  target[units] = 0;
  if (outLength) *outLength = units;
  return ZYR_OK;
}
