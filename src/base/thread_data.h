// Per-thread data of a trivially destructible type, made at a thread's first
// use and gone with the thread. ZYR_THREAD_DATA(Type, name) defines `name`;
// name.Get() answers the calling thread's block, or null without memory.
//
// The platform layer picks the form (its layer.h defines the macro): the
// language's thread_local where the runtime gives it without allocating,
// a few instructions on the message road; else a slot of base/tls.h with a
// block of the heap, freed by the slot's cleanup.
#ifndef ZYR_BASE_THREAD_DATA_H
#define ZYR_BASE_THREAD_DATA_H

#include <atomic>
#include <cstdint>
#include <new>
#include <type_traits>

#include "base/memory.h"
#include "base/tls.h"
#include ZYR_PLATFORM_LAYER

template <class T>
struct ZyrBasThreadLocalData {
  static_assert(std::is_trivially_destructible_v<T>, "a thread's end runs no destructor");
  T value;
  T* Get() { return &value; }
};

template <class T>
class ZyrBasThreadSlotData {
  static_assert(std::is_trivially_destructible_v<T>, "a thread's end frees the block only");

 public:
  T* Get() {
    std::uint32_t index = index_.load(std::memory_order_acquire);
    if (index == ZYR_TLS_NONE && (index = MakeSlot()) == ZYR_TLS_NONE) return nullptr;
    if (void* held = ZyrBasTlsGet(index)) return static_cast<T*>(held);
    T* fresh = ZyrNew<T>();
    if (fresh && ZyrFailed(ZyrBasTlsSet(index, fresh))) {
      ZyrBasFree(fresh);
      fresh = nullptr;
    }
    return fresh;
  }

 private:
  static void Free(void* block) { ZyrBasFree(block); }
  // The first thread to get a slot installs it; one that lost the race
  // gives its own back.
  std::uint32_t MakeSlot() {
    std::uint32_t mine = ZYR_TLS_NONE;
    if (ZyrFailed(ZyrBasTlsAlloc(&mine, &Free))) return ZYR_TLS_NONE;
    std::uint32_t expected = ZYR_TLS_NONE;
    if (index_.compare_exchange_strong(expected, mine, std::memory_order_acq_rel)) return mine;
    (void)ZyrBasTlsFree(mine);
    return expected;
  }

  std::atomic<std::uint32_t> index_{ZYR_TLS_NONE};
};

#endif
