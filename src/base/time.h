// Time of the library: NT time (UTC, 100-nanosecond units since
// 1601-01-01), the millisecond tick, and the split of a time into calendar
// fields and back. Everything is UTC; no time zone is ever applied.
#ifndef ZYR_BASE_TIME_H
#define ZYR_BASE_TIME_H

#include <cstdint>

#include "zyrlog/result.h"

// 1970-01-01 00:00:00, the earliest time that splits into fields.
inline constexpr std::uint64_t ZYR_TIME_EARLIEST = 0x19db1ded53e8000ull;
// No time at all; splits into 1600-12-31 00:00:00.
inline constexpr std::uint64_t ZYR_TIME_NONE = 0xffffffffffffffffull;

struct ZyrBasTimeFields {
  std::uint16_t year;
  std::uint16_t month;      // 1 to 12
  std::uint16_t dayOfWeek;  // 0 Sunday to 6 Saturday
  std::uint16_t day;        // 1 to 31
  std::uint16_t hour;
  std::uint16_t minute;
  std::uint16_t second;
  std::uint16_t millisecond;
  std::uint16_t microsecond;  // (time / 10) % 1000
  std::uint16_t nanosecond;   // (time % 10) * 100
};

// The current UTC time: the system clock, moved by the test offset.
std::uint64_t ZyrBasSystemTime();
// For tests only, never set by the library: every later ZyrBasSystemTime
// answers the system clock plus `offset` (100-nanosecond units, may be
// negative; 0 is the real clock), so that a test can bring the clock to
// the edge of a day without waiting for it. A forked child inherits it.
void ZyrBasTestSetClockOffset(std::int64_t offset);
// Milliseconds of a monotonic clock, wrapping at 32 bits.
std::uint32_t ZyrBasTickCount();

// 0; ZYR_I_TIME_OUT_OF_RANGE for ZYR_TIME_NONE (fields of 1600-12-31);
// ZYR_E_TIME_OUT_OF_RANGE below 1970 or beyond what NT time can hold.
ZyrResult ZyrBasTimeToFields(ZyrBasTimeFields& fields, std::uint64_t time);
// The inverse; the day of the week is not read. The fields of 1600-12-31
// 00:00:00 give ZYR_TIME_NONE with ZYR_I_TIME_OUT_OF_RANGE; a year before
// 1970 ZYR_E_TIME_OUT_OF_RANGE; fields that name no instant (month 13,
// April 31, hour 24, ...) ZYR_E_INVALID_ARGUMENT.
ZyrResult ZyrBasTimeFromFields(const ZyrBasTimeFields& fields, std::uint64_t* time);

#endif
