// Change notification of one folder, as a waitable that can stand in a
// wait set: signalled while changes in the folder wait to be taken note of.
// The notification covers the folder's own entries, not its sub-folders,
// and tells only that something changed, not what.
#ifndef ZYR_BASE_FOLDER_WATCH_H
#define ZYR_BASE_FOLDER_WATCH_H

#include "base/sync.h"
#include "zyrlog/result.h"

class ZyrBasFolderWatch : public ZyrBasWaitable {
 public:
  // Starts watching; the object stands unsignalled until the next change.
  // ZYR_E_ALREADY_EXISTS if it holds a watch already; a folder that does
  // not exist gives the mapped failure (ZYR_E_FILE_NOT_FOUND).
  ZyrResult Open(const char16_t* folder);
  // Takes note of the changes that wait, so that the object stands
  // unsignalled again. ZYR_E_PATH_NOT_FOUND when the watch has ended: the
  // folder went away, and nothing more will come.
  ZyrResult Rearm();
  bool IsOpen() const { return GetKind() == kOwned; }
};

#endif
