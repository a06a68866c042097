#include <gtest/gtest.h>

#include <time.h>

#include <chrono>
#include <random>
#include <thread>
#include <vector>

#include "base/time.h"

namespace {

std::uint64_t FromUnix(std::int64_t seconds, std::uint32_t ticks = 0) {
  return 116444736000000000ull + static_cast<std::uint64_t>(seconds) * 10000000ull + ticks;
}

// Year, month, day, hour, minute, second, millisecond, day of the week.
std::vector<int> Fields(const ZyrBasTimeFields& f) {
  return {f.year, f.month, f.day, f.hour, f.minute, f.second, f.millisecond, f.dayOfWeek};
}

TEST(TimeSplit, EdgesOfTheRangeAndTheNoTimeSentinel) {
  ZyrBasTimeFields f;
  ASSERT_EQ(ZyrBasTimeToFields(f, ZYR_TIME_EARLIEST), ZYR_OK);
  EXPECT_EQ(Fields(f), (std::vector<int>{1970, 1, 1, 0, 0, 0, 0, 4}));  // a Thursday
  for (std::uint64_t t : {std::uint64_t{ZYR_TIME_EARLIEST} - 1, std::uint64_t{0}, std::uint64_t{1} << 63})
    EXPECT_EQ(ZyrBasTimeToFields(f, t), ZYR_E_TIME_OUT_OF_RANGE) << t;

  std::uint64_t t = 0;
  ZyrBasTimeFields g = {1969, 12, 0, 31, 23, 59, 59, 999, 0, 0};
  EXPECT_EQ(ZyrBasTimeFromFields(g, &t), ZYR_E_TIME_OUT_OF_RANGE);
  g = {1970, 1, 0, 1, 0, 0, 0, 0, 0, 0};
  ASSERT_EQ(ZyrBasTimeFromFields(g, &t), ZYR_OK);
  EXPECT_EQ(t, ZYR_TIME_EARLIEST);

  ASSERT_EQ(ZyrBasTimeToFields(f, ZYR_TIME_NONE), ZYR_I_TIME_OUT_OF_RANGE);
  EXPECT_EQ(Fields(f), (std::vector<int>{1600, 12, 31, 0, 0, 0, 0, 0}));
  EXPECT_EQ(ZyrBasTimeFromFields(f, &t), ZYR_I_TIME_OUT_OF_RANGE);
  EXPECT_EQ(t, ZYR_TIME_NONE);
}

TEST(TimeSplit, SubMillisecondDigitsAreCutNotRounded) {
  // 2014-11-03 09:41:07 UTC, a Monday, plus 0.9999999 s: one tick short
  // of the next second must not roll into it.
  ZyrBasTimeFields f;
  ASSERT_EQ(ZyrBasTimeToFields(f, FromUnix(1415007667, 9999999)), ZYR_OK);
  EXPECT_EQ(Fields(f), (std::vector<int>{2014, 11, 3, 9, 41, 7, 999, 1}));
  EXPECT_EQ(f.microsecond, 999);
  EXPECT_EQ(f.nanosecond, 900);
  std::uint64_t back = 0;
  ASSERT_EQ(ZyrBasTimeFromFields(f, &back), ZYR_OK);
  EXPECT_EQ(back, FromUnix(1415007667, 9999999));
}

TEST(TimeSplit, FieldsThatNameNoInstant) {
  const ZyrBasTimeFields good = {2020, 6, 0, 15, 10, 20, 30, 400, 0, 0};
  std::uint64_t t;
  ASSERT_EQ(ZyrBasTimeFromFields(good, &t), ZYR_OK);
  auto bad = [&](auto change) {
    ZyrBasTimeFields f = good;
    change(f);
    return ZyrBasTimeFromFields(f, &t);
  };
  EXPECT_EQ(bad([](ZyrBasTimeFields& f) { f.month = 0; }), ZYR_E_INVALID_ARGUMENT);
  EXPECT_EQ(bad([](ZyrBasTimeFields& f) { f.month = 13; }), ZYR_E_INVALID_ARGUMENT);
  EXPECT_EQ(bad([](ZyrBasTimeFields& f) { f.day = 0; }), ZYR_E_INVALID_ARGUMENT);
  EXPECT_EQ(bad([](ZyrBasTimeFields& f) { f.month = 4, f.day = 31; }), ZYR_E_INVALID_ARGUMENT);
  // February 29th only in leap years: 2024 and 2000, not 2023 and 2100.
  EXPECT_EQ(bad([](ZyrBasTimeFields& f) { f.year = 2024, f.month = 2, f.day = 29; }), ZYR_OK);
  EXPECT_EQ(bad([](ZyrBasTimeFields& f) { f.year = 2000, f.month = 2, f.day = 29; }), ZYR_OK);
  EXPECT_EQ(bad([](ZyrBasTimeFields& f) { f.year = 2023, f.month = 2, f.day = 29; }), ZYR_E_INVALID_ARGUMENT);
  EXPECT_EQ(bad([](ZyrBasTimeFields& f) { f.year = 2100, f.month = 2, f.day = 29; }), ZYR_E_INVALID_ARGUMENT);
  EXPECT_EQ(bad([](ZyrBasTimeFields& f) { f.hour = 24; }), ZYR_E_INVALID_ARGUMENT);
  EXPECT_EQ(bad([](ZyrBasTimeFields& f) { f.second = 60; }), ZYR_E_INVALID_ARGUMENT);
  EXPECT_EQ(bad([](ZyrBasTimeFields& f) { f.millisecond = 1000; }), ZYR_E_INVALID_ARGUMENT);
  EXPECT_EQ(bad([](ZyrBasTimeFields& f) { f.year = 30828; }), ZYR_E_INVALID_ARGUMENT);
  // The day of the week is not read.
  EXPECT_EQ(bad([](ZyrBasTimeFields& f) { f.dayOfWeek = 6; }), ZYR_OK);
}

// The C library's UTC split is an independent oracle over the whole range
// that it and the log share: it covers leap years and month ends.
TEST(TimeSplit, AgreesWithTheCLibraryAndRoundTrips) {
  std::mt19937_64 random(12345);
  std::uniform_int_distribution<std::int64_t> seconds(0, 253402300799);  // to 9999-12-31
  for (int i = 0; i < 20000; ++i) {
    std::int64_t s = seconds(random);
    std::uint32_t ticks = static_cast<std::uint32_t>(random() % 10000000);
    time_t tt = static_cast<time_t>(s);
    struct tm tm;
    ASSERT_NE(gmtime_r(&tt, &tm), nullptr);
    ZyrBasTimeFields f;
    ASSERT_EQ(ZyrBasTimeToFields(f, FromUnix(s, ticks)), ZYR_OK);
    ASSERT_EQ(Fields(f), (std::vector<int>{tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min,
                                           tm.tm_sec, static_cast<int>(ticks / 10000), tm.tm_wday}))
        << s;
    std::uint64_t back = 0;
    ASSERT_EQ(ZyrBasTimeFromFields(f, &back), ZYR_OK);
    ASSERT_EQ(back, FromUnix(s, ticks));
  }
}

TEST(TimeClock, SystemTimeIsUtcNowAndTickAdvances) {
  std::uint64_t now = ZyrBasSystemTime();
  std::uint64_t expected = FromUnix(static_cast<std::int64_t>(::time(nullptr)));
  std::uint64_t diff = now > expected ? now - expected : expected - now;
  EXPECT_LT(diff, 20000000ull);  // within two seconds

  std::uint32_t before = ZyrBasTickCount();
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  std::uint32_t elapsed = ZyrBasTickCount() - before;
  EXPECT_GE(elapsed, 30u);  // the coarse clock may lag by a few milliseconds
  EXPECT_LT(elapsed, 5000u);
}

// A stamp becomes the time at which it was taken: fresh, or taken before a
// pause and converted after it, and with the test offset of the moment of
// conversion. Tolerances are wide enough for a preempted thread, far below
// the millisecond that a line shows.
TEST(TimeClock, StampsBecomeTheTimeTheyWereTakenAt) {
  ZyrBasStampStart();
  ZyrBasStampClock clock;
  for (int pause : {0, 60}) {
    std::uint64_t before = ZyrBasSystemTime();
    std::uint64_t stamp = ZyrBasStamp();
    std::uint64_t after = ZyrBasSystemTime();
    std::this_thread::sleep_for(std::chrono::milliseconds(pause));
    clock.Anchor();
    std::uint64_t time = clock.TimeOf(stamp);
    EXPECT_GE(time + 2000, before) << "pause " << pause;  // 200 us
    EXPECT_LE(time, after + 2000) << "pause " << pause;
  }
  std::uint64_t stamp = ZyrBasStamp();
  ZyrBasTestSetClockOffset(864000000000ll);  // a day ahead
  clock.Anchor();
  std::uint64_t time = clock.TimeOf(stamp);
  ZyrBasTestSetClockOffset(0);
  std::uint64_t now = ZyrBasSystemTime();
  EXPECT_GT(time, now + 863990000000ull);
}

}  // namespace
