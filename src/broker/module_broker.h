// The object broker: finds a sibling module of the suite by product and
// version (or in a given directory), loads it once per process, keeps it
// loaded while any broker holds it, and asks it for an object by interface
// identifier.
//
// A sibling module exports, by these names:
//   GetZyrObject2(const 16-byte identifier*, uint32_t size 16, void** out)  preferred
//   GetZyrObject(const 16-byte identifier*, void** out)   when the first is absent;
//                 on this platform the identifier travels by address, as the
//                 log library's own export takes it
//   ZyrModuleInit()    called once after the load, on the first reference
//   ZyrModuleFinish()  called once before the unload
// One of the first two is needed. Init and Finish count as a pair: with
// either missing neither is called.
//
// Locks: a broker's lock, then the process-wide registry's lock; the
// registry's lock is never held across a load, an Init or Finish, an
// observer's call or a module's GetZyrObject.
#ifndef ZYR_BROKER_MODULE_BROKER_H
#define ZYR_BROKER_MODULE_BROKER_H

#include <cstdint>

#include "base/array.h"
#include "base/library.h"
#include "base/lock.h"
#include "base/string.h"
#include "zyrlog/result.h"

// What to ask for: product, version, module base name (no suffix) and the
// 16-byte interface identifier.
struct ZyrBasObjectRequest {
  const char16_t* product;
  const char16_t* version;
  const char16_t* module;
  const void* iid;
};

// Told around every load. A failing BeforeLoad refuses the load, and its
// result is the answer.
class ZyrBasLoadObserver {
 public:
  virtual ZyrResult BeforeLoad(const char16_t* path, void** cookie) = 0;
  virtual void AfterLoad(bool success, void* cookie) = 0;

 protected:
  ~ZyrBasLoadObserver() = default;
};

class ZyrBasModuleRegistry;
struct ZyrBasModuleRecord;
struct ZyrBasProductRecord;

class ZyrBasModuleBroker {
 public:
  // A broker with a reference on the process's registry.
  static ZyrResult Create(ZyrBasModuleBroker** out);

  // The directory of the calling module; null or empty means ".".
  virtual ZyrResult SetOwnDirectory(const char16_t* path);
  // The module in exactly that directory, no key store step.
  virtual ZyrResult GetObjectFromDirectory(const char16_t* directory, const char16_t* module, const void* iid,
                                           void** object);
  // The full search. The product's registered directory first, then the
  // own directory; with the environment variable ZyrTestMode exactly "1"
  // the other way round, so that a module beside the caller wins.
  virtual ZyrResult GetObject(const ZyrBasObjectRequest& request, void** object);
  // With `release` set, drops every reference this broker holds.
  virtual void ReleaseAll(bool release);
  virtual void Destroy();
  virtual void SetLoadObserver(ZyrBasLoadObserver* observer) { observer_ = observer; }
  virtual ~ZyrBasModuleBroker();
  ZyrBasModuleBroker() = default;  // made by Create only, which takes the registry reference

  // For tests: the references the registry counts on the module `name` in
  // `directory`, 0 when it is not listed.
  static std::uint32_t ModuleReferences(const char16_t* directory, const char16_t* module);

 private:
  ZyrResult Note(ZyrBasArray<void*>& set, void* record, bool* added);
  ZyrResult Resolve(const ZyrBasObjectRequest& request, ZyrBasModuleRecord** record);
  ZyrResult FromOwnDirectory(const ZyrBasObjectRequest& request, ZyrBasModuleRecord** record);
  ZyrResult HoldModule(ZyrBasModuleRecord* record);
  ZyrResult Ask(ZyrBasModuleRecord* record, const void* iid, void** object);

  ZyrBasArray<void*> products_;  // ZyrBasProductRecord*, one reference each
  ZyrBasString ownDirectory_;
  ZyrBasModuleRegistry* registry_ = nullptr;
  ZyrBasCriticalSection lock_;
  ZyrBasArray<void*> modules_;  // ZyrBasModuleRecord*, one reference each
  ZyrBasLoadObserver* observer_ = nullptr;
};

// What a module of the suite embeds: a broker with its own directory set to
// the directory of the module that holds this code, and a table of classes
// by which objects are asked for without naming their module.
class ZyrBasFrameworkAccess {
 public:
  struct ClassRow {
    std::uint8_t classId[16];
    const char16_t* module;
  };

  ZyrBasFrameworkAccess() = default;
  virtual ~ZyrBasFrameworkAccess();
  ZyrBasFrameworkAccess(const ZyrBasFrameworkAccess&) = delete;
  ZyrBasFrameworkAccess& operator=(const ZyrBasFrameworkAccess&) = delete;

  // No class id matches: ZYR_E_INVALID_ARGUMENT, and no broker lock taken.
  virtual ZyrResult GetObjectByClass(const void* classId, void** object);
  virtual ZyrResult ReleaseAll(bool release);
  virtual ZyrResult GetObject(const ZyrBasObjectRequest& request, void** object);
  virtual ZyrResult GetObjectInDirectory(const char16_t* directory, const ZyrBasObjectRequest& request,
                                         void** object);

  // Makes the broker. The class table is the suite's; this library's own
  // build has none, so it defaults to empty. ZYR_E_ALREADY_EXISTS when
  // created already.
  ZyrResult Create(const ClassRow* classes = nullptr, std::uint32_t classCount = 0);
  bool Created() const { return broker_ != nullptr; }
  ZyrBasModuleBroker* Broker() { return broker_; }

 private:
  ZyrBasString ownDirectory_;
  const ClassRow* classes_ = nullptr;
  std::uint32_t classCount_ = 0;
  ZyrBasModuleBroker* broker_ = nullptr;
};

#endif
