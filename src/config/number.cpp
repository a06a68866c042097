#include "config/number.h"

namespace {

int DigitValue(char16_t c, unsigned base) {
  int v = -1;
  if (c >= u'0' && c <= u'9') v = c - u'0';
  else if (c >= u'a' && c <= u'f') v = c - u'a' + 10;
  else if (c >= u'A' && c <= u'F') v = c - u'A' + 10;
  return v >= 0 && static_cast<unsigned>(v) < base ? v : -1;
}

// Reads digits from `p`; stops at a non-digit or before `limit` would be
// passed.
std::uint64_t ReadDigits(const char16_t* p, const char16_t* end, unsigned base, std::uint64_t limit) {
  std::uint64_t value = 0;
  for (; p < end; ++p) {
    int d = DigitValue(*p, base);
    if (d < 0) break;
    if (value > (limit - static_cast<std::uint64_t>(d)) / base) break;
    value = value * base + static_cast<std::uint64_t>(d);
  }
  return value;
}

// Base and start of the digits: "0x" needs at least one more character.
unsigned BaseOf(const char16_t*& p, const char16_t* end) {
  if (end - p > 2 && p[0] == u'0' && (p[1] == u'x' || p[1] == u'X')) {
    p += 2;
    return 16;
  }
  return 10;
}

}  // namespace

ZyrResult ZyrCfgParseUnsigned(const ZyrBasString& text, std::uint64_t* value) {
  const char16_t* p = text.Text();
  const char16_t* end = p + text.Length();
  if (p < end && *p == u'-') return ZYR_E_INVALID_ARGUMENT;
  unsigned base = BaseOf(p, end);
  *value = ReadDigits(p, end, base, UINT64_MAX);
  return ZYR_OK;
}

ZyrResult ZyrCfgParseSigned(const ZyrBasString& text, std::int64_t* value) {
  const char16_t* p = text.Text();
  const char16_t* end = p + text.Length();
  bool negative = p < end && *p == u'-';
  if (negative) ++p;
  unsigned base = BaseOf(p, end);
  if (negative) {
    std::uint64_t magnitude = ReadDigits(p, end, base, static_cast<std::uint64_t>(INT64_MAX) + 1);
    *value = static_cast<std::int64_t>(0 - magnitude);
  } else {
    std::uint64_t limit = base == 16 ? UINT64_MAX : static_cast<std::uint64_t>(INT64_MAX);
    *value = static_cast<std::int64_t>(ReadDigits(p, end, base, limit));
  }
  return ZYR_OK;
}
