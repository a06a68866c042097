#include "base/lock.h"

#include "base/os/sync_os.h"

void ZyrBasBriefLock::AcquireContended() {
  // About a microsecond of spinning covers a holder that runs; after that
  // the holder has most likely lost its processor, which it gets back
  // sooner when the spinners give theirs up.
  constexpr int kSpins = 128;
  for (int spins = 0;; ++spins) {
    if (word.load(std::memory_order_relaxed) == 0 &&
        word.exchange(1, std::memory_order_acquire) == 0)
      return;
    if (spins < kSpins) ZyrBasSpinPause();
    else ZyrBasYield();
  }
}

void ZyrBasSpinLock::Acquire() {
  for (;;) {
    std::uint32_t expected = 0;
    if (word.compare_exchange_strong(expected, 1, std::memory_order_acquire)) return;
    if (delayMs == 0) {
      ZyrBasYield();
    } else {
      // All ones would be an untimed delay, which could never end here; it
      // sleeps one second between attempts instead.
      ZyrBasOsSleep(delayMs == 0xffffffffu ? 1000 : delayMs);
    }
  }
}
