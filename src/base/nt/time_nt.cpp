// The clocks from the shared user data page, read without a system call.
#include "base/nt/nt_support.h"
#include "base/os/time_os.h"

namespace {

// A KSYSTEM_TIME: low part, then the high part twice; the kernel writes
// the second high part first and the first last, so equal high parts mean
// a consistent reading.
std::uint64_t ReadSystemTime(std::size_t offset) {
  volatile std::uint8_t* page = reinterpret_cast<volatile std::uint8_t*>(kUserSharedData);
  for (;;) {
    std::int32_t high1 = *reinterpret_cast<volatile std::int32_t*>(page + offset + 4);
    std::uint32_t low = *reinterpret_cast<volatile std::uint32_t*>(page + offset);
    std::int32_t high2 = *reinterpret_cast<volatile std::int32_t*>(page + offset + 8);
    if (high1 == high2)
      return (static_cast<std::uint64_t>(static_cast<std::uint32_t>(high1)) << 32) | low;
  }
}

constexpr std::uint64_t kUnixEpoch = 0x19db1ded53e8000ull;  // 1970-01-01 in NT time

}  // namespace

void ZyrBasOsWallClock(std::int64_t* seconds, std::uint32_t* nanoseconds) {
  std::uint64_t t = ReadSystemTime(kUsdSystemTime) - kUnixEpoch;
  *seconds = static_cast<std::int64_t>(t / 10000000u);
  *nanoseconds = static_cast<std::uint32_t>(t % 10000000u) * 100u;
}

// Ticks times the multiplier, in 24-bit fixed point, are milliseconds.
std::uint64_t ZyrBasOsMonotonicMs() {
  std::uint32_t multiplier =
      *reinterpret_cast<volatile std::uint32_t*>(kUserSharedData + kUsdTickCountMultiplier);
  std::uint64_t ticks = ReadSystemTime(kUsdTickCount);
  return static_cast<std::uint64_t>((static_cast<unsigned __int128>(ticks) * multiplier) >> 24);
}

// Queued messages are stamped with the clock itself here: whether the
// counter keeps time is not asked of this system yet.
bool ZyrBasOsCycleCounterKeepsTime() { return false; }
std::uint64_t ZyrBasOsCycleCounter() { return 0; }
