// Small pieces that both rolling appenders share: decimal text of their
// counts, in rolled names and in saved configuration.
#ifndef ZYR_APPENDER_ROLLING_COMMON_H
#define ZYR_APPENDER_ROLLING_COMMON_H

#include <cstdint>

#include "zyrlog/result.h"

class ZyrCfgSection;

// Writes the decimal digits of `value` backwards, ending just before
// `end`; returns the first digit.
char16_t* ZyrLogDecimal(char16_t* end, std::uint64_t value);
// Sets `key` to the decimal text of the magnitude, with "-" if negative.
ZyrResult ZyrLogSetDecimal(ZyrCfgSection& section, const char16_t* key, std::uint64_t magnitude,
                           bool negative);

#endif
