// The module's process-wide state: its counters and hooks, the table of
// exit functions, and the registry of live log objects, which lets an export
// that names no object reach them all and destroys what a client forgot.
#ifndef ZYR_MODULE_MODULE_H
#define ZYR_MODULE_MODULE_H

#include <cstddef>

#include "zyrlog/result.h"

class ZyrLogObject;

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
