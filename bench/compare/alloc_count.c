// Counting malloc family: each replacement forwards to the C library's own
// entry points, so behaviour is unchanged, and adds one to a counter of the
// calling thread. Per-thread slots on their own cache lines keep writers from
// sharing a line; the sum is read between measurements.
#define _GNU_SOURCE
#include "alloc_count.h"

#include <errno.h>
#include <stdatomic.h>
#include <stddef.h>

extern void* __libc_malloc(size_t size);
extern void* __libc_calloc(size_t count, size_t size);
extern void* __libc_realloc(void* block, size_t size);
extern void* __libc_memalign(size_t alignment, size_t size);
extern void __libc_free(void* block);

enum { kSlots = 64 };

struct Slot {
  _Atomic uint64_t count;
  char pad[64 - sizeof(uint64_t)];
};

static struct Slot g_slots[kSlots];
static _Atomic unsigned g_nextSlot;
// Static TLS of the executable: reading it never allocates.
static _Thread_local int t_slot = -1;

static inline void Count(void) {
  int slot = t_slot;
  if (slot < 0) {
    slot = (int)(atomic_fetch_add_explicit(&g_nextSlot, 1, memory_order_relaxed) % kSlots);
    t_slot = slot;
  }
  // Slots are shared only past 64 threads; an atomic add keeps the count
  // right even then, and is uncontended otherwise.
  atomic_fetch_add_explicit(&g_slots[slot].count, 1, memory_order_relaxed);
}

uint64_t ZyrBenchAllocations(void) {
  uint64_t sum = 0;
  for (int i = 0; i < kSlots; ++i) sum += atomic_load_explicit(&g_slots[i].count, memory_order_relaxed);
  return sum;
}

void* malloc(size_t size) {
  Count();
  return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
  Count();
  return __libc_calloc(count, size);
}

void* realloc(void* block, size_t size) {
  Count();
  return __libc_realloc(block, size);
}

void free(void* block) { __libc_free(block); }

void* memalign(size_t alignment, size_t size) {
  Count();
  return __libc_memalign(alignment, size);
}

void* aligned_alloc(size_t alignment, size_t size) {
  Count();
  return __libc_memalign(alignment, size);
}

int posix_memalign(void** out, size_t alignment, size_t size) {
  if (alignment < sizeof(void*) || (alignment & (alignment - 1)) != 0) return EINVAL;
  Count();
  void* block = __libc_memalign(alignment, size);
  if (!block) return ENOMEM;
  *out = block;
  return 0;
}
