#include "base/os/random_os.h"

#include <sys/auxv.h>
#include <sys/random.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

namespace {

std::uint32_t Reverse32(std::uint32_t v) {
  std::uint32_t r = 0;
  for (int i = 0; i < 32; ++i, v >>= 1) r = (r << 1) | (v & 1);
  return r;
}

struct Writer {
  unsigned char* p;
  std::size_t capacity;
  std::size_t used = 0;
  void Put(const void* bytes, std::size_t n) {
    if (n > capacity - used) n = capacity - used;
    std::memcpy(p + used, bytes, n);
    used += n;
  }
};

}  // namespace

// In this order:
// 1. Four bytes: the process id with its bits reversed, XOR the thread id,
//    the coarse millisecond tick, and both halves of a stack address (which
//    address space randomisation moves from run to run).
// 2. Both clocks, real time and monotonic, to the nanosecond (16 bytes each).
// 3. The 16 bytes that the kernel hands every new process (AT_RANDOM).
// 4. 32 bytes of the kernel's random pool, without waiting for it to fill.
// 5. The CPU time of the process so far (16 bytes).
std::size_t ZyrBasOsSeedMaterial(unsigned char* buffer, std::size_t capacity) {
  Writer w{buffer, capacity};
  int onStack = 0;
  std::uintptr_t address = reinterpret_cast<std::uintptr_t>(&onStack);
  struct timespec ts;
  std::uint32_t tick = 0;
  if (clock_gettime(CLOCK_MONOTONIC_COARSE, &ts) == 0)
    tick = static_cast<std::uint32_t>(ts.tv_sec * 1000 + ts.tv_nsec / 1000000);
  std::uint32_t mixed = Reverse32(static_cast<std::uint32_t>(getpid())) ^
                        static_cast<std::uint32_t>(gettid()) ^ tick ^
                        static_cast<std::uint32_t>(address) ^
                        static_cast<std::uint32_t>(static_cast<std::uint64_t>(address) >> 32);
  w.Put(&mixed, sizeof mixed);

  if (clock_gettime(CLOCK_REALTIME, &ts) == 0) w.Put(&ts, sizeof ts);
  if (clock_gettime(CLOCK_MONOTONIC, &ts) == 0) w.Put(&ts, sizeof ts);

  if (const void* atRandom = reinterpret_cast<const void*>(getauxval(AT_RANDOM))) w.Put(atRandom, 16);

  unsigned char pool[32];
  ssize_t got = getrandom(pool, sizeof pool, GRND_NONBLOCK);
  if (got > 0) w.Put(pool, static_cast<std::size_t>(got));

  if (clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts) == 0) w.Put(&ts, sizeof ts);
  return w.used;
}
