// The platform half of folder change notification. The handle is the
// waitable, signalled while notifications wait to be read: an inotify
// descriptor on Linux, the event of a pending NtNotifyChangeDirectoryFile
// on NT (closing it ends the request).
#ifndef ZYR_BASE_OS_FOLDER_WATCH_OS_H
#define ZYR_BASE_OS_FOLDER_WATCH_OS_H

#include "base/handle.h"
#include "zyrlog/result.h"

// Watches the folder itself (no sub-folders) for changes of its entries.
ZyrResult ZyrBasOsFolderWatchOpen(const char* path, ZyrBasHandle* out);
// Reads every notification that waits, without blocking. `ended` is set
// when the watch is over (the folder was removed, moved or unmounted) and
// nothing more will come.
ZyrResult ZyrBasOsFolderWatchRead(ZyrBasHandle handle, bool* ended);

#endif
