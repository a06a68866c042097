// The framework-bound log client: what a module of the suite builds in to
// get an IZyrLog without linking the log library. It finds the library at
// run time, first through the object broker (the framework's shared copy:
// product "Framework", version "0", module "zyrloga"), and otherwise by
// loading "zyrloga.so" itself, at the highest level of IZyrLog that the
// library grants. It binds once, on first use; when no library can be had,
// Log() is a log that writes nothing, and Bind() tells why.
//
// Not part of zyrloga.so: modules link it from the static library
// zyr_framework.
#ifndef ZYR_CLIENT_FRAMEWORK_CLIENT_H
#define ZYR_CLIENT_FRAMEWORK_CLIENT_H

#include <atomic>
#include <cstdint>

#include "base/library.h"
#include "base/string.h"
#include "base/sync.h"
#include "broker/module_broker.h"
#include "zyrlog/zyrlog.h"

class ZyrLogFrameworkClient {
 public:
  ZyrLogFrameworkClient() = default;
  virtual ~ZyrLogFrameworkClient();
  ZyrLogFrameworkClient(const ZyrLogFrameworkClient&) = delete;
  ZyrLogFrameworkClient& operator=(const ZyrLogFrameworkClient&) = delete;

  // The one attempt to bind, made by the first call from any thread; every
  // later call answers its result without a lock.
  virtual ZyrResult Bind();
  // Bit 0: the memory is freed too (the object was made by ZyrNew).
  virtual void Destroy(std::uint32_t flags);

  // Where to load the library from when the broker cannot deliver; with
  // `folderOnly` the broker is skipped and only this folder is tried. Only
  // before the first Bind: ZYR_E_INVALID_OPERATION afterwards.
  ZyrResult SetFolder(const char16_t* folder, bool folderOnly);

  // After Bind: the log (the log that writes nothing when binding failed),
  // never null, and the level granted (0 when none).
  IZyrLog* Log();
  std::uint32_t Level() const { return level_; }
  // True when the framework's copy was reached through the broker.
  bool ThroughBroker() const { return access_ != nullptr; }

 private:
  ZyrResult Attempt();
  ZyrResult LoadFile();

  std::uint32_t level_ = 0;
  IZyrLog* log_ = nullptr;
  ZyrBasFrameworkAccess framework_;
  IZyrLogAccess* access_ = nullptr;
  // The access's reference goes back through the object's own interface
  // (one count serves both), so the guarded release gets the type it takes.
  IZyrObject* accessObject_ = nullptr;
  IZyrObject::GuardedRelease guardedRelease_ = nullptr;
  ZyrBasLibrary library_;
  ZyrResult (*releaseLogObject_)(const ZyrIid*, IZyrLog*) = nullptr;
  ZyrBasString folder_;
  std::uint8_t folderOnly_ = 0;
  std::atomic<std::uint32_t> bound_{0};
  ZyrBasLightLock lock_;
  ZyrResult bindResult_ = ZYR_E_NOT_INITIALIZED;
};

// A log that writes nothing: its loggers are never above their threshold,
// its operations succeed and keep nothing.
IZyrLog* ZyrLogNullLog();

#endif
