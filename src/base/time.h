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

// Stamps: a reading of the cheapest clock there is, taken where the time
// of an event must be kept at once and made into a time later, on another
// thread. Where the system keeps its own time by the processor's cycle
// counter, a stamp is that counter, read without a call into the system's
// clock; elsewhere a stamp is the time itself. ZyrBasStampStart must have
// run once in the process before the first stamp.
void ZyrBasStampStart();
std::uint64_t ZyrBasStamp();

// Turns stamps into times, by the relation of counter and clock read at
// the last Anchor; the counter's rate is measured once for the process, on
// a baseline of at least 20 ms from ZyrBasStampStart, and the first Anchor
// of the process waits for that much if it must. Not for use by two
// threads at once.
class ZyrBasStampClock {
 public:
  void Anchor();
  std::uint64_t TimeOf(std::uint64_t stamp) const {
    if (!cycles_) return stamp;
    std::int64_t counts = static_cast<std::int64_t>(anchorCount_ - stamp);
    return anchorTime_ - static_cast<std::int64_t>(static_cast<double>(counts) * ticksPerCount_);
  }

 private:
  bool cycles_ = false;
  std::uint64_t anchorCount_ = 0;
  std::uint64_t anchorTime_ = 0;
  double ticksPerCount_ = 0;
};

// 0; ZYR_I_TIME_OUT_OF_RANGE for ZYR_TIME_NONE (fields of 1600-12-31);
// ZYR_E_TIME_OUT_OF_RANGE below 1970 or beyond what NT time can hold.
ZyrResult ZyrBasTimeToFields(ZyrBasTimeFields& fields, std::uint64_t time);
// The inverse; the day of the week is not read. The fields of 1600-12-31
// 00:00:00 give ZYR_TIME_NONE with ZYR_I_TIME_OUT_OF_RANGE; a year before
// 1970 ZYR_E_TIME_OUT_OF_RANGE; fields that name no instant (month 13,
// April 31, hour 24, ...) ZYR_E_INVALID_ARGUMENT.
ZyrResult ZyrBasTimeFromFields(const ZyrBasTimeFields& fields, std::uint64_t* time);

#endif
