// No process here is made by copying another: there is no fork to prepare
// for, and nothing to register.
#include "base/os/fork_os.h"

ZyrResult ZyrBasOsAtFork(void (*)(), void (*)(), void (*)()) { return ZYR_OK; }
