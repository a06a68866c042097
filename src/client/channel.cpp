// The channel steps: binding to the manager, folders, and the loads that
// every configuration operation of a channel runs through.
#include "base/memory.h"
#include "base/path.h"
#include "base/file.h"
#include "client/log_object.h"
#include "config/locations.h"
#include "config/reader.h"
#include "engine/manager.h"

ZyrLogChannel::~ZyrLogChannel() {
  logFolder.Clear();
  configFolder.Clear();
  if (manager) manager->Release();
  lock.Delete();
}

ZyrResult ZyrBindChannel(std::atomic<ZyrLogChannel*>& slot) {
  if (slot.load()) return ZYR_OK;
  ZyrLogChannel* channel = ZyrNew<ZyrLogChannel>();
  if (!channel) return ZYR_E_OUT_OF_MEMORY;
  ZyrResult r = channel->lock.Create();
  if (ZyrSucceeded(r)) r = ZyrLogManager::Acquire(&channel->manager);
  if (ZyrFailed(r)) {
    ZyrDelete(channel);
    return r;
  }
  // Binding takes no lock: the loser of a race undoes its own work, which
  // gives its manager reference back.
  ZyrLogChannel* expected = nullptr;
  if (!slot.compare_exchange_strong(expected, channel)) ZyrDelete(channel);
  return ZYR_OK;
}

ZyrResult ZyrSetChannelFolders(std::atomic<ZyrLogChannel*>& slot, const char16_t* configFolder,
                               const char16_t* logFolder) {
  // The default log folder is found (and made) before anything else, also
  // when the channel has its log folder already.
  ZyrBasString defaultFolder;
  bool useDefault = !logFolder || !*logFolder;
  if (useDefault) {
    ZyrResult r = ZyrDefaultLogFolder(defaultFolder);
    if (ZyrFailed(r)) return r;
  }
  ZyrResult r = ZyrBindChannel(slot);
  if (ZyrFailed(r)) return r;
  ZyrLogChannel* channel = slot.load();
  ZyrBasLockGuard guard(channel->lock);
  if (configFolder) {
    r = channel->configFolder.Assign(configFolder);
    if (ZyrFailed(r)) return r;
  }
  if (!channel->logFolder.Empty()) return ZYR_OK;  // the first log folder stays
  r = useDefault ? channel->logFolder.Assign(defaultFolder) : channel->logFolder.Assign(logFolder);
  if (ZyrFailed(r)) return r;
  // Leftovers of an interrupted removal of rolled files; the outcome does
  // not matter to the caller.
  (void)ZyrBasDeleteMatching(channel->logFolder.Text(), kZyrTempPattern, 0);
  return ZYR_OK;
}

ZyrResult ZyrLoadChannelFile(std::atomic<ZyrLogChannel*>& slot, const char16_t* fileName) {
  ZyrResult r = ZyrBindChannel(slot);
  if (ZyrFailed(r)) return r;
  ZyrLogChannel* channel = slot.load();
  ZyrBasLockGuard guard(channel->lock);
  // A channel without folders gets "." and the default log folder; if that
  // fails the load runs with the folders as they are.
  if (channel->logFolder.Empty()) (void)ZyrSetChannelFolders(slot, u".", nullptr);
  return channel->manager->LoadConfigFile(fileName, channel->configFolder, channel->logFolder);
}

ZyrResult ZyrLoadChannelText(std::atomic<ZyrLogChannel*>& slot, const char16_t* text) {
  ZyrResult r = ZyrBindChannel(slot);
  if (ZyrFailed(r)) return r;
  ZyrLogChannel* channel = slot.load();
  ZyrBasLockGuard guard(channel->lock);
  if (channel->logFolder.Empty()) (void)ZyrSetChannelFolders(slot, u".", nullptr);
  ZyrStringReader reader(text, ZyrBasStrLen(text));
  return channel->manager->LoadConfigReader(reader, channel->logFolder);
}
