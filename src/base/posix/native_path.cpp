#include "base/os/native_path.h"

#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "base/memory.h"
#include "base/result.h"

namespace {

// Bytes of the native form of one code point starting at path[i]; 0 for
// a unit that has none. `units` tells how many units it took.
std::size_t EncodedSize(const char16_t* path, std::size_t n, std::size_t i, std::size_t* units) {
  char16_t c = path[i];
  *units = 1;
  if (c == 0) return 0;
  if (c < 0x80) return 1;
  if (c < 0x800) return 2;
  if (c >= 0xd800 && c <= 0xdbff) {
    if (i + 1 < n && path[i + 1] >= 0xdc00 && path[i + 1] <= 0xdfff) {
      *units = 2;
      return 4;
    }
    return 0;
  }
  if (c >= 0xdc00 && c <= 0xdfff) return (c >= 0xdc80 && c <= 0xdcff) ? 1 : 0;  // escaped byte
  return 3;
}

}  // namespace

ZyrResult ZyrBasNativePath(const char16_t* path, std::size_t length, ZyrBasNarrowText& out) {
  if (!path) return ZYR_E_PATH_NOT_FOUND;
  std::size_t n = length == ZYR_TERMINATED ? ZyrBasStrLen(path) : length;
  if (n == 0) return ZYR_E_PATH_NOT_FOUND;
  std::size_t bytes = 0, units;
  for (std::size_t i = 0; i < n; i += units) {
    std::size_t k = EncodedSize(path, n, i, &units);
    if (k == 0) return ZYR_E_PATH_NOT_FOUND;  // never a partial name
    bytes += k;
  }
  ZyrResult r = out.Resize(bytes);
  if (ZyrFailed(r)) return r;
  unsigned char* w = reinterpret_cast<unsigned char*>(out.Data());
  for (std::size_t i = 0; i < n; i += units) {
    std::size_t k = EncodedSize(path, n, i, &units);
    std::uint32_t c = path[i];
    if (k == 1) {
      *w++ = (c == u'\\') ? '/' : static_cast<unsigned char>(c >= 0xdc00 ? c - 0xdc00 : c);
    } else if (k == 2) {
      *w++ = static_cast<unsigned char>(0xc0 | (c >> 6));
      *w++ = static_cast<unsigned char>(0x80 | (c & 0x3f));
    } else if (k == 3) {
      *w++ = static_cast<unsigned char>(0xe0 | (c >> 12));
      *w++ = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3f));
      *w++ = static_cast<unsigned char>(0x80 | (c & 0x3f));
    } else {
      c = 0x10000 + ((c - 0xd800) << 10) + (path[i + 1] - 0xdc00);
      *w++ = static_cast<unsigned char>(0xf0 | (c >> 18));
      *w++ = static_cast<unsigned char>(0x80 | ((c >> 12) & 0x3f));
      *w++ = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3f));
      *w++ = static_cast<unsigned char>(0x80 | (c & 0x3f));
    }
  }
  return ZYR_OK;
}

namespace {

// Decodes one strict UTF-8 sequence at s[i]; 0 for an invalid one.
std::size_t DecodeOne(const unsigned char* s, std::size_t n, std::size_t i, std::uint32_t* cp) {
  unsigned char b = s[i];
  if (b < 0x80) {
    *cp = b;
    return 1;
  }
  std::size_t k;
  std::uint32_t c, min;
  if (b >= 0xc2 && b <= 0xdf) k = 2, c = b & 0x1f, min = 0x80;
  else if (b >= 0xe0 && b <= 0xef) k = 3, c = b & 0x0f, min = 0x800;
  else if (b >= 0xf0 && b <= 0xf4) k = 4, c = b & 0x07, min = 0x10000;
  else return 0;
  if (i + k > n) return 0;
  for (std::size_t j = 1; j < k; ++j) {
    if ((s[i + j] & 0xc0) != 0x80) return 0;
    c = (c << 6) | (s[i + j] & 0x3f);
  }
  if (c < min || c > 0x10ffff || (c >= 0xd800 && c <= 0xdfff)) return 0;
  *cp = c;
  return k;
}

}  // namespace

namespace {

std::size_t MeasureWide(const unsigned char* s, std::size_t length) {
  std::size_t units = 0;
  for (std::size_t i = 0; i < length;) {
    std::uint32_t cp;
    std::size_t k = DecodeOne(s, length, i, &cp);
    units += (k != 0 && cp >= 0x10000) ? 2 : 1;
    i += k ? k : 1;
  }
  return units;
}

void DecodeInto(const unsigned char* s, std::size_t length, char16_t* w) {
  for (std::size_t i = 0; i < length;) {
    std::uint32_t cp;
    std::size_t k = DecodeOne(s, length, i, &cp);
    if (k == 0) {
      *w++ = static_cast<char16_t>(0xdc00 + s[i]);  // an escaped byte
      ++i;
      continue;
    }
    if (cp >= 0x10000) {
      cp -= 0x10000;
      *w++ = static_cast<char16_t>(0xd800 + (cp >> 10));
      *w++ = static_cast<char16_t>(0xdc00 + (cp & 0x3ff));
    } else {
      *w++ = static_cast<char16_t>(cp);
    }
    i += k;
  }
}

}  // namespace

ZyrResult ZyrBasWideFromNative(const char* name, std::size_t length, ZyrBasString& out) {
  const unsigned char* s = reinterpret_cast<const unsigned char*>(name);
  ZyrBasString built;
  ZyrResult r = built.Resize(MeasureWide(s, length));
  if (ZyrFailed(r)) return r;
  DecodeInto(s, length, built.Data());
  out.Swap(built);
  return ZYR_OK;
}

ZyrResult ZyrBasWideFromNativeFixed(const char* name, std::size_t length, char16_t* target,
                                    std::size_t capacity, std::size_t* outLength) {
  const unsigned char* s = reinterpret_cast<const unsigned char*>(name);
  std::size_t units = MeasureWide(s, length);
  *outLength = units;
  if (units + 1 > capacity) return ZYR_E_BUFFER_TOO_SMALL;
  DecodeInto(s, length, target);
  target[units] = 0;
  return ZYR_OK;
}

ZyrResult ZyrBasCurrentDirectory(ZyrBasString& out) {
  std::size_t size = 256;
  for (;;) {
    char* buffer = static_cast<char*>(ZyrBasAlloc(size));
    if (!buffer) return ZYR_E_OUT_OF_MEMORY;
    if (getcwd(buffer, size)) {
      std::size_t n = 0;
      while (buffer[n]) ++n;
      ZyrBasString built;
      ZyrResult r = ZyrBasWideFromNative(buffer, n, built);
      ZyrBasFree(buffer);
      if (ZyrFailed(r)) return r;
      out.Swap(built);
      return ZYR_OK;
    }
    int e = errno;
    ZyrBasFree(buffer);
    if (e != ERANGE) return ZyrResultFromErrno(e);
    size *= 2;
  }
}
