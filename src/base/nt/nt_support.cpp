#include "base/nt/nt_support.h"

#include <cstring>

ZyrResult ZyrNtNarrow(const char16_t* text, std::size_t n, ZyrBasNarrowText& out) {
  std::size_t bytes = 0;
  for (std::size_t i = 0; i < n; ++i) {
    std::uint32_t c = text[i];
    if (c < 0x80) bytes += 1;
    else if (c < 0x800) bytes += 2;
    else if (c >= 0xd800 && c <= 0xdbff && i + 1 < n && text[i + 1] >= 0xdc00 && text[i + 1] <= 0xdfff) {
      bytes += 4;
      ++i;
    } else bytes += 3;
  }
  ZyrResult r = out.Resize(bytes);
  if (ZyrFailed(r)) return r;
  unsigned char* w = reinterpret_cast<unsigned char*>(out.Data());
  for (std::size_t i = 0; i < n; ++i) {
    std::uint32_t c = text[i];
    if (c < 0x80) {
      *w++ = static_cast<unsigned char>(c);
    } else if (c < 0x800) {
      *w++ = static_cast<unsigned char>(0xc0 | (c >> 6));
      *w++ = static_cast<unsigned char>(0x80 | (c & 0x3f));
    } else if (c >= 0xd800 && c <= 0xdbff && i + 1 < n && text[i + 1] >= 0xdc00 && text[i + 1] <= 0xdfff) {
      c = 0x10000 + ((c - 0xd800) << 10) + (text[++i] - 0xdc00);
      *w++ = static_cast<unsigned char>(0xf0 | (c >> 18));
      *w++ = static_cast<unsigned char>(0x80 | ((c >> 12) & 0x3f));
      *w++ = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3f));
      *w++ = static_cast<unsigned char>(0x80 | (c & 0x3f));
    } else {
      *w++ = static_cast<unsigned char>(0xe0 | (c >> 12));
      *w++ = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3f));
      *w++ = static_cast<unsigned char>(0x80 | (c & 0x3f));
    }
  }
  return ZYR_OK;
}

ZyrResult ZyrNtWiden(const char* text, std::size_t n, ZyrBasString& out) {
  ZyrBasString built;
  ZyrResult r = built.Reserve(n + 1, true);
  if (ZyrFailed(r)) return r;
  const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
  for (std::size_t i = 0; i < n && ZyrSucceeded(r);) {
    std::uint32_t c = p[i];
    std::size_t k = c < 0x80 ? 1 : c >= 0xf0 ? 4 : c >= 0xe0 ? 3 : c >= 0xc0 ? 2 : 1;
    if (i + k > n) k = 1;
    if (k == 1 && c >= 0x80) c = 0xfffd;  // not a sequence of ours
    else if (k == 2) c = ((c & 0x1f) << 6) | (p[i + 1] & 0x3f);
    else if (k == 3) c = ((c & 0x0f) << 12) | ((p[i + 1] & 0x3f) << 6) | (p[i + 2] & 0x3f);
    else if (k == 4) c = ((c & 0x07) << 18) | ((p[i + 1] & 0x3f) << 12) | ((p[i + 2] & 0x3f) << 6) | (p[i + 3] & 0x3f);
    i += k;
    if (c >= 0x10000) {
      c -= 0x10000;
      r = built.Append(static_cast<char16_t>(0xd800 + (c >> 10)));
      if (ZyrSucceeded(r)) r = built.Append(static_cast<char16_t>(0xdc00 + (c & 0x3ff)));
    } else {
      r = built.Append(static_cast<char16_t>(c));
    }
  }
  if (ZyrFailed(r)) return r;
  out.Swap(built);
  return ZYR_OK;
}

ZyrNtName::ZyrNtName(const char* native) {
  result_ = ZyrNtWiden(native, std::strlen(native), wide_);
  if (ZyrSucceeded(result_) && wide_.Length() > 32767) result_ = ZYR_E_INVALID_NAME;
  if (ZyrSucceeded(result_)) counted_ = NtCountedString(wide_.Text(), wide_.Length());
}
