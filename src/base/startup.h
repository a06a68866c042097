// Start and stop of the base layer: counted, so that a second start only
// adds one to the count. Runs at the module's process attach.
#ifndef ZYR_BASE_STARTUP_H
#define ZYR_BASE_STARTUP_H

#include "zyrlog/result.h"

ZyrResult ZyrBasStartup();
void ZyrBasShutdown();

// The per-thread record of the calling thread, made on attach (and on
// demand); it is dropped when the thread ends.
ZyrResult ZyrBasThreadAttach();

#endif
