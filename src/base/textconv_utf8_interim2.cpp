// interim: replaced by the text conversion component
//
// UTF-8 only (the ANSI and OEM pages are UTF-8 here): just the four entry
// points that configuration reading and writing call.
#include <cstdint>

#include "base/textconv.h"

namespace {

bool IsUtf8Page(ZyrBasCodePage page) {
  return page == ZYR_CP_ANSI || page == ZYR_CP_OEM || page == ZYR_CP_UTF8;
}

std::size_t NarrowLength(const char* text, std::size_t length) {
  if (!text) return 0;
  if (length != ZYR_TERMINATED) return length;
  std::size_t n = 0;
  while (text[n]) ++n;
  return n;
}

std::size_t WideLength(const char16_t* text, std::size_t length) {
  if (!text) return 0;
  return length == ZYR_TERMINATED ? ZyrBasStrLen(text) : length;
}

// Decodes into target when given; counts units either way.
ZyrResult Utf8ToUtf16(const char* text, std::size_t n, char16_t* target, std::size_t capacity,
                      std::size_t* units) {
  const auto* s = reinterpret_cast<const unsigned char*>(text);
  std::size_t out = 0;
  auto put = [&](char16_t u) {
    if (target && out < capacity) target[out] = u;
    ++out;
  };
  std::size_t i = 0;
  while (i < n) {
    unsigned c = s[i++];
    if (c < 0x80) {
      put(static_cast<char16_t>(c));
      continue;
    }
    if (c < 0xc0) continue;  // a stray continuation byte vanishes
    int more = c >= 0xf0 ? (c >= 0xf8 ? 4 : 3) : (c >= 0xe0 ? 2 : 1);
    if (more > 3) {
      *units = out;
      return ZYR_E_INVALID_DATA;
    }
    std::uint32_t v = c & (0x3fu >> more);
    for (int k = 0; k < more; ++k) {
      if (i >= n || (s[i] & 0xc0) != 0x80) {
        *units = out;
        return ZYR_E_INVALID_DATA;
      }
      v = v << 6 | (s[i++] & 0x3fu);
    }
    static const std::uint32_t kMinimum[] = {0, 0x80, 0x800, 0x10000};
    if (v < kMinimum[more]) {
      *units = out;
      return ZYR_E_INVALID_DATA;
    }
    if (v >= 0x10000) {
      v -= 0x10000;
      put(static_cast<char16_t>(0xd800 | ((v >> 10) & 0x3ff)));
      put(static_cast<char16_t>(0xdc00 | (v & 0x3ff)));
    } else {
      put(static_cast<char16_t>(v));
    }
  }
  *units = out;
  return ZYR_OK;
}

ZyrResult Utf16ToUtf8(const char16_t* text, std::size_t n, char* target, std::size_t capacity,
                      std::size_t* bytes) {
  std::size_t out = 0;
  auto put = [&](unsigned b) {
    if (target && out < capacity) target[out] = static_cast<char>(b);
    ++out;
  };
  for (std::size_t i = 0; i < n; ++i) {
    std::uint32_t v = text[i];
    if (v >= 0xd800 && v <= 0xdbff) {
      if (i + 1 >= n || text[i + 1] < 0xdc00 || text[i + 1] > 0xdfff) {
        *bytes = out;
        return ZYR_E_INVALID_DATA;
      }
      v = 0x10000 + ((v - 0xd800) << 10) + (text[++i] - 0xdc00u);
    } else if (v >= 0xdc00 && v <= 0xdfff) {
      *bytes = out;
      return ZYR_E_INVALID_DATA;
    }
    if (v < 0x80) {
      put(v);
    } else if (v < 0x800) {
      put(0xc0 | v >> 6);
      put(0x80 | (v & 0x3f));
    } else if (v < 0x10000) {
      put(0xe0 | v >> 12);
      put(0x80 | ((v >> 6) & 0x3f));
      put(0x80 | (v & 0x3f));
    } else {
      put(0xf0 | v >> 18);
      put(0x80 | ((v >> 12) & 0x3f));
      put(0x80 | ((v >> 6) & 0x3f));
      put(0x80 | (v & 0x3f));
    }
  }
  *bytes = out;
  return ZYR_OK;
}

}  // namespace

ZyrResult ZyrBasMeasureWide(std::size_t* outLength, const char* text, ZyrBasCodePage selector,
                            std::size_t length) {
  if (!IsUtf8Page(selector)) return ZYR_E_NOT_IMPLEMENTED;
  return Utf8ToUtf16(text, NarrowLength(text, length), nullptr, 0, outLength);
}

ZyrResult ZyrBasToWide(char16_t* target, std::size_t capacity, const char* text,
                       ZyrBasCodePage selector, std::size_t* outLength, std::size_t length) {
  if (!IsUtf8Page(selector)) return ZYR_E_NOT_IMPLEMENTED;
  std::size_t n = NarrowLength(text, length);
  std::size_t needed = 0;
  ZyrResult r = Utf8ToUtf16(text, n, nullptr, 0, &needed);
  if (ZyrFailed(r)) return r;
  if (needed + 1 > capacity) {
    if (capacity) target[0] = 0;
    *outLength = needed + 1;
    return ZYR_E_BUFFER_TOO_SMALL;
  }
  r = Utf8ToUtf16(text, n, target, capacity, outLength);
  target[*outLength] = 0;
  return r;
}

ZyrResult ZyrBasMeasureNarrow(std::size_t* outLength, const char16_t* text,
                              ZyrBasCodePage selector, std::size_t length) {
  if (!IsUtf8Page(selector)) return ZYR_E_NOT_IMPLEMENTED;
  return Utf16ToUtf8(text, WideLength(text, length), nullptr, 0, outLength);
}

ZyrResult ZyrBasToNarrow(char* target, std::size_t capacity, const char16_t* text,
                         ZyrBasCodePage selector, std::size_t* outLength, std::size_t length) {
  if (!IsUtf8Page(selector)) return ZYR_E_NOT_IMPLEMENTED;
  std::size_t n = WideLength(text, length);
  std::size_t needed = 0;
  ZyrResult r = Utf16ToUtf8(text, n, nullptr, 0, &needed);
  if (ZyrFailed(r)) return r;
  if (needed + 1 > capacity) {
    if (capacity) target[0] = 0;
    *outLength = needed + 1;
    return ZYR_E_BUFFER_TOO_SMALL;
  }
  r = Utf16ToUtf8(text, n, target, capacity, outLength);
  target[*outLength] = 0;
  return r;
}
