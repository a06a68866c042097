// Number text of configuration values: decimal, or hexadecimal behind "0x"
// or "0X". Reading stops at the first character that is no digit of the
// base, and what was read counts ("100MB" is 100, "abc" is 0); on overflow
// the value before it stands. Empty text is 0.
#ifndef ZYR_CONFIG_NUMBER_H
#define ZYR_CONFIG_NUMBER_H

#include <cstdint>

#include "base/string.h"
#include "zyrlog/result.h"

// A leading "-" gives ZYR_E_INVALID_ARGUMENT.
ZyrResult ZyrCfgParseUnsigned(const ZyrBasString& text, std::uint64_t* value);
// A leading "-" negates, the prefix comes behind it; hexadecimal without a
// sign reads with the limits of an unsigned number.
ZyrResult ZyrCfgParseSigned(const ZyrBasString& text, std::int64_t* value);

#endif
