#include "base/random.h"

#include <atomic>

#include "base/lock.h"
#include "base/os/random_os.h"

namespace {

constexpr std::uint64_t kMask = 0xffffffffffffull;

// Zero-initialised statics: usable before any constructor has run.
ZyrBasSpinLock gLock;
std::uint64_t gState = kZyrBasRandomStart;
std::atomic<bool> gSeeded{false};

inline std::uint64_t Step(std::uint64_t s) { return (s * 25214903917ull + 11) & kMask; }

}  // namespace

std::uint32_t ZyrBasRandomStepState(std::uint64_t& state) {
  state = Step(state);
  return static_cast<std::uint32_t>(state >> 16);
}

void ZyrBasRandomFillState(std::uint64_t& state, void* out, std::size_t count) {
  unsigned char* p = static_cast<unsigned char*>(out);
  std::size_t odd = count % 4;
  if (odd) {
    std::uint32_t v = ZyrBasRandomStepState(state);
    for (std::size_t j = 0; j < odd; ++j) *p++ = static_cast<unsigned char>(v >> (8 * (4 - odd + j)));
  }
  for (std::size_t i = odd; i < count; i += 4) {
    std::uint32_t v = ZyrBasRandomStepState(state);
    for (int j = 0; j < 4; ++j) *p++ = static_cast<unsigned char>(v >> (8 * j));
  }
}

void ZyrBasRandomStirState(std::uint64_t& state, const void* bytes, std::size_t count) {
  const unsigned char* p = static_cast<const unsigned char*>(bytes);
  for (std::size_t i = 0; i < count; ++i) state = (Step(state) + p[i]) & kMask;
}

void ZyrBasRandomSeed() {
  if (gSeeded.load(std::memory_order_acquire)) return;
  // Gathered outside the lock: it takes system calls.
  unsigned char material[128];
  std::size_t n = ZyrBasOsSeedMaterial(material, sizeof material);
  ZyrBasSpinGuard guard(gLock);
  if (gSeeded.load(std::memory_order_relaxed)) return;  // another thread was first
  ZyrBasRandomStirState(gState, material, n);
  gSeeded.store(true, std::memory_order_release);
}

std::uint32_t ZyrBasRandomStep() {
  ZyrBasRandomSeed();
  ZyrBasSpinGuard guard(gLock);
  return ZyrBasRandomStepState(gState);
}

void ZyrBasRandomBytes(void* out, std::size_t count) {
  ZyrBasRandomSeed();
  ZyrBasSpinGuard guard(gLock);
  ZyrBasRandomFillState(gState, out, count);
}

void ZyrBasRandomForkPrepare() { gLock.Acquire(); }
void ZyrBasRandomForkParent() { gLock.Release(); }

void ZyrBasRandomForkChild() {
  // The lock word was taken by the forking thread, which is this one here.
  unsigned char material[128];
  std::size_t n = ZyrBasOsSeedMaterial(material, sizeof material);
  ZyrBasRandomStirState(gState, material, n);
  gSeeded.store(true, std::memory_order_release);
  gLock.Release();
}
