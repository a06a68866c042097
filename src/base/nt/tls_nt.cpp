// Per-thread slots over the system's own thread-local storage: a bit of the
// PEB's bitmaps is a slot, the TEB holds the cells of the first 64, and a
// table of 1024 more cells per thread the rest. No subsystem library takes
// part, so the slots work in a process that has none.
//
// The system runs no cleanup at a thread's end: the module entry's thread
// detach calls ZyrBasTlsThreadDetach, which runs the cleanups of the slots
// made here with one.
#include <atomic>

#include "base/nt/nt_support.h"
#include "base/tls.h"

namespace {

constexpr std::uint32_t kTebSlots = 64;
constexpr std::uint32_t kExpansionSlots = 1024;
constexpr ULONG kThreadZeroTlsCell = 10;

// The slots with a cleanup, for thread detach. A fixed table: the library
// makes a handful of slots, and a full table is reported, never grown.
constexpr std::uint32_t kMaxCleanups = 32;
struct CleanupEntry {
  std::atomic<std::uint32_t> index;
  std::atomic<ZyrBasTlsCleanup> cleanup;
};
CleanupEntry g_cleanups[kMaxCleanups];  // index 0 is a real slot: entries are live while cleanup is set

RTL_BITMAP* Bitmap(bool expansion) {
  return NtField<RTL_BITMAP*>(NtPeb(), expansion ? kPebTlsExpansionBitmap : kPebTlsBitmap);
}

void** TebSlots() { return reinterpret_cast<void**>(NtTeb() + kTebTlsSlots); }
void**& ExpansionTable() { return NtField<void**>(NtTeb(), kTebTlsExpansionSlots); }

bool Held(std::uint32_t index) {
  if (index < kTebSlots) return RtlAreBitsSet(Bitmap(false), index, 1) != 0;
  return RtlAreBitsSet(Bitmap(true), index - kTebSlots, 1) != 0;
}

// The calling thread's cell of an expansion slot, making the table on first use.
ZyrResult ExpansionCell(std::uint32_t index, bool make, void*** cell) {
  *cell = nullptr;
  void** table = ExpansionTable();
  if (!table) {
    if (!make) return ZYR_OK;
    RtlAcquirePebLock();
    if (!ExpansionTable()) {
      ExpansionTable() = static_cast<void**>(
          RtlAllocateHeap(NtProcessHeap(), 0x8, kExpansionSlots * sizeof(void*)));
    }
    table = ExpansionTable();
    RtlReleasePebLock();
    if (!table) return ZYR_E_OUT_OF_MEMORY;
  }
  *cell = &table[index - kTebSlots];
  return ZYR_OK;
}

}  // namespace

ZyrResult ZyrBasTlsAlloc(std::uint32_t* index, ZyrBasTlsCleanup cleanup) {
  if (!index) return ZYR_E_INVALID_ARGUMENT;
  CleanupEntry* entry = nullptr;
  if (cleanup) {
    for (CleanupEntry& e : g_cleanups) {
      ZyrBasTlsCleanup none = nullptr;
      // Reserve the entry with a mark, so that no detach reads it half made.
      if (e.cleanup.compare_exchange_strong(none, reinterpret_cast<ZyrBasTlsCleanup>(1))) {
        entry = &e;
        break;
      }
    }
    if (!entry) return ZYR_E_NO_FREE_SLOT;
  }
  RtlAcquirePebLock();
  std::uint32_t found = RtlFindClearBitsAndSet(Bitmap(false), 1, 0);
  if (found == 0xffffffffu) {
    std::uint32_t more = RtlFindClearBitsAndSet(Bitmap(true), 1, 0);
    if (more == kExpansionSlots - 1) RtlClearBits(Bitmap(true), more, 1);
    found = (more == 0xffffffffu || more == kExpansionSlots - 1) ? 0xffffffffu : more + kTebSlots;
  }
  RtlReleasePebLock();
  if (found == 0xffffffffu) {
    if (entry) entry->cleanup.store(nullptr);
    return ZYR_E_NO_FREE_SLOT;
  }
  // The calling thread's cell starts clear, whatever a former holder left.
  if (found < kTebSlots) {
    TebSlots()[found] = nullptr;
  } else {
    void** cell;
    if (ZyrSucceeded(ExpansionCell(found, false, &cell)) && cell) *cell = nullptr;
  }
  if (entry) {
    entry->index.store(found);
    entry->cleanup.store(cleanup);
  }
  *index = found;
  return ZYR_OK;
}

ZyrResult ZyrBasTlsFree(std::uint32_t index) {
  if (index == ZYR_TLS_NONE) return ZYR_E_NOT_INITIALIZED;
  if (index >= kTebSlots + kExpansionSlots) return ZYR_E_INVALID_ARGUMENT;
  RtlAcquirePebLock();
  bool held = Held(index);
  RtlReleasePebLock();
  if (!held) return ZYR_E_INVALID_ARGUMENT;
  for (CleanupEntry& e : g_cleanups) {
    ZyrBasTlsCleanup c = e.cleanup.load();
    if (c && c != reinterpret_cast<ZyrBasTlsCleanup>(1) && e.index.load() == index) e.cleanup.store(nullptr);
  }
  // Every thread's cell is cleared, so that the next holder finds none set.
  ULONG cell = index;
  NTSTATUS s = NtSetInformationThread(NtCurrentThread(), kThreadZeroTlsCell, &cell, sizeof cell);
  if (!NtSucceeded(s) && s != STATUS_ACCESS_VIOLATION) return NtResult(s);
  RtlAcquirePebLock();
  if (index < kTebSlots) RtlClearBits(Bitmap(false), index, 1);
  else RtlClearBits(Bitmap(true), index - kTebSlots, 1);
  RtlReleasePebLock();
  return ZYR_OK;
}

void* ZyrBasTlsGet(std::uint32_t index) {
  if (index < kTebSlots) return TebSlots()[index];
  if (index >= kTebSlots + kExpansionSlots) return nullptr;
  void** table = ExpansionTable();
  return table ? table[index - kTebSlots] : nullptr;
}

ZyrResult ZyrBasTlsSet(std::uint32_t index, void* value) {
  if (index == ZYR_TLS_NONE) return ZYR_E_NOT_INITIALIZED;
  if (index < kTebSlots) {
    TebSlots()[index] = value;
    return ZYR_OK;
  }
  if (index >= kTebSlots + kExpansionSlots) return ZYR_E_INVALID_ARGUMENT;
  void** cell;
  ZyrResult r = ExpansionCell(index, true, &cell);
  if (ZyrFailed(r)) return r;
  *cell = value;
  return ZYR_OK;
}

void ZyrBasTlsThreadDetach() {
  // Cleanups may set values again (a record made on demand): a few rounds,
  // as a thread's end runs them elsewhere too.
  for (int round = 0; round < 4; ++round) {
    bool ran = false;
    for (CleanupEntry& e : g_cleanups) {
      ZyrBasTlsCleanup cleanup = e.cleanup.load();
      if (!cleanup || cleanup == reinterpret_cast<ZyrBasTlsCleanup>(1)) continue;
      std::uint32_t index = e.index.load();
      void* value = ZyrBasTlsGet(index);
      if (!value) continue;
      (void)ZyrBasTlsSet(index, nullptr);
      cleanup(value);
      ran = true;
    }
    if (!ran) break;
  }
}
