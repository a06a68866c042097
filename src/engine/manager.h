// ZyrLogManager: the one engine of a process. It owns the logger tree (via
// its hierarchy), the dispatcher, the appenders, the layouts and the active
// configuration. It is made when the first channel binds and destroyed when
// the last reference goes, through the lock-free ZyrBasLazyHolder.
#ifndef ZYR_ENGINE_MANAGER_H
#define ZYR_ENGINE_MANAGER_H

#include <atomic>
#include <cstdint>

#include "appender/appender.h"
#include "base/array.h"
#include "base/lazy_holder.h"
#include "base/lock.h"
#include "base/string.h"
#include "config/document.h"
#include "config/locations.h"
#include "engine/logger.h"
#include "layout/layout.h"
#include "zyrlog/zyrlog.h"

struct ZyrLogEvent;
struct ZyrLogEventSource;
class ZyrLogDispatcher;
class ZyrTextStream;

// The part of the manager that loggers know, and appenders as their owner.
class ZyrLogHierarchy : public ZyrLogAppenderOwner {
 public:
  // Every message of every logger; not virtual, as it costs each message.
  ZyrResult Dispatch(ZyrLoggerNode* logger, const ZyrLogEventSource& source);
  ZyrResult ReportRolledFile(const char16_t* path) override;
  virtual ZyrResult WatchFolder(const char16_t* folder);
  virtual ~ZyrLogHierarchy() = default;

  // Finds or creates the logger `name` with its missing ancestors and adds
  // `mask` to its flags (only to the logger asked for).
  ZyrResult FindOrCreate(ZyrLoggerNode** logger, const char16_t* name, std::uint32_t mask);

  ZyrLoggerNode* root = nullptr;  // owning
  std::uint8_t ready = 0;
  ZyrLogDispatcher* dispatcher = nullptr;  // owning
  ZyrBasString preamble;  // always empty: the source of an event's Preamble
  // Set while a reload takes the logger locks one by one. The locks are not
  // fair: writers that take a logger's lock again and again could keep a
  // reload waiting for seconds; they give way while this is set.
  std::atomic<std::uint32_t> treeWanted{0};
};

class ZyrLogManager final {
 public:
  // AcquireManager: a counted reference, making the manager if none lives.
  static ZyrResult Acquire(ZyrLogManager** manager);
  // Gives one reference back; the last one destroys the manager.
  virtual void Release();
  virtual void Destroy(std::uint32_t flags);

  ZyrResult GetLogger(ZyrLogger** logger, const char16_t* name, std::uint32_t mask);
  ZyrResult FindLogger(ZyrLogger** logger, const char16_t* name, std::uint32_t mask);
  ZyrResult Flush();

  // Configuration operations.
  // Merges and builds a document under the manager's lock and the tree lock
  // (every logger's lock), so that no message reaches an appender while
  // objects change.
  ZyrResult ApplyDocument(const ZyrCfgDocument& document, const ZyrBasString& logFolder);
  ZyrResult LoadConfigFile(const char16_t* fileName, const ZyrBasString& configFolder,
                           const ZyrBasString& logFolder);
  ZyrResult LoadConfigReader(ZyrTextStream& reader, const ZyrBasString& logFolder);
  ZyrResult SaveConfigFile(const char16_t* path, bool protect);
  ZyrResult GetConfigText(ZyrBasString& text);
  ZyrResult ResetConfig();
  ZyrResult ReloadConfig();
  // Compares the last-write time of each configuration file that was
  // loaded with the one read, and applies a file that changed. Always 0.
  ZyrResult CheckConfigChanged();

  // The worker of the dispatcher. Once the process has begun to exit
  // (FinishAtExit) no worker starts again: ZYR_E_NOT_INITIALIZED.
  ZyrResult StartDispatcher();
  void StopDispatcher();

  // At process exit, for a manager that clients never released: the
  // worker stopped, everything queued written, the appenders closed with
  // their footers. Nothing is freed: threads that still log while the
  // process ends, and exit handlers that run later, keep valid loggers,
  // and what they write goes directly to the files, opened again.
  void FinishAtExit();

  ZyrLogHierarchy& Hierarchy() { return hierarchy_; }
  ZyrBasCriticalSection& Lock() { return lock_; }
  ZyrLogAppenderRegistry& Appenders() { return appenders_; }
  ZyrLogLayoutList& Layouts() { return layouts_; }

  // Fork (base/fork.h), in the library's lock order. ForkPrepareOuter comes
  // first of all: from then on no manager is made or taken down until the
  // fork is over, so that none is copied half made or half gone.
  // ForkPrepareInner takes the locks of every manager that lives, after
  // the registry's and the channels': the dispatcher's control lock, the
  // manager's, the queue's, the loggers' parents before children, the
  // appenders', the housekeeper's. The parent hooks give them back in the
  // other order; the child hooks make them anew and leave the child's
  // dispatcher on the direct road (ZyrLogDispatcher::ForkChild).
  static void ForkPrepareOuter();
  static void ForkPrepareInner();
  static void ForkParentInner();
  static void ForkParentOuter();
  static void ForkChildInner();
  static void ForkChildOuter();

  // Counts of managers made and destroyed in this process, for tests that
  // follow the manager's life from outside.
  static std::uint64_t TestCreatedCount();
  static std::uint64_t TestDestroyedCount();
  // Counts of change checks made and of files they read again.
  std::uint64_t TestChangeChecks() const { return changeChecks_.load(); }
  std::uint64_t TestChangeReads() const { return changeReads_.load(); }

  // Made only by Start, through the holder; ended only by Destroy.
  ZyrLogManager() = default;

 private:
  ~ZyrLogManager();
  static ZyrResult Start(void** object);
  // The layout "defaultLayout"; the built-in configuration comes with files.
  ZyrResult ApplyDefaults();
  // Reads one named file, remembers it among the sources and applies it.
  ZyrResult LoadFromFile(const char16_t* fileName, const ZyrBasString& configFolder,
                         const ZyrBasString& logFolder);
  // The configuration as the living objects hold it: layouts, appenders in
  // name order, loggers root first, depth first in name order.
  ZyrResult Collect(ZyrCfgDocument& document);
  void LockTree(ZyrLoggerNode* logger);
  void UnlockTree(ZyrLoggerNode* logger);
  static void DestroyObject(void* object);
  // The dispatcher's change callback: CheckConfigChanged of the manager.
  static ZyrResult ChangeCallback(void* context);

  ZyrBasCriticalSection lock_;
  ZyrLogHierarchy hierarchy_;
  ZyrLogAppenderRegistry appenders_;
  ZyrLogLayoutList layouts_;
  ZyrCfgDocument document_;  // the merged active configuration
  ZyrBasNameMap<ZyrCfgSource> sources_;  // every configuration file loaded
  std::uint8_t started_ = 0;
  std::uint8_t privateConfigLoaded_ = 0;
  std::atomic<bool> exiting_{false};  // set by FinishAtExit
  ZyrLogManager* nextLive_ = nullptr;  // the list of managers that live, under the life lock

  void ForkPrepare();
  void ForkParent();
  void ForkChild();
  std::atomic<std::uint64_t> changeChecks_{0};
  std::atomic<std::uint64_t> changeReads_{0};
};

#endif
