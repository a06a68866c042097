// The library's clock in tests: NT times from calendar fields, and the
// test offset of the clock.
#ifndef ZYR_TESTS_CLOCK_SUPPORT_H
#define ZYR_TESTS_CLOCK_SUPPORT_H

#include <gtest/gtest.h>

#include <cstdint>

#include "base/time.h"

namespace zyrtest {

inline constexpr std::int64_t kSecond = 10000000;
inline constexpr std::int64_t kDay = 86400 * kSecond;

inline std::int64_t UtcTime(int year, int month, int day, int hour = 0, int minute = 0,
                            int second = 0, int millisecond = 0) {
  ZyrBasTimeFields f{};
  f.year = static_cast<std::uint16_t>(year);
  f.month = static_cast<std::uint16_t>(month);
  f.day = static_cast<std::uint16_t>(day);
  f.hour = static_cast<std::uint16_t>(hour);
  f.minute = static_cast<std::uint16_t>(minute);
  f.second = static_cast<std::uint16_t>(second);
  f.millisecond = static_cast<std::uint16_t>(millisecond);
  std::uint64_t t = 0;
  EXPECT_EQ(ZyrBasTimeFromFields(f, &t), ZYR_OK);
  return static_cast<std::int64_t>(t);
}

// The library's clock reads `time` now and runs on from there.
inline void SetClock(std::int64_t time) {
  ZyrBasTestSetClockOffset(0);
  ZyrBasTestSetClockOffset(time - static_cast<std::int64_t>(ZyrBasSystemTime()));
}

}  // namespace zyrtest

#endif
