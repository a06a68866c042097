// ZyrBasLazyHolder: the lock-free holder of a singleton that dies with its
// last user. Two words with static storage: a count of references (held and
// in the making) and a state word holding the object pointer with two marks:
// bit 0, the pointer is published and usable; bit 1, the last reference is
// going away. Acquire and Release never block, so Release can run from a
// destructor at process exit, and a thread that arrives during the last
// Release either keeps the object alive or makes a new one.
#ifndef ZYR_BASE_LAZY_HOLDER_H
#define ZYR_BASE_LAZY_HOLDER_H

#include <atomic>
#include <cstdint>

#include "zyrlog/result.h"

struct ZyrBasLazyHolder {
  typedef ZyrResult (*Creator)(void** object);
  typedef void (*Destroyer)(void* object);

  std::atomic<std::uint32_t> references{0};
  std::atomic<std::uintptr_t> state{0};

  // Takes a reference; makes the object with `create` when none is held.
  ZyrResult Acquire(Creator create, Destroyer destroy, void** object);
  // Gives one reference back; the last one destroys `object`.
  void Release(void* object, Destroyer destroy);
};

#endif
