// The system's handlers around fork(). The NT layer has no fork and
// registers nothing.
#ifndef ZYR_BASE_OS_FORK_OS_H
#define ZYR_BASE_OS_FORK_OS_H

#include "zyrlog/result.h"

// Registers the three handlers once for the process (pthread_atfork); a
// second call does nothing and answers as the first did.
ZyrResult ZyrBasOsAtFork(void (*prepare)(), void (*parent)(), void (*child)());

#endif
