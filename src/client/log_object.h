// ZyrLogObject: what a client holds. It writes nothing itself: through
// IZyrLog a client names its folders, loads configuration, gets loggers,
// flushes and switches the process to asynchronous writing. The object has
// two channels into the one log manager, public and private, each with its
// own folders and logger mask.
#ifndef ZYR_CLIENT_LOG_OBJECT_H
#define ZYR_CLIENT_LOG_OBJECT_H

#include <atomic>
#include <cstdint>

#include "base/lock.h"
#include "base/string.h"
#include "zyrlog/zyrlog.h"

class ZyrLogManager;
class ZyrTextStream;

// One client's view of the log manager.
struct ZyrLogChannel {
  ZyrBasCriticalSection lock;       // guards the strings; serialises loads
  ZyrLogManager* manager = nullptr;  // counted reference
  ZyrBasString configFolder;
  ZyrBasString logFolder;            // once set, never replaced

  ~ZyrLogChannel();
};

// Channel steps shared by the operations of both channels.
ZyrResult ZyrBindChannel(std::atomic<ZyrLogChannel*>& slot);
ZyrResult ZyrSetChannelFolders(std::atomic<ZyrLogChannel*>& slot, const char16_t* configFolder,
                               const char16_t* logFolder);
ZyrResult ZyrLoadChannelFile(std::atomic<ZyrLogChannel*>& slot, const char16_t* fileName);
ZyrResult ZyrLoadChannelText(std::atomic<ZyrLogChannel*>& slot, const char16_t* text);

// Logger masks: bit 0 public log, bit 1 private log, bits 3 and 4 by both.
inline constexpr std::uint32_t ZYR_PUBLIC_MASK = 0x19;
inline constexpr std::uint32_t ZYR_PRIVATE_MASK = 0x1A;

class ZyrLogClient : public IZyrLogAccess, public IZyrLog {
 public:
  ZyrLogClient() = default;

  IZyrLog* GetLog() override { return this; }

  ZyrResult GetLogger(ZyrLogger** logger, const char16_t* name) override;
  ZyrResult FindLogger(ZyrLogger** logger, const char16_t* name) override;
  std::uint8_t IsConfigured() override;
  ZyrResult SetConfigFolder(const char16_t* folder, void* reserved1, std::uint8_t reserved2) override;
  ZyrResult GetConfigFolder(char16_t* buffer, std::uint64_t capacity, std::uint64_t* needed) override;
  std::uint8_t IsSupported() override { return 1; }
  ZyrResult LoadConfigFile(const char16_t* fileName) override;
  ZyrResult LoadConfigText(const char16_t* text) override;
  ZyrResult SaveConfigFile(const char16_t* path, std::uint8_t protect) override;
  ZyrResult GetConfigText(char16_t* buffer, std::uint64_t capacity, std::uint64_t* needed) override;
  ZyrResult ResetConfig() override;
  ZyrResult Reserved11() override { return ZYR_E_NOT_SUPPORTED; }

  ZyrResult GetPrivateLogger(ZyrLogger** logger, const char16_t* name) override;
  ZyrResult FindPrivateLogger(ZyrLogger** logger, const char16_t* name) override;
  std::uint8_t IsPrivateConfigured() override;
  ZyrResult SetPrivateConfigFolder(const char16_t* folder, void* reserved1, std::uint8_t reserved2) override;
  ZyrResult GetPrivateConfigFolder(char16_t* buffer, std::uint64_t capacity, std::uint64_t* needed) override;
  std::uint8_t IsPrivateSupported() override { return 1; }
  ZyrResult LoadPrivateConfigFile(const char16_t* fileName) override;
  ZyrResult LoadPrivateConfigText(const char16_t* text) override;
  ZyrResult SavePrivateConfigFile(const char16_t* path, std::uint8_t protect) override;
  ZyrResult GetPrivateConfigText(char16_t* buffer, std::uint64_t capacity, std::uint64_t* needed) override;
  ZyrResult ResetPrivateConfig() override;
  ZyrResult Reserved23() override { return ZYR_E_NOT_SUPPORTED; }

  ZyrResult ReconfigureLoadConfigFile(const char16_t* fileName) override { return LoadConfigFile(fileName); }
  ZyrResult LoadConfigTextOrNothing(const char16_t* text) override;
  ZyrResult ReconfigureLoadPrivateConfigFile(const char16_t* fileName) override { return LoadPrivateConfigFile(fileName); }
  ZyrResult LoadPrivateConfigTextOrNothing(const char16_t* text) override;
  ZyrResult Flush() override;
  ZyrResult FlushPrivate() override;
  ZyrResult UseProductFolder() override;
  ZyrResult UsePrivateProductFolder() override;
  ZyrResult Reserved33() override { return ZYR_E_NOT_SUPPORTED; }
  ZyrResult Reserved34() override { return ZYR_E_NOT_SUPPORTED; }
  ZyrResult SetFolders(const char16_t* configFolder, const char16_t* logFolder, std::uint8_t reserved2) override;
  ZyrResult SetPrivateFolders(const char16_t* configFolder, const char16_t* logFolder, std::uint8_t reserved2) override;
  ZyrResult StartDispatcher() override;
  void StopDispatcher() override;

  // At process exit, for an object that its client never released: see
  // ZyrLogManager::FinishAtExit.
  void FinishAtExit();

  // Around a fork: the channels' locks, then the client's own, taken
  // before and given back after; made anew in the child.
  void ForkPrepare();
  void ForkParent();
  void ForkChild();

 protected:
  ~ZyrLogClient();
  // Creates the client's lock and binds both channels, public first.
  ZyrResult Construct();

 private:
  ZyrResult GetLoggerOn(std::atomic<ZyrLogChannel*>& slot, ZyrLogger** logger,
                        const char16_t* name, std::uint32_t mask, bool create);
  std::uint8_t IsConfiguredOn(std::atomic<ZyrLogChannel*>& slot);
  ZyrResult GetConfigFolderOn(std::atomic<ZyrLogChannel*>& slot, char16_t* buffer,
                              std::uint64_t capacity, std::uint64_t* needed);
  ZyrResult GetConfigTextOn(std::atomic<ZyrLogChannel*>& slot, char16_t* buffer,
                            std::uint64_t capacity, std::uint64_t* needed);
  ZyrResult UseProductFolderOn(std::atomic<ZyrLogChannel*>& slot);

  ZyrBasCriticalSection lock_;  // the copy-outs only
  std::atomic<ZyrLogChannel*> publicChannel_{nullptr};
  std::uint32_t publicMask_ = ZYR_PUBLIC_MASK;
  std::atomic<ZyrLogChannel*> privateChannel_{nullptr};
  std::uint32_t privateMask_ = ZYR_PRIVATE_MASK;
};

// The reference-counted object that the exports hand out.
class ZyrLogObject final : public IZyrObject, public ZyrLogClient {
 public:
  // Allocates the object, constructs the client core and binds both
  // channels. On failure nothing remains.
  static ZyrResult Create(ZyrLogObject** object);

  // IZyrObject
  void Destroy(std::uint32_t flags) override;
  std::int32_t AddRef() override;
  std::int32_t Release() override;
  IZyrLogAccess* GetLogAccess() override;
  GuardedRelease GetGuardedRelease() override;

  // IZyrLogAccess forwards to the counted object.
  void Forbidden28() override;

  static ZyrLogObject* FromLog(IZyrLog* log) { return static_cast<ZyrLogObject*>(log); }
  IZyrLogAccess* Access() { return this; }

 private:
  ZyrLogObject() = default;
  ~ZyrLogObject();
  std::atomic<std::int32_t> references_{1};

  template <class T, class... A>
  friend T* ZyrNew(A&&...) noexcept;
};

#endif
