#include "client/log_object.h"

#include "base/assert.h"
#include "base/memory.h"
#include "config/locations.h"
#include "engine/manager.h"
#include "module/module.h"

// ---------------------------------------------------------------------------
// ZyrLogClient

ZyrLogClient::~ZyrLogClient() {
  ZyrDelete(privateChannel_.exchange(nullptr));
  ZyrDelete(publicChannel_.exchange(nullptr));
  lock_.Delete();
}

ZyrResult ZyrLogClient::Construct() {
  if (ZyrFailed(lock_.Create())) return ZYR_E_OUT_OF_MEMORY;
  ZyrResult r = ZyrBindChannel(publicChannel_);
  if (ZyrSucceeded(r)) r = ZyrBindChannel(privateChannel_);
  return r;
}

ZyrResult ZyrLogClient::GetLoggerOn(std::atomic<ZyrLogChannel*>& slot, ZyrLogger** logger,
                                    const char16_t* name, std::uint32_t mask, bool create) {
  if (!logger) return ZYR_E_INVALID_ARGUMENT;
  ZyrResult r = ZyrBindChannel(slot);
  if (ZyrFailed(r)) return r;
  ZyrLogManager* manager = slot.load()->manager;
  return create ? manager->GetLogger(logger, name, mask) : manager->FindLogger(logger, name, mask);
}

std::uint8_t ZyrLogClient::IsConfiguredOn(std::atomic<ZyrLogChannel*>& slot) {
  ZyrLogChannel* channel = slot.load();
  if (!channel) return 0;
  ZyrBasLockGuard guard(channel->lock);
  return (!channel->configFolder.Empty() || !channel->logFolder.Empty()) ? 1 : 0;
}

namespace {
// Copies a private copy of the text out through the buffer triple.
ZyrResult CopyOut(const ZyrBasString& text, char16_t* buffer, std::uint64_t capacity,
                  std::uint64_t* needed) {
  std::uint64_t length = text.Length();
  if (needed) *needed = length + 1;
  // Without a buffer the call only measures.
  if (length > capacity || !buffer) return ZYR_E_BUFFER_TOO_SMALL;
  for (std::uint64_t i = 0; i < length; ++i) buffer[i] = text.Text()[i];
  buffer[length] = 0;
  return ZYR_OK;
}
}  // namespace

ZyrResult ZyrLogClient::GetConfigFolderOn(std::atomic<ZyrLogChannel*>& slot, char16_t* buffer,
                                          std::uint64_t capacity, std::uint64_t* needed) {
  ZyrBasLockGuard guard(lock_);
  ZyrBasString copy;
  // Read without the channel's own lock; an unbound channel has no folder.
  if (ZyrLogChannel* channel = slot.load()) {
    ZyrResult r = copy.Assign(channel->configFolder);
    if (ZyrFailed(r)) return r;
  }
  return CopyOut(copy, buffer, capacity, needed);
}

ZyrResult ZyrLogClient::GetConfigTextOn(std::atomic<ZyrLogChannel*>& slot, char16_t* buffer,
                                        std::uint64_t capacity, std::uint64_t* needed) {
  ZyrResult r = ZyrBindChannel(slot);
  if (ZyrFailed(r)) return r;
  ZyrBasLockGuard guard(lock_);
  ZyrBasString text;
  r = slot.load()->manager->GetConfigText(text);
  if (ZyrFailed(r)) return r;
  return CopyOut(text, buffer, capacity, needed);
}

ZyrResult ZyrLogClient::UseProductFolderOn(std::atomic<ZyrLogChannel*>& slot) {
  ZyrBasString folder;
  ZyrResult r = ZyrPrivateConfigFolder(folder);
  if (ZyrFailed(r)) return r;
  return ZyrSetChannelFolders(slot, folder.Text(), nullptr);
}

void ZyrLogClient::FinishAtExit() {
  // Both channels lead to the one manager.
  if (ZyrLogChannel* channel = publicChannel_.load()) channel->manager->FinishAtExit();
}

namespace {
template <class Act>
void ForEachLock(std::atomic<ZyrLogChannel*>* channels[2], ZyrBasCriticalSection& own, Act act) {
  for (int i = 0; i < 2; ++i)
    if (ZyrLogChannel* channel = channels[i]->load()) act(channel->lock);
  act(own);
}
}  // namespace

void ZyrLogClient::ForkPrepare() {
  std::atomic<ZyrLogChannel*>* channels[2] = {&publicChannel_, &privateChannel_};
  ForEachLock(channels, lock_, [](ZyrBasCriticalSection& cs) { cs.Enter(); });
}

void ZyrLogClient::ForkParent() {
  std::atomic<ZyrLogChannel*>* channels[2] = {&publicChannel_, &privateChannel_};
  ForEachLock(channels, lock_, [](ZyrBasCriticalSection& cs) { cs.Leave(); });
}

void ZyrLogClient::ForkChild() {
  std::atomic<ZyrLogChannel*>* channels[2] = {&publicChannel_, &privateChannel_};
  ForEachLock(channels, lock_, [](ZyrBasCriticalSection& cs) { cs.RenewAfterFork(); });
}

// Public channel.
ZyrResult ZyrLogClient::GetLogger(ZyrLogger** logger, const char16_t* name) {
  return GetLoggerOn(publicChannel_, logger, name, publicMask_, true);
}
ZyrResult ZyrLogClient::FindLogger(ZyrLogger** logger, const char16_t* name) {
  return GetLoggerOn(publicChannel_, logger, name, publicMask_, false);
}
std::uint8_t ZyrLogClient::IsConfigured() { return IsConfiguredOn(publicChannel_); }
ZyrResult ZyrLogClient::SetConfigFolder(const char16_t* folder, void*, std::uint8_t) {
  return ZyrSetChannelFolders(publicChannel_, folder, nullptr);
}
ZyrResult ZyrLogClient::GetConfigFolder(char16_t* buffer, std::uint64_t capacity, std::uint64_t* needed) {
  return GetConfigFolderOn(publicChannel_, buffer, capacity, needed);
}
ZyrResult ZyrLogClient::LoadConfigFile(const char16_t* fileName) {
  if (!fileName || !*fileName) return ZYR_OK;
  return ZyrLoadChannelFile(publicChannel_, fileName);
}
ZyrResult ZyrLogClient::LoadConfigText(const char16_t* text) {
  if (!text) return ZYR_E_INVALID_ARGUMENT;
  return ZyrLoadChannelText(publicChannel_, text);
}
ZyrResult ZyrLogClient::SaveConfigFile(const char16_t* path, std::uint8_t protect) {
  ZyrResult r = ZyrBindChannel(publicChannel_);
  if (ZyrFailed(r)) return r;
  return publicChannel_.load()->manager->SaveConfigFile(path, protect != 0);
}
ZyrResult ZyrLogClient::GetConfigText(char16_t* buffer, std::uint64_t capacity, std::uint64_t* needed) {
  return GetConfigTextOn(publicChannel_, buffer, capacity, needed);
}
ZyrResult ZyrLogClient::ResetConfig() {
  ZyrResult r = ZyrBindChannel(publicChannel_);
  if (ZyrFailed(r)) return r;
  return publicChannel_.load()->manager->ResetConfig();
}

// Private channel.
ZyrResult ZyrLogClient::GetPrivateLogger(ZyrLogger** logger, const char16_t* name) {
  return GetLoggerOn(privateChannel_, logger, name, privateMask_, true);
}
ZyrResult ZyrLogClient::FindPrivateLogger(ZyrLogger** logger, const char16_t* name) {
  return GetLoggerOn(privateChannel_, logger, name, privateMask_, false);
}
std::uint8_t ZyrLogClient::IsPrivateConfigured() { return IsConfiguredOn(privateChannel_); }
ZyrResult ZyrLogClient::SetPrivateConfigFolder(const char16_t* folder, void*, std::uint8_t) {
  return ZyrSetChannelFolders(privateChannel_, folder, nullptr);
}
ZyrResult ZyrLogClient::GetPrivateConfigFolder(char16_t* buffer, std::uint64_t capacity, std::uint64_t* needed) {
  return GetConfigFolderOn(privateChannel_, buffer, capacity, needed);
}
ZyrResult ZyrLogClient::LoadPrivateConfigFile(const char16_t* fileName) {
  if (!fileName || !*fileName) return ZYR_OK;
  return ZyrLoadChannelFile(privateChannel_, fileName);
}
ZyrResult ZyrLogClient::LoadPrivateConfigText(const char16_t* text) {
  if (!text) return ZYR_E_INVALID_ARGUMENT;
  return ZyrLoadChannelText(privateChannel_, text);
}
ZyrResult ZyrLogClient::SavePrivateConfigFile(const char16_t* path, std::uint8_t protect) {
  ZyrResult r = ZyrBindChannel(privateChannel_);
  if (ZyrFailed(r)) return r;
  return privateChannel_.load()->manager->SaveConfigFile(path, protect != 0);
}
ZyrResult ZyrLogClient::GetPrivateConfigText(char16_t* buffer, std::uint64_t capacity, std::uint64_t* needed) {
  return GetConfigTextOn(privateChannel_, buffer, capacity, needed);
}
ZyrResult ZyrLogClient::ResetPrivateConfig() {
  ZyrResult r = ZyrBindChannel(privateChannel_);
  if (ZyrFailed(r)) return r;
  return privateChannel_.load()->manager->ResetConfig();
}

// Shared entries.
ZyrResult ZyrLogClient::LoadConfigTextOrNothing(const char16_t* text) {
  return text ? LoadConfigText(text) : ZYR_OK;
}
ZyrResult ZyrLogClient::LoadPrivateConfigTextOrNothing(const char16_t* text) {
  return text ? LoadPrivateConfigText(text) : ZYR_OK;
}
ZyrResult ZyrLogClient::Flush() {
  ZyrResult r = ZyrBindChannel(publicChannel_);
  if (ZyrFailed(r)) return r;
  return publicChannel_.load()->manager->Flush();
}
ZyrResult ZyrLogClient::FlushPrivate() {
  ZyrResult r = ZyrBindChannel(privateChannel_);
  if (ZyrFailed(r)) return r;
  return privateChannel_.load()->manager->Flush();
}
ZyrResult ZyrLogClient::UseProductFolder() { return UseProductFolderOn(publicChannel_); }
ZyrResult ZyrLogClient::UsePrivateProductFolder() { return UseProductFolderOn(privateChannel_); }
ZyrResult ZyrLogClient::SetFolders(const char16_t* configFolder, const char16_t* logFolder, std::uint8_t) {
  return ZyrSetChannelFolders(publicChannel_, configFolder, logFolder);
}
ZyrResult ZyrLogClient::SetPrivateFolders(const char16_t* configFolder, const char16_t* logFolder, std::uint8_t) {
  return ZyrSetChannelFolders(privateChannel_, configFolder, logFolder);
}
ZyrResult ZyrLogClient::StartDispatcher() {
  ZyrResult r = ZyrBindChannel(publicChannel_);
  if (ZyrFailed(r)) return r;
  return publicChannel_.load()->manager->StartDispatcher();
}
void ZyrLogClient::StopDispatcher() {
  if (ZyrLogChannel* channel = publicChannel_.load()) channel->manager->StopDispatcher();
}

// ---------------------------------------------------------------------------
// ZyrLogObject

ZyrResult ZyrLogObject::Create(ZyrLogObject** object) {
  ZyrLogObject* o = ZyrNew<ZyrLogObject>();
  if (!o) return ZYR_E_OUT_OF_MEMORY;
  ZyrResult r = o->Construct();
  if (ZyrFailed(r)) {
    o->Destroy(1);
    return r;
  }
  *object = o;
  return ZYR_OK;
}

ZyrLogObject::~ZyrLogObject() { ZyrModuleUnlistObject(this); }

void ZyrLogObject::Destroy(std::uint32_t flags) {
  this->~ZyrLogObject();
  if (flags & 1) ZyrBasFree(this);
}

std::int32_t ZyrLogObject::AddRef() { return references_.fetch_add(1) + 1; }

std::int32_t ZyrLogObject::Release() {
  std::int32_t count = references_.fetch_sub(1) - 1;
  ZYR_ASSERT(count >= 0);
  if (count == 0) Destroy(1);
  return count;
}

IZyrLogAccess* ZyrLogObject::GetLogAccess() {
  AddRef();
  return Access();
}

namespace {
std::int32_t GuardedReleaseOf(IZyrObject* object) {
  if (ZyrModuleFinished()) return 0;
  return object->Release();
}
}  // namespace

IZyrObject::GuardedRelease ZyrLogObject::GetGuardedRelease() { return &GuardedReleaseOf; }

// Clients release through ZyrReleaseLogObject; this slot is a program error.
void ZyrLogObject::Forbidden28() { ZYR_ASSERT(false); }
