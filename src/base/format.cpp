#include "base/format.h"

#include <cstring>

#include "base/memory.h"
#include "base/string.h"

namespace {

// Output into a fixed buffer that always keeps room for the terminator.
// Every put writes what fits and reports whether all of it did.
struct Sink {
  char16_t* buffer;
  std::size_t room;  // characters before the terminator's place
  std::size_t pos;

  bool Put(char16_t c) {
    if (pos >= room) return false;
    buffer[pos++] = c;
    return true;
  }
  bool Put(const char16_t* text, std::size_t n) {
    if (n == 0) return true;
    std::size_t fit = room - pos < n ? room - pos : n;
    ZyrBasCopyUnits(buffer + pos, text, fit);
    pos += fit;
    return fit == n;
  }
  bool Fill(char16_t c, std::size_t n) {
    std::size_t fit = room - pos < n ? room - pos : n;
    for (std::size_t i = 0; i < fit; ++i) buffer[pos + i] = c;
    pos += fit;
    return fit == n;
  }
};

struct Arguments {
  const std::uint64_t* slots;
  std::size_t next;
  std::uint64_t Take() {
    std::uint64_t v = slots ? slots[next] : 0;
    ++next;
    return v;
  }
};

constexpr std::int32_t kNumberLimit = 0x7fffffff;
// The widest field, written or from a "*" slot: one conversion never asks
// for more than 8 KiB of text, so that no width, whether a mistake or an
// attack ("%2147483647d"), can take gigabytes of memory. A precision needs
// no such limit: it only cuts texts, and numbers have limits of their own.
constexpr std::int32_t kWidthLimit = 4096;

std::int32_t TakeCount(Arguments& args) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(args.Take()));
}

void ReadDigits(const char16_t*& p, std::int32_t& value) {
  while (*p >= u'0' && *p <= u'9') {
    std::int32_t d = *p - u'0';
    value = value > (kNumberLimit - d) / 10 ? kNumberLimit : value * 10 + d;
    ++p;
  }
}


// Parses the conversion behind the "%" at `p`. On success `p` stands behind
// the conversion character. False when the format ends inside or the
// conversion character lies outside 32..127. A "*" is only marked here:
// TakeStars reads its slot once the conversion is known to take a value.
bool ParseSpec(const char16_t*& p, ZyrBasFormatSpec& spec) {
  spec = ZyrBasFormatSpec{};
  ++p;
  for (;; ++p) {
    if (*p == u' ') spec.space = 1;
    else if (*p == u'#') spec.alternate = 1;
    else if (*p == u'+') spec.plus = 1;
    else if (*p == u'-') spec.left = 1;
    else if (*p == u'0') spec.zero = 1;
    else break;
  }
  if (*p == u'*') {
    ++p;
    spec.widthFromArgument = 1;
  } else {
    ReadDigits(p, spec.width);
    if (spec.width > kWidthLimit) spec.width = kWidthLimit;
  }
  if (*p == u'.') {
    ++p;
    spec.hasPrecision = 1;
    if (*p == u'*') {
      ++p;
      spec.precisionFromArgument = 1;
    } else {
      ReadDigits(p, spec.precision);
    }
  }
  // The size prefixes "I32", "I64", "ll", "hh", "l", "h", "w", "I", "z", in
  // that order of precedence; told apart by their first character, so one
  // switch serves instead of a walk over the table for every conversion.
  switch (*p) {
    case u'I':
      if (p[1] == u'3' && p[2] == u'2') spec.sizeKind = 6, p += 3;
      else if (p[1] == u'6' && p[2] == u'4') spec.sizeKind = 7, p += 3;
      else spec.sizeKind = 5, p += 1;
      break;
    case u'l':
      if (p[1] == u'l') spec.sizeKind = 8, p += 2;
      else spec.sizeKind = 4, p += 1;
      break;
    case u'h':
      if (p[1] == u'h') spec.sizeKind = 2, p += 2;
      else spec.sizeKind = 3, p += 1;
      break;
    case u'w': spec.sizeKind = 1, p += 1; break;
    case u'z': spec.sizeKind = 5, p += 1; break;
    default: break;
  }
  char16_t c = *p;
  if (c < 32 || c > 127) return false;
  ++p;
  spec.conversion = c;
  return true;
}

// Whether the conversion reads a value slot. Its "*" slots are read only
// then: a conversion that takes none reads none, so that a format never
// reads past the slots that its conversions use.
bool TakesValue(const ZyrBasFormatSpec& spec) {
  switch (spec.conversion) {
    case u'd': case u'i': case u'u': case u'o': case u'x': case u'X':
      return spec.sizeKind != 1;
    case u'c': case u'p': case u'e': case u'E': case u'f': case u'g': case u'G':
      return true;
    case u's':
      return spec.sizeKind == 0 || spec.sizeKind == 3 || spec.sizeKind == 4;
    case u'Z':
      return spec.sizeKind == 0 || spec.sizeKind == 1;
    default:
      return false;
  }
}

void TakeStars(ZyrBasFormatSpec& spec, Arguments& args) {
  if (spec.widthFromArgument) {
    std::int32_t w = TakeCount(args);
    if (w < 0) {
      spec.left = 1;
      w = w == INT32_MIN ? kNumberLimit : -w;
    }
    spec.width = w > kWidthLimit ? kWidthLimit : w;
  }
  if (spec.precisionFromArgument) {
    std::int32_t v = TakeCount(args);
    if (v < 0) spec.hasPrecision = 0;
    else spec.precision = v;
  }
}

// Writes lead (sign and prefix) and body, padded to the width.
bool EmitPadded(Sink& out, const ZyrBasFormatSpec& spec, bool zeroFill, const char16_t* lead,
                std::size_t leadLength, const char16_t* body, std::size_t bodyLength) {
  std::size_t total = leadLength + bodyLength;
  std::size_t width = static_cast<std::size_t>(spec.width);
  std::size_t pad = width > total ? width - total : 0;
  if (spec.left)
    return out.Put(lead, leadLength) && out.Put(body, bodyLength) && out.Fill(u' ', pad);
  if (zeroFill)
    return out.Put(lead, leadLength) && out.Fill(u'0', pad) && out.Put(body, bodyLength);
  return out.Fill(u' ', pad) && out.Put(lead, leadLength) && out.Put(body, bodyLength);
}

bool EmitText(Sink& out, const ZyrBasFormatSpec& spec, const char16_t* text, std::size_t length) {
  if (spec.hasPrecision && length > static_cast<std::size_t>(spec.precision))
    length = static_cast<std::size_t>(spec.precision);
  return EmitPadded(out, spec, false, nullptr, 0, text, length);
}

constexpr char16_t kNull[] = u"(null)";

// A terminated wide text, never read beyond the precision.
bool EmitWide(Sink& out, const ZyrBasFormatSpec& spec, const char16_t* text) {
  if (!text) return EmitText(out, spec, kNull, 6);
  std::size_t limit = spec.hasPrecision ? static_cast<std::size_t>(spec.precision) : ZYR_NPOS;
  std::size_t n = 0;
  while (n < limit && text[n]) ++n;
  return EmitText(out, spec, text, n);
}

// The wide form of a narrow argument. Text read as UTF-8 (ANSI, OEM and
// UTF-8 here) never fails the line: a byte that is no UTF-8 is printed as
// "\xNN". On Linux file names are bytes, and the lines about odd files are
// the ones that must not be lost. A null target measures.
ZyrResult NarrowToWide(char16_t* wide, std::size_t capacity, ZyrBasCodePage selector, const char* text,
                       std::size_t length, std::size_t* converted) {
  if (selector == ZYR_CP_ANSI || selector == ZYR_CP_ANSI_LATIN1 || selector == ZYR_CP_OEM ||
      selector == ZYR_CP_UTF8)
    return ZyrBasDecodeUtf8Escaped(wide, capacity, text, length, converted);
  if (!wide) return ZyrBasMeasureWide(converted, text, selector, length);
  return ZyrBasToWide(wide, capacity + 1, text, selector, converted, length);
}

// Narrow text is converted whole, then printed as wide text; short texts
// convert on the stack.
ZyrResult EmitNarrow(Sink& out, const ZyrBasFormatSpec& spec, ZyrBasCodePage selector,
                     const char* text, std::size_t length) {
  if (!text) return EmitText(out, spec, kNull, 6) ? ZYR_OK : ZYR_E_BUFFER_TOO_SMALL;
  std::size_t needed = 0;
  ZyrResult r = NarrowToWide(nullptr, 0, selector, text, length, &needed);
  if (ZyrFailed(r)) return r;
  char16_t local[256];
  char16_t* wide = local;
  if (needed + 1 > sizeof local / sizeof local[0]) {
    if (needed + 1 > ZYR_NPOS / sizeof(char16_t)) return ZYR_E_OUT_OF_MEMORY;
    wide = static_cast<char16_t*>(ZyrBasAlloc((needed + 1) * sizeof(char16_t)));
    if (!wide) return ZYR_E_OUT_OF_MEMORY;
  }
  std::size_t converted = 0;
  r = NarrowToWide(wide, needed, selector, text, length, &converted);
  if (ZyrSucceeded(r)) r = EmitText(out, spec, wide, converted) ? ZYR_OK : ZYR_E_BUFFER_TOO_SMALL;
  if (wide != local) ZyrBasFree(wide);
  return r;
}

// Narrow text reads as itself while it is ASCII, under every selector but
// UTF-7 and UTF-16: such a run is widened as it is copied, without the
// measuring and converting passes of EmitNarrow, which sees only what
// follows the run. Narrow arguments are mostly ASCII, and the two passes
// cost more than the rest of their conversion. With a width or precision
// the whole text is measured first, so it goes to EmitNarrow as it is.
ZyrResult EmitNarrowArgument(Sink& out, const ZyrBasFormatSpec& spec, ZyrBasCodePage selector,
                             const char* text, std::size_t length) {
  bool asciiIsItself = selector == ZYR_CP_ANSI || selector == ZYR_CP_ANSI_LATIN1 ||
                       selector == ZYR_CP_OEM || selector == ZYR_CP_UTF8;
  if (text && asciiIsItself && spec.width == 0 && !spec.hasPrecision) {
    // A terminated text has a length of all ones and ends at its NUL,
    // which the test of the byte stops at.
    std::size_t n = 0;
    while (n < length && static_cast<unsigned char>(text[n]) - 1u < 0x7fu) {
      if (out.pos == out.room) return ZYR_E_BUFFER_TOO_SMALL;
      out.buffer[out.pos++] = static_cast<char16_t>(text[n++]);
    }
    text += n;
    if (length != ZYR_TERMINATED) length -= n;
    if (length == 0 || (length == ZYR_TERMINATED && *text == 0)) return ZYR_OK;
  }
  return EmitNarrow(out, spec, selector, text, length);
}

constexpr ZyrBasFormatSpec kPlainSpec{};

// --- Integers ---------------------------------------------------------------

constexpr std::int32_t kMaxIntegerPrecision = 32;

bool EmitInteger(Sink& out, ZyrBasFormatSpec spec, std::uint64_t magnitude, bool negative,
                 bool isSigned, unsigned base) {
  const char* digits = spec.upper ? "0123456789ABCDEF" : "0123456789abcdef";
  std::int32_t precision = 1;
  if (spec.hasPrecision) {
    precision = spec.precision > kMaxIntegerPrecision ? kMaxIntegerPrecision : spec.precision;
    spec.zero = 0;
  }
  // Built from the right end; 32 precision digits plus the octal "0" at most.
  char16_t body[40];
  std::size_t start = sizeof body / sizeof body[0];
  if (base == 10) {  // the common case, with a constant divisor
    for (std::uint64_t v = magnitude; v != 0; v /= 10) body[--start] = static_cast<char16_t>(u'0' + v % 10);
  } else {
    for (std::uint64_t v = magnitude; v != 0; v /= base) body[--start] = digits[v % base];
  }
  if (spec.alternate && base == 8) body[--start] = u'0';
  while (sizeof body / sizeof body[0] - start < static_cast<std::size_t>(precision))
    body[--start] = u'0';

  char16_t lead[3];
  std::size_t leadLength = 0;
  if (negative) lead[leadLength++] = u'-';
  else if (isSigned && spec.plus) lead[leadLength++] = u'+';
  else if (isSigned && spec.space) lead[leadLength++] = u' ';
  if (spec.alternate && base == 16 && magnitude != 0) {
    lead[leadLength++] = u'0';
    lead[leadLength++] = spec.upper ? u'X' : u'x';
  }
  return EmitPadded(out, spec, spec.zero, lead, leadLength, body + start,
                    sizeof body / sizeof body[0] - start);
}

// --- Floating point ---------------------------------------------------------

constexpr int kExpansionDigits = 32;
constexpr int kMaxFloatPrecision = 20;
// 309 whole digits of the largest double, the point, 20 decimals, with room.
constexpr std::size_t kFloatBodyMax = 352;

// digits[0] is the carry place; digits[1..32] the expansion of the value
// normalised to d.ddd... times ten to `exponent`.
struct Expansion {
  std::uint8_t digits[kExpansionDigits + 1];
  int start;  // 1, or 0 after a carry into the leading place
  int exponent;

  void Expand(double magnitude) {
    int e = 0;
    if (magnitude != 0.0) {
      while (magnitude >= 10.0) {
        magnitude /= 10.0;
        ++e;
      }
      while (magnitude < 1.0) {
        magnitude *= 10.0;
        --e;
      }
    }
    digits[0] = 0;
    for (int i = 1; i <= kExpansionDigits; ++i) {
      int d = static_cast<int>(magnitude);
      if (d > 9) d = 9;
      digits[i] = static_cast<std::uint8_t>(d);
      magnitude = (magnitude - d) * 10.0;
    }
    start = 1;
    exponent = e;
  }

  // Rounds so that digits[last] is the last digit kept. Past the expansion
  // nothing is rounded. A carry into the leading place raises the exponent.
  void Round(int last) {
    if (last < 0 || last >= kExpansionDigits || digits[last + 1] < 5) return;
    int i = last;
    while (digits[i] == 9) digits[i--] = 0;
    ++digits[i];
    if (digits[0] != 0) {
      start = 0;
      ++exponent;
    }
  }

  // The k-th significant digit; positions past the expansion are "0".
  char16_t Digit(int k) const {
    int i = start + k;
    return i <= kExpansionDigits ? static_cast<char16_t>(u'0' + digits[i]) : u'0';
  }
};

struct Text {
  char16_t* data;
  std::size_t length;
  void Put(char16_t c) {
    if (length < kFloatBodyMax) data[length++] = c;
  }
};

void PutFixed(Text& t, const Expansion& x, int precision, bool alternate) {
  int e = x.exponent;
  if (e >= 0) {
    for (int k = 0; k <= e; ++k) t.Put(x.Digit(k));
  } else {
    t.Put(u'0');
  }
  if (precision > 0 || alternate) t.Put(u'.');
  if (e >= 0) {
    for (int k = e + 1; k <= e + precision; ++k) t.Put(x.Digit(k));
  } else {
    int zeros = -e - 1 < precision ? -e - 1 : precision;
    for (int k = 0; k < zeros; ++k) t.Put(u'0');
    for (int k = 0; k < precision - zeros; ++k) t.Put(x.Digit(k));
  }
}

void PutMantissa(Text& t, const Expansion& x, int precision, bool alternate) {
  t.Put(x.Digit(0));
  if (precision > 0 || alternate) t.Put(u'.');
  for (int k = 1; k <= precision; ++k) t.Put(x.Digit(k));
}

void PutExponent(Text& t, int exponent, bool upper, bool forceSign) {
  t.Put(upper ? u'E' : u'e');
  if (exponent < 0) t.Put(u'-');
  else if (forceSign) t.Put(u'+');
  unsigned magnitude = static_cast<unsigned>(exponent < 0 ? -exponent : exponent);
  char16_t digits[8];
  int n = 0;
  do {
    digits[n++] = static_cast<char16_t>(u'0' + magnitude % 10);
    magnitude /= 10;
  } while (magnitude != 0);
  if (n < 2) digits[n++] = u'0';
  while (n > 0) t.Put(digits[--n]);
}

// Drops trailing zeros behind a point, and the point if it is left alone.
void StripZeros(Text& t) {
  bool point = false;
  for (std::size_t i = 0; i < t.length; ++i) point = point || t.data[i] == u'.';
  if (!point) return;
  while (t.data[t.length - 1] == u'0') --t.length;
  if (t.data[t.length - 1] == u'.') --t.length;
}

// The body of a float without its sign; `negative` tells the sign.
std::size_t FloatBody(const ZyrBasFormatSpec& spec, double value, char16_t* body, bool* negative) {
  Text t{body, 0};
  *negative = false;
  if (value != value) {
    t.Put(u'n'), t.Put(u'a'), t.Put(u'n');
    return t.length;
  }
  if (value < 0) {
    *negative = true;
    value = -value;
  }
  if (value > 1.7976931348623157e308) {
    t.Put(u'i'), t.Put(u'n'), t.Put(u'f');
    return t.length;
  }
  int precision = spec.hasPrecision ? spec.precision : 6;
  if (precision > kMaxFloatPrecision) precision = kMaxFloatPrecision;
  bool alternate = spec.alternate != 0;
  Expansion x;
  x.Expand(value);
  char16_t c = spec.conversion;
  if (c == u'f') {
    x.Round(1 + x.exponent + precision);
    PutFixed(t, x, precision, alternate);
  } else if (c == u'e' || c == u'E') {
    x.Round(1 + precision);
    PutMantissa(t, x, precision, alternate);
    PutExponent(t, x.exponent, spec.upper, spec.forceExponentSign);
  } else {
    int significant = precision == 0 ? 1 : precision;
    x.Round(significant);
    if (x.exponent >= -4 && x.exponent < significant) {
      PutFixed(t, x, significant - 1 - x.exponent, alternate);
      if (!alternate) StripZeros(t);
    } else {
      PutMantissa(t, x, significant - 1, alternate);
      if (!alternate) StripZeros(t);
      PutExponent(t, x.exponent, spec.upper, spec.forceExponentSign);
    }
  }
  return t.length;
}

bool EmitFloat(Sink& out, const ZyrBasFormatSpec& spec, double value) {
  char16_t body[kFloatBodyMax];
  bool negative;
  std::size_t length = FloatBody(spec, value, body, &negative);
  char16_t sign = negative ? u'-' : spec.plus ? u'+' : spec.space ? u' ' : 0;
  return EmitPadded(out, spec, spec.zero, &sign, sign ? 1 : 0, body, length);
}

// --- Conversions ------------------------------------------------------------

enum class Outcome { Done, Unknown, Nothing };

ZyrResult Convert(Sink& out, ZyrBasCodePage selector, const ZyrBasFormatSpec& spec,
                  Arguments& args, Outcome* outcome) {
  *outcome = Outcome::Done;
  const std::uint8_t kind = spec.sizeKind;
  bool fits = true;
  switch (spec.conversion) {
    case u'%':
      *outcome = Outcome::Nothing;
      fits = out.Put(u'%');
      break;
    case u'd':
    case u'i': {
      if (kind == 1) {
        *outcome = Outcome::Nothing;
        break;
      }
      std::uint64_t slot = args.Take();
      std::int64_t v;
      if (kind == 2) v = static_cast<std::int8_t>(slot);
      else if (kind == 3) v = static_cast<std::int16_t>(slot);
      else if (kind == 5 || kind == 7 || kind == 8) v = static_cast<std::int64_t>(slot);
      else v = static_cast<std::int32_t>(slot);
      std::uint64_t magnitude = v < 0 ? 0 - static_cast<std::uint64_t>(v) : static_cast<std::uint64_t>(v);
      fits = EmitInteger(out, spec, magnitude, v < 0, true, 10);
      break;
    }
    case u'u':
    case u'o':
    case u'x':
    case u'X': {
      if (kind == 1) {
        *outcome = Outcome::Nothing;
        break;
      }
      std::uint64_t v = args.Take();
      if (kind == 2) v = static_cast<std::uint8_t>(v);
      else if (kind == 3) v = static_cast<std::uint16_t>(v);
      else if (!(kind == 5 || kind == 7 || kind == 8)) v = static_cast<std::uint32_t>(v);
      unsigned base = spec.conversion == u'u' ? 10 : spec.conversion == u'o' ? 8 : 16;
      fits = EmitInteger(out, spec, v, false, false, base);
      break;
    }
    case u'c':
      fits = out.Put(static_cast<char16_t>(args.Take()));
      break;
    case u'p': {
      ZyrBasFormatSpec hex = spec;
      hex.zero = 1;
      fits = EmitInteger(out, hex, args.Take(), false, false, 16);
      break;
    }
    case u's':
      if (kind == 0 || kind == 4) {
        fits = EmitWide(out, spec, reinterpret_cast<const char16_t*>(args.Take()));
      } else if (kind == 3) {
        return EmitNarrowArgument(out, spec, selector, reinterpret_cast<const char*>(args.Take()),
                                  ZYR_TERMINATED);
      } else {
        *outcome = Outcome::Unknown;
      }
      break;
    case u'Z': {
      if (kind != 0 && kind != 1) {
        *outcome = Outcome::Unknown;
        break;
      }
      std::size_t bytes = static_cast<std::size_t>(args.Take());
      std::uint64_t pointer = args.Take();
      if (kind == 0)
        return EmitNarrowArgument(out, spec, selector, reinterpret_cast<const char*>(pointer), bytes);
      const char16_t* text = reinterpret_cast<const char16_t*>(pointer);
      fits = text ? EmitText(out, spec, text, bytes / sizeof(char16_t))
                  : EmitText(out, spec, kNull, 6);
      break;
    }
    case u'e':
    case u'E':
    case u'f':
    case u'g':
    case u'G': {
      std::uint64_t bits = args.Take();
      double v;
      std::memcpy(&v, &bits, sizeof v);
      fits = EmitFloat(out, spec, v);
      break;
    }
    default:
      *outcome = Outcome::Unknown;
      break;
  }
  return fits ? ZYR_OK : ZYR_E_BUFFER_TOO_SMALL;
}

// "%d" of a 32-bit value, two digits a step.
bool PutInt32(Sink& out, std::int32_t value) {
  const auto& pairs = kZyrBasDigitPairs.pair;
  std::uint32_t u = value < 0 ? 0u - static_cast<std::uint32_t>(value) : static_cast<std::uint32_t>(value);
  char16_t body[11];
  std::size_t start = sizeof body / sizeof body[0];
  for (; u >= 100; u /= 100) {
    start -= 2;
    body[start] = pairs[u % 100][0];
    body[start + 1] = pairs[u % 100][1];
  }
  if (u >= 10) {
    start -= 2;
    body[start] = pairs[u][0];
    body[start + 1] = pairs[u][1];
  } else {
    body[--start] = static_cast<char16_t>(u'0' + u);
  }
  if (value < 0) body[--start] = u'-';
  return out.Put(body + start, sizeof body / sizeof body[0] - start);
}

// "%s" of a terminated wide text, copied as far as it fits.
bool PutTerminated(Sink& out, const char16_t* text) {
  std::size_t n = 0;
  while (text[n]) ++n;
  return out.Put(text, n);
}

// Not inlined into ZyrBasFormatFixed, its one caller: there it cost a
// message of the direct road 29 more instructions (callgrind, bench/road_count).
__attribute__((noinline)) ZyrResult FormatInto(Sink& out, ZyrBasCodePage selector, const char16_t* format,
                     const std::uint64_t* slots) {
  Arguments args{slots, 0};
  const char16_t* p = format;
  while (*p) {
    const char16_t* run = p;
    p = ZyrBasFindPercentOrEnd(p);
    if (!out.Put(run, static_cast<std::size_t>(p - run))) return ZYR_E_BUFFER_TOO_SMALL;
    if (!*p) break;

    // The bare "%d", "%s" and "%hs", most conversions of log messages, go
    // without the parse of a specification: no flag, width or precision can
    // follow the "%" here, so the output is that of the general road.
    if (p[1] == u'd') {
      if (!PutInt32(out, static_cast<std::int32_t>(args.Take()))) return ZYR_E_BUFFER_TOO_SMALL;
      p += 2;
      continue;
    }
    if (p[1] == u's') {
      const auto* text = reinterpret_cast<const char16_t*>(args.Take());
      if (!(text ? PutTerminated(out, text) : out.Put(kNull, 6))) return ZYR_E_BUFFER_TOO_SMALL;
      p += 2;
      continue;
    }
    if (p[1] == u'h' && p[2] == u's') {
      ZyrResult r = EmitNarrowArgument(out, kPlainSpec, selector,
                                       reinterpret_cast<const char*>(args.Take()), ZYR_TERMINATED);
      if (ZyrFailed(r)) return r;
      p += 3;
      continue;
    }
    const char16_t* percent = p;
    std::size_t argsBefore = args.next;
    ZyrBasFormatSpec spec;
    if (!ParseSpec(p, spec)) {
      // Not a conversion: the "%" stands for itself and scanning resumes
      // right behind it.
      p = percent + 1;
      if (!out.Put(u'%')) return ZYR_E_BUFFER_TOO_SMALL;
      continue;
    }
    spec.upper = spec.conversion == u'X' || spec.conversion == u'E' || spec.conversion == u'G';
    spec.forceExponentSign = 1;
    if ((spec.widthFromArgument | spec.precisionFromArgument) && TakesValue(spec)) TakeStars(spec, args);
    Outcome outcome;
    ZyrResult r = Convert(out, selector, spec, args, &outcome);
    if (ZyrFailed(r)) return r;
    if (outcome != Outcome::Done) args.next = argsBefore;
    if (outcome == Outcome::Unknown && !out.Put(percent, static_cast<std::size_t>(p - percent)))
      return ZYR_E_BUFFER_TOO_SMALL;
  }
  return ZYR_OK;
}

// Formats on the stack first, then on the heap from 4096 characters,
// doubling until the text fits.
class StagedFormat {
 public:
  ~StagedFormat() {
    if (heap_) ZyrBasFree(heap_);
  }
  ZyrResult Run(const char16_t* format, const std::uint64_t* arguments) {
    ZyrResult r = ZyrBasFormatFixed(ZYR_CP_ANSI, stack_, kStackCapacity, format, &length_, arguments);
    text_ = stack_;
    std::size_t capacity = kFirstHeapCapacity;
    while (r == ZYR_E_BUFFER_TOO_SMALL) {
      if (heap_) {
        ZyrBasFree(heap_);
        heap_ = nullptr;
        if (capacity > ZYR_NPOS / (2 * 2 * sizeof(char16_t))) return ZYR_E_OUT_OF_MEMORY;
        capacity *= 2;
      }
      heap_ = static_cast<char16_t*>(ZyrBasAlloc(capacity * sizeof(char16_t)));
      if (!heap_) return ZYR_E_OUT_OF_MEMORY;
      text_ = heap_;
      r = ZyrBasFormatFixed(ZYR_CP_ANSI, heap_, capacity, format, &length_, arguments);
    }
    return r;
  }
  const char16_t* Text() const { return text_; }
  std::size_t Length() const { return length_; }

 private:
  static constexpr std::size_t kStackCapacity = 512;
  static constexpr std::size_t kFirstHeapCapacity = 4096;
  char16_t stack_[kStackCapacity];
  char16_t* heap_ = nullptr;
  const char16_t* text_ = nullptr;
  std::size_t length_ = 0;
};

}  // namespace

ZyrResult ZyrBasFormatFixed(ZyrBasCodePage selector, char16_t* buffer, std::size_t capacity,
                            const char16_t* format, std::size_t* outLength,
                            const std::uint64_t* arguments) {
  if (outLength) *outLength = 0;
  if (capacity == 0 || !buffer) return ZYR_E_INVALID_ARGUMENT;
  buffer[0] = 0;
  if (!format) return ZYR_E_INVALID_ARGUMENT;
  Sink out{buffer, capacity - 1, 0};
  ZyrResult r = FormatInto(out, selector, format, arguments);
  buffer[out.pos] = 0;
  if (outLength) *outLength = out.pos;
  return r;
}

ZyrResult ZyrBasFormat(ZyrBasString& out, const char16_t* format, const std::uint64_t* arguments,
                       char16_t breakReplacement) {
  StagedFormat staged;
  ZyrResult r = staged.Run(format, arguments);
  if (ZyrFailed(r)) return r;
  if (!breakReplacement) return out.Assign(staged.Text(), staged.Length());
  r = out.Resize(staged.Length());
  if (ZyrFailed(r)) return r;
  ZyrBasCopyReplacingBreaks(out.Data(), staged.Text(), staged.Length(), breakReplacement);
  return ZYR_OK;
}

bool ZyrBasPlanFormat(const char16_t* format, ZyrBasFormatPlan* plan) {
  constexpr std::uint32_t kMaxSlots = 64;
  std::uint32_t slot = 0;
  std::uint64_t texts = 0;
  const char16_t* p = format;
  for (;;) {
    p = ZyrBasFindPercentOrEnd(p);
    if (!*p) break;
    // The slots of a conversion as FormatInto takes them: the bare "%d" and
    // "%s" one each, otherwise its "*" slots and value slots only when it
    // takes a value at all.
    if (p[1] == u'd' || p[1] == u's') {
      if (slot >= kMaxSlots) return false;
      if (p[1] == u's') texts |= std::uint64_t{1} << slot;
      ++slot;
      p += 2;
      continue;
    }
    const char16_t* percent = p;
    ZyrBasFormatSpec spec;
    if (!ParseSpec(p, spec)) {
      p = percent + 1;
      continue;
    }
    if (!TakesValue(spec)) continue;
    bool wideText = spec.conversion == u's' && spec.sizeKind != 3;
    if (spec.conversion == u'Z' || (spec.conversion == u's' && !wideText)) return false;
    slot += spec.widthFromArgument + spec.precisionFromArgument;
    if (slot >= kMaxSlots) return false;
    if (wideText) texts |= std::uint64_t{1} << slot;
    ++slot;
  }
  plan->length = static_cast<std::size_t>(p - format);
  plan->slotCount = slot;
  plan->wideTexts = texts;
  return true;
}

ZyrResult ZyrBasFormatAppend(ZyrBasStringRef& target, const char16_t* format,
                             const std::uint64_t* arguments) {
  return ZyrBasFormatAppend(target.Target(), format, arguments);
}

ZyrResult ZyrBasFormatAppend(ZyrBasString& target, const char16_t* format,
                             const std::uint64_t* arguments) {
  StagedFormat staged;
  ZyrResult r = staged.Run(format, arguments);
  if (ZyrFailed(r)) return r;
  return target.Append(staged.Text(), staged.Length());
}

ZyrResult ZyrBasFormatDouble(ZyrBasString& out, double value, char16_t conversion, int precision,
                             bool forceExponentSign) {
  if (conversion != u'e' && conversion != u'E' && conversion != u'f' && conversion != u'g' &&
      conversion != u'G')
    return ZYR_E_INVALID_ARGUMENT;
  ZyrBasFormatSpec spec{};
  spec.conversion = conversion;
  spec.upper = conversion == u'E' || conversion == u'G';
  spec.forceExponentSign = forceExponentSign ? 1 : 0;
  spec.hasPrecision = precision >= 0 ? 1 : 0;
  spec.precision = precision >= 0 ? precision : 0;
  char16_t body[kFloatBodyMax + 1];
  bool negative;
  std::size_t length = FloatBody(spec, value, body + 1, &negative);
  if (negative) {
    body[0] = u'-';
    return out.Append(body, length + 1);
  }
  return out.Append(body + 1, length);
}
