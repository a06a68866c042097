// The module's process-wide state: its counters and hooks, the table of
// exit functions, and the registry of live log objects, which lets an export
// that names no object reach them all and destroys what a client forgot.
#ifndef ZYR_MODULE_MODULE_H
#define ZYR_MODULE_MODULE_H

#include <cstddef>
#include <cstdint>

#include "zyrlog/result.h"

class ZyrLogObject;

// Why the module entry is called: the numbers of the NT loader's
// notifications.
enum : std::uint32_t {
  ZYR_MODULE_PROCESS_DETACH = 0,
  ZYR_MODULE_PROCESS_ATTACH = 1,
  ZYR_MODULE_THREAD_ATTACH = 2,
  ZYR_MODULE_THREAD_DETACH = 3,
};
// The module's entry routine: process attach and detach in the order that
// the module's life needs, thread attach makes the thread's record, thread
// detach runs the cleanups of its per-thread slots. Nonzero for success;
// a failed process attach fails the load.
extern "C" int ZyrModuleEntry(void* module, std::uint32_t reason, void* reserved);

// Appends a finished object to the registry (creation order).
ZyrResult ZyrModuleListObject(ZyrLogObject* object);
// Removes it, keeping the order of the others; absent objects are ignored.
void ZyrModuleUnlistObject(ZyrLogObject* object);
// Set once the last process detach has destroyed what was left.
bool ZyrModuleFinished();

// The registry walk of the reconfiguration exports, under the registry lock.
// `visit` may not destroy objects. Re-reads the length at each step.
void ZyrModuleForEachObject(void (*visit)(ZyrLogObject* object, void* context), void* context);

// For tests: the registry's count and capacity.
std::size_t ZyrModuleObjectCount();
std::size_t ZyrModuleObjectCapacity();

#endif
