// Per-thread slots of the library's own. A slot holds one pointer for each
// thread; a slot made with a cleanup has it called with the thread's value
// when a thread ends that holds a value other than null.
//
// The language's thread_local is not used for anything with a destructor:
// registering that destructor allocates, and the runtime ends the process
// when it cannot (an out-of-memory abort at the worker's start), and a
// module that carries no language runtime has no thread_local at all.
#ifndef ZYR_BASE_TLS_H
#define ZYR_BASE_TLS_H

#include <cstdint>

#include "zyrlog/result.h"

typedef void (*ZyrBasTlsCleanup)(void* value);

inline constexpr std::uint32_t ZYR_TLS_NONE = 0xffffffffu;

// A free slot into *index; ZYR_E_NO_FREE_SLOT when the system has none left,
// ZYR_E_OUT_OF_MEMORY.
ZyrResult ZyrBasTlsAlloc(std::uint32_t* index, ZyrBasTlsCleanup cleanup);
// Gives the slot back; the values that threads still hold are not cleaned up.
// ZYR_E_NOT_INITIALIZED for ZYR_TLS_NONE.
ZyrResult ZyrBasTlsFree(std::uint32_t index);
// The calling thread's value; null until it sets one.
void* ZyrBasTlsGet(std::uint32_t index);
// ZYR_E_OUT_OF_MEMORY when the system cannot store it, ZYR_E_NOT_INITIALIZED
// for ZYR_TLS_NONE.
ZyrResult ZyrBasTlsSet(std::uint32_t index, void* value);

// Runs the cleanups of the calling thread's slots and clears them, for the
// module entry's thread detach where the system runs no cleanups of its
// own. Over pthread keys the system does that, and this does nothing.
void ZyrBasTlsThreadDetach();

#endif
