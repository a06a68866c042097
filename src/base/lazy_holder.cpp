#include "base/lazy_holder.h"

namespace {
constexpr std::uintptr_t kPublished = 1;
constexpr std::uintptr_t kGoingAway = 2;
constexpr std::uintptr_t kMarks = kPublished | kGoingAway;

inline std::uintptr_t Pointer(std::uintptr_t s) { return s & ~kMarks; }
}  // namespace

ZyrResult ZyrBasLazyHolder::Acquire(Creator create, Destroyer destroy, void** object) {
  references.fetch_add(1);
  void* made = nullptr;
  std::uintptr_t s = state.load();
  for (;;) {
    if (Pointer(s) == 0) {
      if (!made) {
        ZyrResult r = create(&made);
        if (ZyrFailed(r)) {
          // Publish "nothing" so that the release below can settle the count.
          std::uintptr_t cur = state.load();
          while (Pointer(cur) == 0 && !(cur & kPublished) &&
                 !state.compare_exchange_weak(cur, cur | kPublished)) {
          }
          // If another thread's object stands meanwhile and this was the last
          // reference, nobody else will release it: release it as ours.
          Release(reinterpret_cast<void*>(Pointer(state.load())), destroy);
          return r;
        }
        s = state.load();
        continue;
      }
      std::uintptr_t desired = reinterpret_cast<std::uintptr_t>(made) | kPublished | (s & kGoingAway);
      if (state.compare_exchange_strong(s, desired)) {
        *object = made;
        return ZYR_OK;
      }
      continue;  // s holds the value found
    }
    if (s & kPublished) break;
    if (state.compare_exchange_strong(s, s | kPublished)) break;
  }
  // Another thread's object is in place: ours was never published.
  if (made) destroy(made);
  *object = reinterpret_cast<void*>(Pointer(s));
  return ZYR_OK;
}

void ZyrBasLazyHolder::Release(void* object, Destroyer destroy) {
  if (references.fetch_sub(1) != 1) return;
  std::uintptr_t mine = reinterpret_cast<std::uintptr_t>(object);
  for (;;) {
    // Mark the object as going away.
    std::uintptr_t expected = mine | kPublished;
    std::uintptr_t written;
    for (;;) {
      written = Pointer(expected) | kGoingAway;
      if (state.compare_exchange_strong(expected, written)) break;
      // Another object, or another thread already dealing with it: not ours.
      if ((Pointer(expected) != 0 && Pointer(expected) != mine) || (expected & kGoingAway)) return;
    }
    if (references.load() == 0) {
      std::uintptr_t w = written;
      if (state.compare_exchange_strong(w, 0)) {
        if (Pointer(written)) destroy(reinterpret_cast<void*>(Pointer(written)));
        return;
      }
    }
    // A new reference arrived in time: clear the marks and leave the object.
    std::uintptr_t cur = state.load();
    while (!state.compare_exchange_weak(cur, Pointer(cur))) {
    }
    if (references.load() != 0) return;
    mine = Pointer(cur);
  }
}
