#include "base/lock.h"

#include "base/os/sync_os.h"

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
