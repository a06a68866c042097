// The system's handlers around fork().
#ifndef ZYR_BASE_POSIX_FORK_POSIX_H
#define ZYR_BASE_POSIX_FORK_POSIX_H

#include "zyrlog/result.h"

// Registers the three handlers once for the process (pthread_atfork); a
// second call does nothing and answers as the first did.
ZyrResult ZyrBasOsAtFork(void (*prepare)(), void (*parent)(), void (*child)());

#endif
