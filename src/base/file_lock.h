// Whole-file locks between processes, on an open file. They are tried once
// and never waited for. A lock belongs to the open file, not to the process
// or the thread: two opens of one file in one process compete like two
// processes, and a lock ends when its file is closed or its process dies.
#ifndef ZYR_BASE_FILE_LOCK_H
#define ZYR_BASE_FILE_LOCK_H

#include "base/file.h"
#include "zyrlog/result.h"

// Locks the whole file, exclusively or shared. ZYR_W_TIMEOUT when another
// open holds a lock that conflicts; ZYR_E_NOT_SUPPORTED when the file system
// offers no such lock.
ZyrResult ZyrBasTryLockFile(ZyrBasFileBase& file, bool exclusive);
// Gives the lock of this open back; unlocking what is not locked is no fault.
ZyrResult ZyrBasUnlockFile(ZyrBasFileBase& file);

// Test hook: while `answer` is a failure, every try to lock gets it in place
// of the system's answer, as from a file system that refuses locks (a
// network share without a lock service); ZYR_OK ends it. Such a file system
// can't be had on every test machine.
void ZyrBasTestRefuseFileLocks(ZyrResult answer);

#endif
