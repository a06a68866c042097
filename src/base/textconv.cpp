#include "base/textconv.h"

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

// Every transcoder is a decoder of the source form driving a sink of the
// target form, one code point at a time. Decoders and sinks are inlined into
// one loop per pair, so the table holds twelve plain loops and four copies.
//
// The ANSI and OEM code pages are UTF-8 on Linux, so those selectors run the
// UTF-8 transcoders over the whole text at once. The NT interface converts
// counted strings with 16-bit lengths and has to cut long text into pieces
// of 32766 bytes or characters; nothing here has that limit, and cutting
// UTF-8 at fixed byte counts would split sequences, so no text is cut.

namespace {

using Byte = unsigned char;

// ---------------------------------------------------------------------------
// Sinks. Put writes one code point whole or not at all and answers false
// when it does not fit. With a null target they only count.

class Latin1Sink {
 public:
  Latin1Sink(Byte* target, std::size_t capacity) : target_(target), capacity_(capacity) {}
  bool Put(std::uint32_t c) {
    if (target_) {
      if (pos_ == capacity_) return false;
      target_[pos_] = c > 0xff ? Byte('?') : static_cast<Byte>(c);
    }
    ++pos_;
    return true;
  }
  bool Finish() { return true; }
  std::size_t Produced() const { return pos_; }

 private:
  Byte* target_;
  std::size_t capacity_;
  std::size_t pos_ = 0;
};

class Utf8Sink {
 public:
  Utf8Sink(Byte* target, std::size_t capacity) : target_(target), capacity_(capacity) {}
  bool Put(std::uint32_t c) {
    if (c < 0x80) {
      if (target_) {
        if (pos_ == capacity_) return false;
        target_[pos_] = static_cast<Byte>(c);
      }
      ++pos_;
      return true;
    }
    Byte b[4];
    std::size_t n;
    if (c < 0x800) {
      b[0] = static_cast<Byte>(0xc0 | (c >> 6));
      b[1] = static_cast<Byte>(0x80 | (c & 0x3f));
      n = 2;
    } else if (c < 0x10000) {
      b[0] = static_cast<Byte>(0xe0 | (c >> 12));
      b[1] = static_cast<Byte>(0x80 | ((c >> 6) & 0x3f));
      b[2] = static_cast<Byte>(0x80 | (c & 0x3f));
      n = 3;
    } else {
      // A value past 0x10ffff (only from UTF-8 text) folds as it would
      // through a surrogate pair, so that re-encoding equals a wide round.
      c = 0x10000 + ((c - 0x10000) & 0xfffff);
      b[0] = static_cast<Byte>(0xf0 | (c >> 18));
      b[1] = static_cast<Byte>(0x80 | ((c >> 12) & 0x3f));
      b[2] = static_cast<Byte>(0x80 | ((c >> 6) & 0x3f));
      b[3] = static_cast<Byte>(0x80 | (c & 0x3f));
      n = 4;
    }
    if (target_) {
      if (capacity_ - pos_ < n) return false;
      std::memcpy(target_ + pos_, b, n);
    }
    pos_ += n;
    return true;
  }
  bool Finish() { return true; }
  std::size_t Produced() const { return pos_; }

 private:
  Byte* target_;
  std::size_t capacity_;
  std::size_t pos_ = 0;
};

inline char16_t HighSurrogate(std::uint32_t c) {
  return static_cast<char16_t>(0xd800 | (((c - 0x10000) >> 10) & 0x3ff));
}
inline char16_t LowSurrogate(std::uint32_t c) {
  return static_cast<char16_t>(0xdc00 | (c & 0x3ff));
}

class Utf16Sink {
 public:
  Utf16Sink(Byte* target, std::size_t capacity) : target_(target), capacity_(capacity) {}
  bool Put(std::uint32_t c) {
    char16_t u[2];
    std::size_t n;
    if (c < 0x10000) {
      u[0] = static_cast<char16_t>(c);
      n = 2;
    } else {
      // The halves are masked: a value past 0x10ffff loses its top bits.
      u[0] = HighSurrogate(c);
      u[1] = LowSurrogate(c);
      n = 4;
    }
    if (target_) {
      if (capacity_ - pos_ < n) return false;
      std::memcpy(target_ + pos_, u, n);
    }
    pos_ += n;
    return true;
  }
  bool Finish() { return true; }
  std::size_t Produced() const { return pos_; }

 private:
  Byte* target_;
  std::size_t capacity_;
  std::size_t pos_ = 0;
};

constexpr char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// 1 for the characters that UTF-7 writes as themselves.
struct DirectSet {
  Byte is[128] = {};
  constexpr DirectSet() {
    for (int c = 'A'; c <= 'Z'; ++c) is[c] = 1;
    for (int c = 'a'; c <= 'z'; ++c) is[c] = 1;
    for (const char* p = " \t\n\r'()+,-./0123456789:?"; *p; ++p) is[static_cast<Byte>(*p)] = 1;
  }
};
constexpr DirectSet kDirect;

// Value of a base64 digit, or -1.
struct Base64Values {
  signed char value[256] = {};
  constexpr Base64Values() {
    for (int i = 0; i < 256; ++i) value[i] = -1;
    for (int i = 0; i < 64; ++i) value[static_cast<Byte>(kBase64[i])] = static_cast<signed char>(i);
  }
};
constexpr Base64Values kBase64Values;

class Utf7Sink {
 public:
  Utf7Sink(Byte* target, std::size_t capacity) : target_(target), capacity_(capacity) {}
  bool Put(std::uint32_t c) {
    if (c >= 0x10000) return PutUnit(HighSurrogate(c)) && PutUnit(LowSurrogate(c));
    return PutUnit(c);
  }
  // An open run is always closed with "-", even where the next character
  // could have closed it by itself: decoders then never guess.
  bool Finish() {
    if (!inRun_) return true;
    if (count_ > 0 && !Emit(kBase64[(bits_ << (6 - count_)) & 0x3f])) return false;
    count_ = 0;
    bits_ = 0;
    inRun_ = false;
    return Emit('-');
  }
  std::size_t Produced() const { return pos_; }

 private:
  bool PutUnit(std::uint32_t u) {
    if (u < 0x80 && kDirect.is[u]) {
      if (!Finish()) return false;
      if (!Emit(static_cast<char>(u))) return false;
      return u != '+' || Emit('-');
    }
    if (!inRun_) {
      if (!Emit('+')) return false;
      inRun_ = true;
    }
    bits_ = (bits_ << 16) | u;
    count_ += 16;
    while (count_ >= 6) {
      count_ -= 6;
      if (!Emit(kBase64[(bits_ >> count_) & 0x3f])) return false;
    }
    bits_ &= (1u << count_) - 1;
    return true;
  }
  bool Emit(char b) {
    if (target_) {
      if (pos_ == capacity_) return false;
      target_[pos_] = static_cast<Byte>(b);
    }
    ++pos_;
    return true;
  }

  Byte* target_;
  std::size_t capacity_;
  std::size_t pos_ = 0;
  std::uint32_t bits_ = 0;  // at most 5 pending between units
  int count_ = 0;
  bool inRun_ = false;
};

// ---------------------------------------------------------------------------
// Decoders. They stop with ZYR_E_BUFFER_TOO_SMALL when the sink is full.

struct FromLatin1 {
  template <class Sink>
  static ZyrResult Run(const Byte* s, std::size_t n, Sink& sink) {
    for (std::size_t i = 0; i < n; ++i)
      if (!sink.Put(s[i])) return ZYR_E_BUFFER_TOO_SMALL;
    return ZYR_OK;
  }
};

struct FromUtf8 {
  template <class Sink>
  static ZyrResult Run(const Byte* s, std::size_t n, Sink& sink) {
    const Byte* end = s + n;
    while (s < end) {
      std::uint32_t b = *s++;
      if (b < 0x80) {
        if (!sink.Put(b)) return ZYR_E_BUFFER_TOO_SMALL;
        continue;
      }
      // A continuation byte where a start was expected is dropped.
      if (b < 0xc0) continue;
      int follow = b < 0xe0 ? 1 : b < 0xf0 ? 2 : b < 0xf8 ? 3 : 4;
      if (follow > 3) return ZYR_E_INVALID_DATA;
      std::uint32_t c = b & (0x3fu >> follow);
      for (int i = 0; i < follow; ++i) {
        if (s == end) return ZYR_E_INVALID_DATA;
        std::uint32_t t = *s++;
        if ((t & 0xc0) != 0x80) return ZYR_E_INVALID_DATA;
        c = (c << 6) | (t & 0x3f);
      }
      // Overlong forms are refused; surrogate values pass.
      static constexpr std::uint32_t kMinimum[4] = {0, 0x80, 0x800, 0x10000};
      if (c < kMinimum[follow]) return ZYR_E_INVALID_DATA;
      if (!sink.Put(c)) return ZYR_E_BUFFER_TOO_SMALL;
    }
    return ZYR_OK;
  }
};

constexpr char kUpperHex[] = "0123456789ABCDEF";

// Well-formed UTF-8 in the strict sense: no overlong forms, no surrogates,
// nothing past U+10FFFF. The length of the sequence at s, or 0.
std::size_t WellFormedUtf8(const Byte* s, std::size_t n, std::uint32_t* c) {
  Byte b = s[0];
  std::size_t k;
  Byte low = 0x80, high = 0xbf;  // the range of the second byte
  if (b >= 0xc2 && b <= 0xdf) k = 2;
  else if (b == 0xe0) k = 3, low = 0xa0;
  else if (b == 0xed) k = 3, high = 0x9f;
  else if (b >= 0xe1 && b <= 0xef) k = 3;
  else if (b == 0xf0) k = 4, low = 0x90;
  else if (b >= 0xf1 && b <= 0xf3) k = 4;
  else if (b == 0xf4) k = 4, high = 0x8f;
  else return 0;
  if (n < k || s[1] < low || s[1] > high) return 0;
  std::uint32_t v = b & (0x7fu >> k);
  for (std::size_t j = 1; j < k; ++j) {
    if ((s[j] & 0xc0) != 0x80) return 0;
    v = (v << 6) | (s[j] & 0x3fu);
  }
  *c = v;
  return k;
}

// UTF-8 for a log line: a byte that does not start a well-formed sequence
// becomes "\xNN" and decoding goes on at the next byte, so that every byte
// of the text is told, once.
struct FromUtf8Escaping {
  template <class Sink>
  static ZyrResult Run(const Byte* s, std::size_t n, Sink& sink) {
    for (std::size_t i = 0; i < n;) {
      std::uint32_t c = s[i];
      std::size_t k = c < 0x80 ? 1 : WellFormedUtf8(s + i, n - i, &c);
      if (k) {
        if (!sink.Put(c)) return ZYR_E_BUFFER_TOO_SMALL;
        i += k;
        continue;
      }
      if (!sink.Put('\\') || !sink.Put('x') || !sink.Put(kUpperHex[c >> 4]) || !sink.Put(kUpperHex[c & 15]))
        return ZYR_E_BUFFER_TOO_SMALL;
      ++i;
    }
    return ZYR_OK;
  }
};

struct FromUtf16 {
  template <class Sink>
  static ZyrResult Run(const Byte* s, std::size_t n, Sink& sink) {
    if (n & 1) return ZYR_E_INVALID_DATA;
    std::size_t units = n / 2;
    for (std::size_t i = 0; i < units; ++i) {
      char16_t u;
      std::memcpy(&u, s + 2 * i, 2);
      std::uint32_t c = u;
      if (c >= 0xd800 && c <= 0xdfff) {
        if (c >= 0xdc00 || i + 1 == units) return ZYR_E_INVALID_DATA;
        char16_t low;
        std::memcpy(&low, s + 2 * (i + 1), 2);
        if (low < 0xdc00 || low > 0xdfff) return ZYR_E_INVALID_DATA;
        c = 0x10000 + ((c - 0xd800) << 10) + (low - 0xdc00u);
        ++i;
      }
      if (!sink.Put(c)) return ZYR_E_BUFFER_TOO_SMALL;
    }
    return ZYR_OK;
  }
};

struct FromUtf7 {
  template <class Sink>
  static ZyrResult Run(const Byte* s, std::size_t n, Sink& sink) {
    enum { kPlain, kAfterPlus, kRun, kRunHigh } state = kPlain;
    std::uint32_t bits = 0;  // at most 16 + 5 bits in flight
    int count = 0;
    std::uint32_t high = 0;
    for (std::size_t i = 0; i < n; ++i) {
      Byte b = s[i];
      if (state == kPlain) {
        if (b == '+') {
          state = kAfterPlus;
          bits = 0;
          count = 0;
        } else if (!sink.Put(b)) {
          return ZYR_E_BUFFER_TOO_SMALL;
        }
        continue;
      }
      if (state == kAfterPlus && b == '-') {
        if (!sink.Put('+')) return ZYR_E_BUFFER_TOO_SMALL;
        state = kPlain;
        continue;
      }
      int v = kBase64Values.value[b];
      if (v < 0) {
        if (state == kRunHigh) return ZYR_E_INVALID_DATA;
        // The run ends; its end mark "-" is consumed, anything else is read
        // again as plain text (a "+" opens the next run).
        state = kPlain;
        if (b != '-') --i;
        continue;
      }
      if (state == kAfterPlus) state = kRun;
      bits = (bits << 6) | static_cast<std::uint32_t>(v);
      count += 6;
      if (count < 16) continue;
      count -= 16;
      std::uint32_t unit = (bits >> count) & 0xffff;
      bits &= (1u << count) - 1;
      if (state == kRunHigh) {
        if ((unit >> 10) != 55) return ZYR_E_INVALID_DATA;
        if (!sink.Put(0x10000 + ((high - 0xd800) << 10) + (unit - 0xdc00)))
          return ZYR_E_BUFFER_TOO_SMALL;
        state = kRun;
      } else if ((unit >> 10) == 54) {
        high = unit;
        state = kRunHigh;
      } else if (!sink.Put(unit)) {
        return ZYR_E_BUFFER_TOO_SMALL;
      }
    }
    // Leftover bits of a run are dropped unchecked; half a pair is not.
    return state == kRunHigh ? ZYR_E_INVALID_DATA : ZYR_OK;
  }
};

// ---------------------------------------------------------------------------
// The table.

using Transcoder = ZyrResult (*)(const void*, std::size_t, void*, std::size_t, std::size_t*);

template <class From, class Sink>
ZyrResult Transcode(const void* source, std::size_t sourceBytes, void* target,
                    std::size_t capacity, std::size_t* outBytes) {
  Sink sink(static_cast<Byte*>(target), capacity);
  ZyrResult r = From::Run(static_cast<const Byte*>(source), sourceBytes, sink);
  if (r == ZYR_OK && !sink.Finish()) r = ZYR_E_BUFFER_TOO_SMALL;
  *outBytes = sink.Produced();
  return r;
}

template <std::size_t kUnit>
ZyrResult CopyBytes(const void* source, std::size_t sourceBytes, void* target,
                    std::size_t capacity, std::size_t* outBytes) {
  if (sourceBytes % kUnit) {
    *outBytes = 0;
    return ZYR_E_INVALID_DATA;
  }
  if (!target) {
    *outBytes = sourceBytes;
    return ZYR_OK;
  }
  std::size_t n = sourceBytes;
  ZyrResult r = ZYR_OK;
  if (n > capacity) {
    n = capacity - capacity % kUnit;
    r = ZYR_E_BUFFER_TOO_SMALL;
  }
  if (n) std::memcpy(target, source, n);
  *outBytes = n;
  return r;
}

const Transcoder kTable[4][4] = {
    {CopyBytes<1>, Transcode<FromLatin1, Utf7Sink>, Transcode<FromLatin1, Utf8Sink>,
     Transcode<FromLatin1, Utf16Sink>},
    {Transcode<FromUtf7, Latin1Sink>, CopyBytes<1>, Transcode<FromUtf7, Utf8Sink>,
     Transcode<FromUtf7, Utf16Sink>},
    {Transcode<FromUtf8, Latin1Sink>, Transcode<FromUtf8, Utf7Sink>, CopyBytes<1>,
     Transcode<FromUtf8, Utf16Sink>},
    {Transcode<FromUtf16, Latin1Sink>, Transcode<FromUtf16, Utf7Sink>,
     Transcode<FromUtf16, Utf8Sink>, CopyBytes<2>},
};

// ---------------------------------------------------------------------------
// Selectors.

bool DecodingForm(ZyrBasCodePage selector, ZyrBasTextForm* form) {
  switch (selector) {
    case ZYR_CP_ANSI:
    case ZYR_CP_ANSI_LATIN1:
    case ZYR_CP_OEM:
    case ZYR_CP_UTF8: *form = ZYR_FORM_UTF8; return true;
    case ZYR_CP_UTF7: *form = ZYR_FORM_UTF7; return true;
    case ZYR_CP_UTF16: *form = ZYR_FORM_UTF16; return true;
  }
  return false;
}

bool EncodingForm(ZyrBasCodePage selector, ZyrBasTextForm* form) {
  switch (selector) {
    case ZYR_CP_ANSI:
    case ZYR_CP_OEM:
    case ZYR_CP_UTF8: *form = ZYR_FORM_UTF8; return true;
    case ZYR_CP_ANSI_LATIN1: *form = ZYR_FORM_LATIN1; return true;
    case ZYR_CP_UTF7: *form = ZYR_FORM_UTF7; return true;
    case ZYR_CP_UTF16: *form = ZYR_FORM_UTF16; return true;
  }
  return false;
}

std::size_t NarrowLength(const char* text, std::size_t length, ZyrBasTextForm form) {
  if (!text) return 0;
  if (length != ZYR_TERMINATED) return length;
  if (form != ZYR_FORM_UTF16) return std::strlen(text);
  std::size_t n = 0;
  while (text[n] != 0 || text[n + 1] != 0) n += 2;
  return n;
}

std::size_t WideLength(const char16_t* text, std::size_t length) {
  if (!text) return 0;
  return length == ZYR_TERMINATED ? ZyrBasStrLen(text) : length;
}

// Bytes of a capacity in characters, less the terminator, without overflow.
std::size_t WideBytesBelow(std::size_t capacity) {
  std::size_t usable = capacity - 1;
  return usable > static_cast<std::size_t>(-1) / 2 ? static_cast<std::size_t>(-1) - 1 : usable * 2;
}

void TerminateNarrow(char* target, std::size_t at, std::size_t width) {
  target[at] = 0;
  if (width == 2) target[at + 1] = 0;
}

// Converts narrow-to-narrow or wide-to-narrow into a caller's buffer with a
// terminator of `width` bytes. The conversion is tried straight into the
// buffer; only a buffer that turns out too small pays for a measuring pass.
ZyrResult ToNarrowBuffer(Transcoder convert, const void* source, std::size_t sourceBytes,
                         char* target, std::size_t capacity, std::size_t width,
                         std::size_t* outBytes) {
  std::size_t produced = 0;
  ZyrResult r = ZYR_E_BUFFER_TOO_SMALL;
  if (capacity >= width) {
    r = convert(source, sourceBytes, target, capacity - width, &produced);
    if (r != ZYR_E_BUFFER_TOO_SMALL) {
      TerminateNarrow(target, produced, width);
      *outBytes = produced;
      return r;
    }
  }
  std::size_t total = 0;
  ZyrResult measured = convert(source, sourceBytes, nullptr, 0, &total);
  if (capacity >= width) TerminateNarrow(target, 0, width);
  else if (capacity > 0) target[0] = 0;
  if (ZyrFailed(measured)) {
    *outBytes = total;
    return measured;
  }
  *outBytes = total + width;
  return ZYR_E_BUFFER_TOO_SMALL;
}

}  // namespace

// ---------------------------------------------------------------------------

ZyrResult ZyrBasTranscode(ZyrBasTextForm from, ZyrBasTextForm to, const void* source,
                          std::size_t sourceBytes, void* target, std::size_t capacity,
                          std::size_t* outBytes) {
  if (from > ZYR_FORM_UTF16 || to > ZYR_FORM_UTF16) {
    *outBytes = 0;
    return ZYR_E_NOT_IMPLEMENTED;
  }
  return kTable[from][to](source, sourceBytes, target, capacity, outBytes);
}

ZyrResult ZyrBasDecodeUtf8Escaped(char16_t* target, std::size_t capacity, const char* text,
                                  std::size_t length, std::size_t* outLength) {
  std::size_t bytes = 0;
  std::size_t room = capacity > static_cast<std::size_t>(-1) / 2 ? static_cast<std::size_t>(-1) - 1 : capacity * 2;
  ZyrResult r = Transcode<FromUtf8Escaping, Utf16Sink>(text, NarrowLength(text, length, ZYR_FORM_UTF8),
                                                       target, room, &bytes);
  *outLength = bytes / 2;
  return r;
}

ZyrResult ZyrBasMeasureWide(std::size_t* outLength, const char* text, ZyrBasCodePage selector,
                            std::size_t length) {
  *outLength = 0;
  ZyrBasTextForm form;
  if (!DecodingForm(selector, &form)) return ZYR_E_NOT_IMPLEMENTED;
  std::size_t bytes = 0;
  ZyrResult r = kTable[form][ZYR_FORM_UTF16](text, NarrowLength(text, length, form), nullptr, 0,
                                             &bytes);
  *outLength = bytes / 2;
  return r;
}

ZyrResult ZyrBasToWide(char16_t* target, std::size_t capacity, const char* text,
                       ZyrBasCodePage selector, std::size_t* outLength, std::size_t length) {
  *outLength = 0;
  ZyrBasTextForm form;
  if (!DecodingForm(selector, &form)) return ZYR_E_NOT_IMPLEMENTED;
  Transcoder convert = kTable[form][ZYR_FORM_UTF16];
  std::size_t n = NarrowLength(text, length, form);
  std::size_t bytes = 0;
  if (capacity > 0) {
    ZyrResult r = convert(text, n, target, WideBytesBelow(capacity), &bytes);
    if (r != ZYR_E_BUFFER_TOO_SMALL) {
      target[bytes / 2] = 0;
      *outLength = bytes / 2;
      return r;
    }
    target[0] = 0;
  }
  ZyrResult measured = convert(text, n, nullptr, 0, &bytes);
  if (ZyrFailed(measured)) {
    *outLength = bytes / 2;
    return measured;
  }
  *outLength = bytes / 2 + 1;
  return ZYR_E_BUFFER_TOO_SMALL;
}

ZyrResult ZyrBasMeasureNarrow(std::size_t* outLength, const char16_t* text,
                              ZyrBasCodePage selector, std::size_t length) {
  *outLength = 0;
  ZyrBasTextForm form;
  if (!EncodingForm(selector, &form)) return ZYR_E_NOT_IMPLEMENTED;
  std::size_t n = WideLength(text, length);
  return kTable[ZYR_FORM_UTF16][form](text, n * 2, nullptr, 0, outLength);
}

ZyrResult ZyrBasToNarrow(char* target, std::size_t capacity, const char16_t* text,
                         ZyrBasCodePage selector, std::size_t* outLength, std::size_t length) {
  *outLength = 0;
  ZyrBasTextForm form;
  if (!EncodingForm(selector, &form)) return ZYR_E_NOT_IMPLEMENTED;
  std::size_t n = WideLength(text, length);
  return ToNarrowBuffer(kTable[ZYR_FORM_UTF16][form], text, n * 2, target, capacity,
                        form == ZYR_FORM_UTF16 ? 2 : 1, outLength);
}

ZyrResult ZyrBasNarrowToNarrow(char* target, std::size_t capacity, const char* text,
                               ZyrBasCodePage selector, std::size_t length) {
  ZyrBasTextForm form;
  if (!EncodingForm(selector, &form)) return ZYR_E_NOT_IMPLEMENTED;
  // ANSI is UTF-8 here, so the text goes straight from UTF-8 to the target
  // form, without a wide copy in between. A UTF-8 target is decoded and
  // encoded again rather than copied, so the text is checked as a wide round
  // would check it.
  Transcoder convert = form == ZYR_FORM_UTF8 ? Transcode<FromUtf8, Utf8Sink>
                                             : kTable[ZYR_FORM_UTF8][form];
  std::size_t produced = 0;
  return ToNarrowBuffer(convert, text, NarrowLength(text, length, ZYR_FORM_UTF8), target,
                        capacity, form == ZYR_FORM_UTF16 ? 2 : 1, &produced);
}

ZyrResult ZyrBasAppendWide(ZyrBasString& out, const char* text, std::size_t length,
                           ZyrBasCodePage selector) {
  ZyrBasTextForm form;
  if (!DecodingForm(selector, &form)) return ZYR_E_NOT_IMPLEMENTED;
  std::size_t n = NarrowLength(text, length, form);
  if (n == 0) return ZYR_OK;
  // One pass, no measuring: every form gives at most one unit per source
  // byte (UTF-16 one per two), so that much room always suffices.
  std::size_t most = form == ZYR_FORM_UTF16 ? n / 2 : n;
  std::size_t old = out.Length();
  if (most > static_cast<std::size_t>(-1) / 2 - old - 1) return ZYR_E_OUT_OF_MEMORY;
  ZyrResult r = out.Reserve(old + most + 1);
  if (ZyrFailed(r)) return r;
  std::size_t bytes = 0;
  r = kTable[form][ZYR_FORM_UTF16](text, n, out.Data() + old, most * 2, &bytes);
  if (ZyrFailed(r)) {
    out.Resize(old);
    return r;
  }
  return out.Resize(old + bytes / 2);  // within the reserved room: cannot fail
}

ZyrResult ZyrBasEncodeUtf8(ZyrBasArray<char>& out, const char16_t* text, std::size_t length,
                           ZyrBasBadText bad) {
  out.Clear();
  std::size_t n = WideLength(text, length);
  if (n == 0) return ZYR_OK;
  // A unit gives at most 3 bytes (a pair, two units, gives 4): one check up
  // front, none in the loop.
  if (n > static_cast<std::size_t>(-1) / 3) return ZYR_E_OUT_OF_MEMORY;
  ZyrResult r = out.Reserve(n * 3);
  if (ZyrFailed(r)) return r;
  Byte* first = reinterpret_cast<Byte*>(out.begin());
  Byte* d = first;
  const char16_t* s = text;
  const char16_t* const end = text + n;
  while (s < end) {
    // Runs of ASCII, most of any log line, eight units at a time where the
    // processor has the vector instructions for it, else four.
#if defined(__SSE2__)
    const __m128i high = _mm_set1_epi16(static_cast<short>(0xff80));
    const __m128i zero = _mm_setzero_si128();
    while (end - s >= 8) {
      __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
      if (_mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(units, high), zero)) != 0xffff) break;
      _mm_storel_epi64(reinterpret_cast<__m128i*>(d), _mm_packus_epi16(units, units));
      d += 8;
      s += 8;
    }
#endif
    while (end - s >= 4) {
      std::uint64_t four;
      std::memcpy(&four, s, sizeof four);
      if (four & 0xff80ff80ff80ff80ull) break;
      d[0] = static_cast<Byte>(four);
      d[1] = static_cast<Byte>(four >> 16);
      d[2] = static_cast<Byte>(four >> 32);
      d[3] = static_cast<Byte>(four >> 48);
      d += 4;
      s += 4;
    }
    if (s == end) break;
    std::uint32_t c = *s++;
    if (c < 0x80) {
      *d++ = static_cast<Byte>(c);
    } else if (c < 0x800) {
      d[0] = static_cast<Byte>(0xc0 | (c >> 6));
      d[1] = static_cast<Byte>(0x80 | (c & 0x3f));
      d += 2;
    } else if (c - 0xd800 >= 0x800) {
      d[0] = static_cast<Byte>(0xe0 | (c >> 12));
      d[1] = static_cast<Byte>(0x80 | ((c >> 6) & 0x3f));
      d[2] = static_cast<Byte>(0x80 | (c & 0x3f));
      d += 3;
    } else {
      std::uint32_t low;
      if (c >= 0xdc00 || s == end || (low = *s) - 0xdc00 >= 0x400) {
        if (bad == ZyrBasBadText::Refuse) return ZYR_E_INVALID_DATA;
        // Six bytes where three were reserved: the room is made here, on
        // the rare road, and the valid text pays nothing for it.
        std::size_t done = static_cast<std::size_t>(d - first);
        out.SetCount(done);
        ZyrResult grown = out.Reserve(done + 6 + static_cast<std::size_t>(end - s) * 3);
        if (ZyrFailed(grown)) {
          out.Clear();
          return grown;
        }
        first = reinterpret_cast<Byte*>(out.begin());
        d = first + done;
        d[0] = '\\';
        d[1] = 'u';
        for (int i = 0; i < 4; ++i) d[2 + i] = static_cast<Byte>(kUpperHex[(c >> (12 - 4 * i)) & 15]);
        d += 6;
        continue;
      }
      ++s;
      c = 0x10000 + ((c - 0xd800) << 10) + (low - 0xdc00);
      d[0] = static_cast<Byte>(0xf0 | (c >> 18));
      d[1] = static_cast<Byte>(0x80 | ((c >> 12) & 0x3f));
      d[2] = static_cast<Byte>(0x80 | ((c >> 6) & 0x3f));
      d[3] = static_cast<Byte>(0x80 | (c & 0x3f));
      d += 4;
    }
  }
  out.SetCount(static_cast<std::size_t>(d - first));
  return ZYR_OK;
}

ZyrResult ZyrBasEncodeNarrow(ZyrBasArray<char>& out, const char16_t* text, std::size_t length,
                             ZyrBasCodePage selector, ZyrBasBadText bad) {
  ZyrBasTextForm form;
  if (!EncodingForm(selector, &form)) {
    out.Clear();
    return ZYR_E_NOT_IMPLEMENTED;
  }
  if (form == ZYR_FORM_UTF8) return ZyrBasEncodeUtf8(out, text, length, bad);
  out.Clear();
  std::size_t n = WideLength(text, length);
  if (n == 0) return ZYR_OK;
  Transcoder convert = kTable[ZYR_FORM_UTF16][form];
  std::size_t bytes = 0;
  ZyrResult r = convert(text, n * 2, nullptr, 0, &bytes);
  if (r == ZYR_E_INVALID_DATA && bad == ZyrBasBadText::Escape) {
    // The other forms meet a lone surrogate only here: it is spelt out in
    // the text first, which then converts.
    ZyrBasString escaped;
    r = ZyrBasEscapeLoneSurrogates(escaped, text, n);
    if (ZyrFailed(r)) return r;
    return ZyrBasEncodeNarrow(out, escaped.Text(), escaped.Length(), selector, ZyrBasBadText::Refuse);
  }
  if (ZyrSucceeded(r)) r = out.Reserve(bytes);
  if (ZyrSucceeded(r)) r = convert(text, n * 2, out.begin(), bytes, &bytes);
  if (ZyrFailed(r)) return r;
  out.SetCount(bytes);
  return ZYR_OK;
}

ZyrResult ZyrBasEscapeLoneSurrogates(ZyrBasString& out, const char16_t* text, std::size_t length) {
  out.Clear();
  std::size_t n = WideLength(text, length);
  ZyrResult r = out.Reserve(n + 1);
  for (std::size_t i = 0; i < n && ZyrSucceeded(r); ++i) {
    char16_t c = text[i];
    bool paired = c >= 0xd800 && c < 0xdc00 && i + 1 < n && text[i + 1] >= 0xdc00 && text[i + 1] <= 0xdfff;
    if (paired) {
      r = out.Append(text + i, 2);
      ++i;
    } else if (c >= 0xd800 && c <= 0xdfff) {
      char16_t escape[6] = {u'\\', u'u'};
      for (int j = 0; j < 4; ++j) escape[2 + j] = static_cast<char16_t>(kUpperHex[(c >> (12 - 4 * j)) & 15]);
      r = out.Append(escape, 6);
    } else {
      r = out.Append(c);
    }
  }
  return r;
}
