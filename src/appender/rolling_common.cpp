#include "appender/rolling_common.h"

#include "config/document.h"

char16_t* ZyrLogDecimal(char16_t* end, std::uint64_t value) {
  do {
    *--end = static_cast<char16_t>(u'0' + value % 10);
    value /= 10;
  } while (value != 0);
  return end;
}

ZyrResult ZyrLogSetDecimal(ZyrCfgSection& section, const char16_t* key, std::uint64_t magnitude,
                           bool negative) {
  char16_t text[24];
  char16_t* end = text + 23;
  *end = 0;
  char16_t* first = ZyrLogDecimal(end, magnitude);
  if (negative) *--first = u'-';
  return section.SetValue(key, first);
}
