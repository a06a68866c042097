#include "module/module.h"

#include <atomic>
#include <new>
#include <cstdint>

#include "base/array.h"
#include "base/fork.h"
#include "base/lock.h"
#include "base/startup.h"
#include "base/tls.h"
#include "client/log_object.h"
#include "engine/logger.h"
#include "engine/manager.h"
#include "zyrlog/zyrlog.h"

namespace {

// ---------------------------------------------------------------------------
// Module state: lives for the whole time that the file is loaded. All of it
// is zero-initialised static storage, so it works before any constructor.

struct ModuleHooks {
  ZyrResult (*onFirstAttach)();
  ZyrResult (*onFirstInit)();
  ZyrResult (*onLastFinish)();
  void (*onLastDetach)();
};

ZyrBasSpinLock g_moduleLock;  // guards the two counters only
std::uint64_t g_attachCount;
std::uint64_t g_initCount;
std::atomic<std::uint8_t> g_moduleFinished{0};
std::uint32_t g_attachFlags;

// The registry. Both live in raw static storage, built at attach and torn
// down by the exit table, so that no runtime destructor of a static object
// can run ahead of the module's own detach.
alignas(ZyrBasCriticalSection) unsigned char g_registryLockStorage[sizeof(ZyrBasCriticalSection)];
alignas(ZyrBasArray<ZyrLogObject*>) unsigned char g_instanceStorage[sizeof(ZyrBasArray<ZyrLogObject*>)];
ZyrBasCriticalSection& g_registryLock = *reinterpret_cast<ZyrBasCriticalSection*>(g_registryLockStorage);
ZyrBasArray<ZyrLogObject*>* g_instances;

// Exit functions, run last pushed first at process detach.
typedef void (*ExitFunction)();
ExitFunction g_exitTable[32];
int g_exitCount;

bool PushExit(ExitFunction f) {
  if (g_exitCount >= 32) return false;
  g_exitTable[g_exitCount++] = f;
  return true;
}

ZyrResult CreateRegistryLock() {
  if (g_registryLock.Exists()) return ZYR_OK;
  return g_registryLock.Create();
}

ZyrResult OnFirstAttach() { return CreateRegistryLock(); }
ZyrResult OnFirstInit() { return CreateRegistryLock(); }

// Set when process detach found objects that their clients never released.
bool g_objectsKept;

// Objects that a client forgot are finished, not destroyed. Process detach
// runs inside exit(), which any thread may call while others still log,
// and before exit handlers that may log too: freeing the loggers under
// them crashed such processes. So each forgotten object's manager stops
// its worker, writes out what was queued and closes its files, as the
// manager's end would, but objects, manager and loggers stay in memory,
// reachable from the registry's static storage; a line written after this
// goes directly to its file. What was released before is gone already and
// its loggers are shells (ZyrLoggerNode::RetireTree).
void OnLastDetach() {
  {
    ZyrBasLockGuard guard(g_registryLock);
    g_objectsKept = !g_instances->Empty();
    for (std::size_t i = 0; i < g_instances->Count(); ++i) (*g_instances)[i]->FinishAtExit();
  }
  g_moduleFinished.store(1);
}

const ModuleHooks kHooks = {&OnFirstAttach, &OnFirstInit, nullptr, &OnLastDetach};

// Kept objects still use the registry lock and list when they are released
// or destroyed late.
void DeleteRegistryLock() {
  if (!g_objectsKept) g_registryLock.Delete();
}
void FreeInstanceList() {
  if (!g_objectsKept) g_instances->Free();
}
void StopBaseOnce() { ZyrBasShutdown(); }

// ---------------------------------------------------------------------------
// Fork. The forking thread takes every lock of the library, in its order:
// the life lock of the managers, the registry's, each object's channels'
// and its own, then each manager's (control, manager, queue, loggers,
// appenders, housekeeper); the base then takes its own. So no other thread
// holds one at the fork, nor is halfway through what one guards. The
// parent gives them back; the child, which cannot unlock what the parent's
// threads held (a recursive lock knows its owner), makes them anew.

template <class Act>
void ForEachListed(Act act) {
  for (std::size_t i = 0; i < g_instances->Count(); ++i) act((*g_instances)[i]);
}

void ForkPrepare() {
  ZyrLogManager::ForkPrepareOuter();
  if (g_registryLock.Exists()) g_registryLock.Enter();
  ForEachListed([](ZyrLogObject* o) { o->ForkPrepare(); });
  ZyrLogManager::ForkPrepareInner();
}

void ForkParent() {
  ZyrLogManager::ForkParentInner();
  ForEachListed([](ZyrLogObject* o) { o->ForkParent(); });
  if (g_registryLock.Exists()) g_registryLock.Leave();
  ZyrLogManager::ForkParentOuter();
}

void ForkChild() {
  ZyrLogManager::ForkChildInner();
  ForEachListed([](ZyrLogObject* o) { o->ForkChild(); });
  g_registryLock.RenewAfterFork();
  // Only the two counters stand under the module's spin lock.
  g_moduleLock.Release();
  ZyrLogManager::ForkChildOuter();
}

const ZyrBasForkHooks kForkHooks = {&ForkPrepare, &ForkParent, &ForkChild};

// Process attach: the static initialisers first, then the base once more,
// the per-thread record of this thread, and the attach count. False fails
// the load where the system lets an attach fail.
bool ProcessAttach() {
  new (g_registryLockStorage) ZyrBasCriticalSection();
  g_instances = new (g_instanceStorage) ZyrBasArray<ZyrLogObject*>();
  if (!PushExit(&DeleteRegistryLock)) return false;
  if (!PushExit(&FreeInstanceList)) return false;
  if (ZyrFailed(ZyrBasStartup()) || !PushExit(&StopBaseOnce)) return false;
  if (ZyrFailed(ZyrBasStartup())) return false;
  if (ZyrFailed(ZyrBasThreadAttach())) {
    ZyrBasShutdown();
    return false;
  }
  // A failure leaves forks unguarded, as they were before: no reason to
  // refuse the load.
  (void)ZyrBasSetForkHooks(&kForkHooks);
  {
    ZyrBasSpinGuard guard(g_moduleLock);
    if (kHooks.onFirstAttach && g_attachCount == 0) (void)kHooks.onFirstAttach();
    ++g_attachCount;
  }
  g_attachFlags |= 1;
  return true;
}

void ProcessDetach() {
  if (!(g_attachFlags & 1)) return;
  bool last = false;
  {
    ZyrBasSpinGuard guard(g_moduleLock);
    last = --g_attachCount == 0;
  }
  // The hook runs outside the spin lock: it takes the registry lock, and the
  // spin lock is never taken while that one is held.
  if (last && kHooks.onLastDetach) kHooks.onLastDetach();
  // The exit handlers have run by now (a module's end comes after them),
  // and an unloaded module's loggers cannot be called: the shells of
  // released loggers go, or an unloading would leave them unreachable.
  if (last) ZyrLoggerNode::FreeRetired();
  ZyrBasShutdown();
  while (g_exitCount > 0) g_exitTable[--g_exitCount]();
  g_attachFlags &= ~1u;
}

// A shared object learns of its load and unload through these two; a
// module whose system calls an entry routine instead (zyrloga.dll) comes
// through ZyrModuleEntry, and never runs them.
__attribute__((constructor)) void AttachOnLoad() { (void)ProcessAttach(); }
__attribute__((destructor)) void DetachOnUnload() { ProcessDetach(); }

}  // namespace

int ZyrModuleEntry(void*, std::uint32_t reason, void*) {
  switch (reason) {
    case ZYR_MODULE_PROCESS_ATTACH: return ProcessAttach() ? 1 : 0;
    case ZYR_MODULE_PROCESS_DETACH: ProcessDetach(); return 1;
    case ZYR_MODULE_THREAD_ATTACH: (void)ZyrBasThreadAttach(); return 1;
    case ZYR_MODULE_THREAD_DETACH: ZyrBasTlsThreadDetach(); return 1;
    default: return 1;
  }
}

bool ZyrModuleFinished() { return g_moduleFinished.load() != 0; }

ZyrResult ZyrModuleListObject(ZyrLogObject* object) {
  ZyrBasLockGuard guard(g_registryLock);
  // 33 entries while fewer than 32 are needed, then needed plus half.
  return g_instances->Append(object);
}

void ZyrModuleUnlistObject(ZyrLogObject* object) {
  if (!g_registryLock.Exists()) return;
  ZyrBasLockGuard guard(g_registryLock);
  for (std::size_t i = 0; i < g_instances->Count(); ++i)
    if ((*g_instances)[i] == object) {
      g_instances->RemoveAt(i);
      return;
    }
}

void ZyrModuleForEachObject(void (*visit)(ZyrLogObject*, void*), void* context) {
  ZyrBasLockGuard guard(g_registryLock);
  for (std::size_t i = 0; i < g_instances->Count(); ++i) visit((*g_instances)[i], context);
}

std::size_t ZyrModuleObjectCount() {
  ZyrBasLockGuard guard(g_registryLock);
  return g_instances->Count();
}

std::size_t ZyrModuleObjectCapacity() {
  ZyrBasLockGuard guard(g_registryLock);
  return g_instances->Capacity();
}

// ---------------------------------------------------------------------------
// Exports that manage the module's life.

ZYR_EXPORT ZyrResult ZyrModuleInit() {
  ZyrBasSpinGuard guard(g_moduleLock);
  if (kHooks.onFirstInit && g_initCount == 0) {
    ZyrResult r = kHooks.onFirstInit();
    if (ZyrFailed(r)) return r;
  }
  ++g_initCount;
  return ZYR_OK;
}

ZYR_EXPORT ZyrResult ZyrModuleFinish() {
  ZyrBasSpinGuard guard(g_moduleLock);
  if (g_initCount == 0) return ZYR_OK;  // unbalanced: a caller error, not reported
  --g_initCount;
  if (kHooks.onLastFinish && g_initCount == 0) return kHooks.onLastFinish();
  return ZYR_OK;
}
