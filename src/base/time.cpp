#include "base/time.h"

#include <atomic>

#include "base/lock.h"
#include "base/os/time_os.h"

namespace {

constexpr std::uint64_t kTicksPerSecond = 10000000ull;
constexpr std::uint64_t kTicksPerDay = 86400ull * kTicksPerSecond;
// The largest NT time is a signed 64-bit number; its last whole year is 30827.
constexpr std::uint64_t kTimeLimit = 0x7fffffffffffffffull;
constexpr std::uint16_t kLastYear = 30827;

// Days since 1970-01-01 to the civil date, for days >= 0: the proleptic
// Gregorian calendar counted in 400-year eras that start on March 1, so
// that the leap day ends its year.
void CivilFromDays(std::uint64_t days, std::uint32_t* year, std::uint32_t* month,
                   std::uint32_t* day) {
  std::uint64_t z = days + 719468;  // days since 0000-03-01
  std::uint64_t era = z / 146097;
  std::uint32_t doe = static_cast<std::uint32_t>(z - era * 146097);            // 0..146096
  std::uint32_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;   // 0..399
  std::uint32_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);                 // 0..365
  std::uint32_t mp = (5 * doy + 2) / 153;                                      // 0 = March
  *day = doy - (153 * mp + 2) / 5 + 1;
  *month = mp < 10 ? mp + 3 : mp - 9;
  *year = static_cast<std::uint32_t>(yoe + era * 400) + (*month <= 2 ? 1 : 0);
}

// The inverse, for years >= 1970.
std::uint64_t DaysFromCivil(std::uint32_t year, std::uint32_t month, std::uint32_t day) {
  std::uint32_t y = month <= 2 ? year - 1 : year;
  std::uint32_t era = y / 400;
  std::uint32_t yoe = y - era * 400;
  std::uint32_t mp = month > 2 ? month - 3 : month + 9;
  std::uint32_t doy = (153 * mp + 2) / 5 + day - 1;
  std::uint32_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return static_cast<std::uint64_t>(era) * 146097 + doe - 719468;
}

bool IsLeap(std::uint32_t year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

std::uint32_t DaysInMonth(std::uint32_t year, std::uint32_t month) {
  static const std::uint8_t kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && IsLeap(year) ? 29 : kDays[month - 1];
}

// Read at every clock reading: a relaxed load of a word that nobody writes
// outside tests, so it stays in every core's cache.
std::atomic<std::int64_t> g_clockOffset{0};

// The process's stamps: whether they count cycles, and the counter's rate,
// measured once from the reading that ZyrBasStampStart takes.
constexpr std::uint32_t kStampsUnknown = 0, kStampsCycles = 1, kStampsTime = 2;
std::atomic<std::uint32_t> g_stampKind{kStampsUnknown};
ZyrBasSpinLock g_stampLock;
std::uint64_t g_stampBaseCount = 0;
std::uint64_t g_stampBaseTime = 0;
std::atomic<double> g_ticksPerCount{0};
constexpr std::uint64_t kCalibrationTicks = kTicksPerSecond / 50;  // 20 ms

bool IsNoneFields(const ZyrBasTimeFields& f) {
  return f.year == 1600 && f.month == 12 && f.day == 31 && f.hour == 0 && f.minute == 0 &&
         f.second == 0 && f.millisecond == 0 && f.microsecond == 0 && f.nanosecond == 0;
}

}  // namespace

namespace {
// The system clock without the test offset.
std::uint64_t SystemClock() {
  std::int64_t seconds;
  std::uint32_t nanoseconds;
  ZyrBasOsWallClock(&seconds, &nanoseconds);
  return ZYR_TIME_EARLIEST + static_cast<std::uint64_t>(seconds) * kTicksPerSecond + nanoseconds / 100;
}
}  // namespace

namespace {
// Counter and clock read together: the clock between two counter readings
// that lie close, so that a thread preempted between the two clocks'
// readings does not skew the relation by its time off the processor.
void ReadPair(std::uint64_t* count, std::uint64_t* clock) {
  std::uint64_t closest = ~std::uint64_t{0};
  for (int attempt = 0; attempt < 16; ++attempt) {
    std::uint64_t before = ZyrBasOsCycleCounter();
    std::uint64_t time = SystemClock();
    std::uint64_t spread = ZyrBasOsCycleCounter() - before;
    if (spread < closest) {
      closest = spread;
      *count = before + spread / 2;
      *clock = time;
    }
    if (spread < 20000) return;  // some microseconds at most
  }
}
}  // namespace

std::uint64_t ZyrBasSystemTime() {
  return SystemClock() + static_cast<std::uint64_t>(g_clockOffset.load(std::memory_order_relaxed));
}

void ZyrBasStampStart() {
  if (g_stampKind.load(std::memory_order_acquire) != kStampsUnknown) return;
  ZyrBasSpinGuard guard(g_stampLock);
  if (g_stampKind.load(std::memory_order_relaxed) != kStampsUnknown) return;
  bool cycles = ZyrBasOsCycleCounterKeepsTime();
  if (cycles) {
    ReadPair(&g_stampBaseCount, &g_stampBaseTime);
  }
  g_stampKind.store(cycles ? kStampsCycles : kStampsTime, std::memory_order_release);
}

std::uint64_t ZyrBasStamp() {
  return g_stampKind.load(std::memory_order_relaxed) == kStampsCycles ? ZyrBasOsCycleCounter()
                                                                      : ZyrBasSystemTime();
}

void ZyrBasStampClock::Anchor() {
  cycles_ = g_stampKind.load(std::memory_order_acquire) == kStampsCycles;
  if (!cycles_) return;
  double rate = g_ticksPerCount.load(std::memory_order_acquire);
  std::uint64_t clock;
  ReadPair(&anchorCount_, &clock);
  if (rate == 0) {
    ZyrBasSpinGuard guard(g_stampLock);
    rate = g_ticksPerCount.load(std::memory_order_relaxed);
    if (rate == 0) {
      // A baseline of 20 ms at least: the two clock readings differ by some
      // 50 ns from their true relation, so the rate is good to a few parts
      // in a million, and a stamp a second old is placed within microseconds.
      while (clock - g_stampBaseTime < kCalibrationTicks) ReadPair(&anchorCount_, &clock);
      rate = static_cast<double>(clock - g_stampBaseTime) /
             static_cast<double>(anchorCount_ - g_stampBaseCount);
      g_ticksPerCount.store(rate, std::memory_order_release);
    }
  }
  ticksPerCount_ = rate;
  anchorTime_ = clock + static_cast<std::uint64_t>(g_clockOffset.load(std::memory_order_relaxed));
}

void ZyrBasTestSetClockOffset(std::int64_t offset) {
  g_clockOffset.store(offset, std::memory_order_relaxed);
}

std::uint32_t ZyrBasTickCount() { return static_cast<std::uint32_t>(ZyrBasOsMonotonicMs()); }

ZyrResult ZyrBasTimeToFields(ZyrBasTimeFields& f, std::uint64_t time) {
  if (time == ZYR_TIME_NONE) {
    // 1600-12-31 was a Sunday, the day before NT time begins on a Monday.
    f = ZyrBasTimeFields{1600, 12, 0, 31, 0, 0, 0, 0, 0, 0};
    return ZYR_I_TIME_OUT_OF_RANGE;
  }
  if (time < ZYR_TIME_EARLIEST || time > kTimeLimit) return ZYR_E_TIME_OUT_OF_RANGE;
  std::uint64_t t = time - ZYR_TIME_EARLIEST;
  std::uint64_t days = t / kTicksPerDay;
  std::uint64_t rest = t % kTicksPerDay;  // ticks into the day
  std::uint32_t seconds = static_cast<std::uint32_t>(rest / kTicksPerSecond);
  std::uint32_t ticks = static_cast<std::uint32_t>(rest % kTicksPerSecond);

  // Lines of one day share their date: the last one converted is kept in
  // one word (days, year, month, day), which threads may read and replace
  // at will, so the calendar arithmetic runs once a day, not once a line.
  static std::atomic<std::uint64_t> lastDate{0};
  std::uint32_t year, month, day;
  std::uint64_t cached = lastDate.load(std::memory_order_relaxed);
  if (cached != 0 && (cached >> 32) == days) {
    year = static_cast<std::uint32_t>(cached >> 16) & 0xffffu;
    month = static_cast<std::uint32_t>(cached >> 8) & 0xffu;
    day = static_cast<std::uint32_t>(cached) & 0xffu;
  } else {
    CivilFromDays(days, &year, &month, &day);
    // Days stay below 2^24 up to the last year, so all four fit.
    lastDate.store(days << 32 | static_cast<std::uint64_t>(year) << 16 | month << 8 | day,
                   std::memory_order_relaxed);
  }
  f.year = static_cast<std::uint16_t>(year);
  f.month = static_cast<std::uint16_t>(month);
  f.day = static_cast<std::uint16_t>(day);
  f.dayOfWeek = static_cast<std::uint16_t>((days + 4) % 7);  // 1970-01-01 was a Thursday
  f.hour = static_cast<std::uint16_t>(seconds / 3600);
  f.minute = static_cast<std::uint16_t>(seconds / 60 % 60);
  f.second = static_cast<std::uint16_t>(seconds % 60);
  f.millisecond = static_cast<std::uint16_t>(ticks / 10000);
  f.microsecond = static_cast<std::uint16_t>(ticks / 10 % 1000);
  f.nanosecond = static_cast<std::uint16_t>(ticks % 10 * 100);
  return ZYR_OK;
}

ZyrResult ZyrBasTimeFromFields(const ZyrBasTimeFields& f, std::uint64_t* time) {
  if (IsNoneFields(f)) {
    *time = ZYR_TIME_NONE;
    return ZYR_I_TIME_OUT_OF_RANGE;
  }
  if (f.year < 1970) return ZYR_E_TIME_OUT_OF_RANGE;
  if (f.year > kLastYear || f.month < 1 || f.month > 12 || f.day < 1 ||
      f.day > DaysInMonth(f.year, f.month) || f.hour > 23 || f.minute > 59 || f.second > 59 ||
      f.millisecond > 999 || f.microsecond > 999 || f.nanosecond > 999)
    return ZYR_E_INVALID_ARGUMENT;
  std::uint64_t days = DaysFromCivil(f.year, f.month, f.day);
  std::uint64_t seconds = days * 86400ull + f.hour * 3600u + f.minute * 60u + f.second;
  *time = ZYR_TIME_EARLIEST + seconds * kTicksPerSecond + f.millisecond * 10000u +
          f.microsecond * 10u + f.nanosecond / 100u;
  return ZYR_OK;
}
