#include "engine/change_monitor.h"

#include "base/file.h"
#include "base/memory.h"
#include "engine/manager.h"

// ---------------------------------------------------------------------------
// ZyrLogWatchList

ZyrLogWatchList::~ZyrLogWatchList() {
  for (auto& entry : map_) ZyrDelete(entry.value);
}

ZyrResult ZyrLogWatchList::Add(const char16_t* folder) {
  if (!folder) return ZYR_E_INVALID_ARGUMENT;
  if (map_.Find(folder)) return ZYR_OK;
  ZyrLogFolderWatcher* watcher = ZyrNew<ZyrLogFolderWatcher>();
  if (!watcher) return ZYR_E_OUT_OF_MEMORY;
  ZyrResult r = map_.Insert(folder, ZYR_TERMINATED, static_cast<ZyrLogFolderWatcher*&&>(watcher));
  if (ZyrFailed(r)) ZyrDelete(watcher);
  return r;
}

std::size_t ZyrLogWatchList::ArmAll(ZyrBasWaitSet& set) {
  std::size_t unarmed = 0;
  for (auto& entry : map_) {
    ZyrLogFolderWatcher& watcher = *entry.value;
    if (watcher.inSet) continue;
    // The stop event and the queue event take two of the places.
    if (set.Count() >= ZyrBasWaitSet::kMaxObjects ||
        (!watcher.IsOpen() && ZyrFailed(watcher.Open(entry.name.Text())))) {
      ++unarmed;
      continue;
    }
    if (ZyrSucceeded(set.Add(watcher))) watcher.inSet = true;
  }
  return unarmed;
}

void ZyrLogWatchList::Release(ZyrLogFolderWatcher& watcher, ZyrBasWaitSet& set) {
  if (watcher.inSet) (void)set.Remove(watcher);
  watcher.inSet = false;
  (void)watcher.Close();
}

void ZyrLogWatchList::Signalled(ZyrLogFolderWatcher& watcher, ZyrBasWaitSet& set) {
  if (ZyrFailed(watcher.Rearm())) Release(watcher, set);
}

void ZyrLogWatchList::ReleaseAll(ZyrBasWaitSet& set) {
  for (auto& entry : map_) Release(*entry.value, set);
}

// ---------------------------------------------------------------------------
// The manager's check

ZyrResult ZyrLogManager::ChangeCallback(void* context) {
  return static_cast<ZyrLogManager*>(context)->CheckConfigChanged();
}

// Under the manager's lock for all of its length, so nothing here waits: the
// open never blocks and refuses all but regular files, and a file is read
// up to a bound. A file that cannot be opened (deleted, for one, or no
// longer trusted) is skipped and what it applied stays; any other
// time than the one read counts as a change, an older one too (a file
// restored from a backup). The time is stored before the file is read, so
// that a version that fails to read or build is not tried again.
ZyrResult ZyrLogManager::CheckConfigChanged() {
  ZyrBasLockGuard guard(lock_);
  changeChecks_.fetch_add(1, std::memory_order_relaxed);
  for (auto& entry : sources_) {
    ZyrCfgSource& source = entry.value;
    ZyrBasFile file;
    ZyrBasDirEntry info;
    if (ZyrFailed(ZyrCfgDocument::OpenFile(file, source.fullPath.Text())) || ZyrFailed(file.Query(&info)))
      continue;
    std::uint64_t lastWrite = static_cast<std::uint64_t>(info.lastWriteTime);
    if (lastWrite == source.lastWrite) continue;
    source.lastWrite = lastWrite;
    changeReads_.fetch_add(1, std::memory_order_relaxed);
    ZyrCfgDocument document;
    ZyrResult r = document.LoadOpened(file, ZYR_CFG_READ_CHANGED);
    file.Close();
    if (ZyrSucceeded(r)) (void)ApplyDocument(document, source.logFolder);
  }
  return ZYR_OK;
}
