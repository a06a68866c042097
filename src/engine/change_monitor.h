// The configuration change monitor: the folders of the configuration files
// that were loaded, watched by the dispatcher's worker while it runs. A
// change in such a folder makes the manager compare the last-write times
// of its files with what it read (CheckConfigChanged), and apply a file
// that changed. Without the worker the dispatcher's tick polls instead.
#ifndef ZYR_ENGINE_CHANGE_MONITOR_H
#define ZYR_ENGINE_CHANGE_MONITOR_H

#include <cstddef>

#include "base/array.h"
#include "base/folder_watch.h"
#include "base/sync.h"
#include "zyrlog/result.h"

// One watched folder. Armed (open) only while the worker runs.
class ZyrLogFolderWatcher final : public ZyrBasFolderWatch {
 public:
  bool inSet = false;  // stands in the worker's long wait set
};

// The folders, each once, in byte order of their paths. The list only
// grows; entries are armed by the worker and released when it stops, so
// that its next start arms the same folders. Add runs under the
// dispatcher's queue lock; the rest on the worker.
class ZyrLogWatchList {
 public:
  ZyrLogWatchList() = default;
  ~ZyrLogWatchList();
  ZyrLogWatchList(const ZyrLogWatchList&) = delete;
  ZyrLogWatchList& operator=(const ZyrLogWatchList&) = delete;

  // ZYR_OK also when the folder is listed already.
  ZyrResult Add(const char16_t* folder);
  bool Empty() const { return map_.Empty(); }
  // Arms each folder that is not armed and adds it to `set`, as long as the
  // set has room. Gives how many folders stay unarmed: those that cannot
  // be opened now, and those beyond the room of a wait set.
  std::size_t ArmAll(ZyrBasWaitSet& set);
  // A signalled folder: its changes are taken note of. A folder whose
  // watch has ended (removed, moved away) is released and leaves the set;
  // a later pass arms it again if it is back.
  void Signalled(ZyrLogFolderWatcher& watcher, ZyrBasWaitSet& set);
  // Every folder leaves the set and is released.
  void ReleaseAll(ZyrBasWaitSet& set);

 private:
  static void Release(ZyrLogFolderWatcher& watcher, ZyrBasWaitSet& set);

  ZyrBasNameMap<ZyrLogFolderWatcher*> map_;  // owning
};

#endif
