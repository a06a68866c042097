#include "broker/module_broker.h"

#include <cstring>
#include <string>

#include "base/identity.h"
#include "base/lazy_holder.h"
#include "base/memory.h"
#include "base/path.h"
#include "broker/framework_directory.h"

namespace {

typedef ZyrResult (*GetObject2Fn)(const void* iid, std::uint32_t size, void** object);
typedef ZyrResult (*GetObjectFn)(const void* iid, void** object);
typedef ZyrResult (*ModuleFn)();

constexpr std::uint32_t kIidSize = 16;

template <class T>
bool RemoveFrom(ZyrBasArray<T*>& list, T* item) {
  for (std::size_t i = 0; i < list.Count(); ++i) {
    if (list[i] == item) {
      list.RemoveAt(i);
      return true;
    }
  }
  return false;
}

// Lowest address first, the order in which a broker gives its references
// back.
void SortByAddress(ZyrBasArray<void*>& set) {
  for (std::size_t i = 1; i < set.Count(); ++i)
    for (std::size_t j = i; j > 0 && reinterpret_cast<std::uintptr_t>(set[j]) < reinterpret_cast<std::uintptr_t>(set[j - 1]); --j) {
      void* t = set[j];
      set[j] = set[j - 1];
      set[j - 1] = t;
    }
}

bool TestModeOn() {
  // Only exactly "1" turns it on: unset, "", "0" and "11" are all off.
  ZyrBasString value;
  return ZyrBasGetEnv(u"ZyrTestMode", value) == ZYR_OK && value.Equals(u"1");
}

}  // namespace

struct ZyrBasDirectoryEntry {
  ZyrBasString path;
  ZyrBasArray<ZyrBasModuleRecord*> modules;
  std::uint32_t productUses = 0;
};

struct ZyrBasModuleRecord {
  ZyrBasLibrary library;
  GetObjectFn getObject = nullptr;
  GetObject2Fn getObject2 = nullptr;
  ModuleFn init = nullptr;
  ModuleFn finish = nullptr;
  ZyrBasString name;
  ZyrBasDirectoryEntry* directory = nullptr;
  std::uint32_t references = 1;
};

struct ZyrBasProductRecord {
  ZyrBasDirectoryEntry* directory = nullptr;
  ZyrBasString product;
  ZyrBasString version;
  std::uint32_t references = 1;
};

// The process's table of directories and loaded modules, shared by every
// broker of this copy of the code. Counts change only under `lock`.
class ZyrBasModuleRegistry {
 public:
  ZyrBasArray<ZyrBasDirectoryEntry*> directories;
  ZyrBasArray<ZyrBasProductRecord*> products;
  ZyrBasCriticalSection lock;

  ZyrBasDirectoryEntry* FindDirectory(const char16_t* path, std::size_t length) {
    for (ZyrBasDirectoryEntry* entry : directories)
      if (entry->path.Equals(path, length)) return entry;
    return nullptr;
  }

  static ZyrBasModuleRecord* FindModule(ZyrBasDirectoryEntry* entry, const ZyrBasString& name) {
    if (entry)
      for (ZyrBasModuleRecord* record : entry->modules)
        if (record->name.Equals(name)) return record;
    return nullptr;
  }

  ZyrResult FindOrCreateDirectory(const ZyrBasString& path, ZyrBasDirectoryEntry** out) {
    *out = FindDirectory(path.Text(), path.Length());
    if (*out) return ZYR_OK;
    auto* entry = ZyrNew<ZyrBasDirectoryEntry>();
    if (!entry) return ZYR_E_OUT_OF_MEMORY;
    ZyrResult r = entry->path.Assign(path);
    if (ZyrSucceeded(r)) r = directories.Append(entry);
    if (ZyrFailed(r)) {
      ZyrDelete(entry);
      return r;
    }
    *out = entry;
    return ZYR_OK;
  }

  void RemoveIfUnused(ZyrBasDirectoryEntry* entry) {
    if (!entry->modules.Empty() || entry->productUses != 0) return;
    RemoveFrom(directories, entry);
    ZyrDelete(entry);
  }

  ZyrResult AcquireProduct(const char16_t* product, const char16_t* version, ZyrBasProductRecord** out) {
    std::size_t productLength = std::char_traits<char16_t>::length(product);
    std::size_t versionLength = std::char_traits<char16_t>::length(version);
    for (ZyrBasProductRecord* record : products) {
      if (record->product.Equals(product, productLength) && record->version.Equals(version, versionLength)) {
        ++record->references;
        *out = record;
        return ZYR_OK;
      }
    }
    ZyrBasString path;
    ZyrResult r = ZyrBasFrameworkDirectory(path, product, productLength, version, versionLength);
    if (ZyrFailed(r)) return r;
    auto* record = ZyrNew<ZyrBasProductRecord>();
    if (!record) return ZYR_E_OUT_OF_MEMORY;
    r = record->product.Assign(product, productLength);
    if (ZyrSucceeded(r)) r = record->version.Assign(version, versionLength);
    if (ZyrSucceeded(r)) r = products.Append(record);
    if (ZyrFailed(r)) {
      ZyrDelete(record);
      return r;
    }
    r = FindOrCreateDirectory(path, &record->directory);
    if (ZyrFailed(r)) {
      RemoveFrom(products, record);
      ZyrDelete(record);
      return r;
    }
    ++record->directory->productUses;
    *out = record;
    return ZYR_OK;
  }

  void ReleaseProduct(ZyrBasProductRecord* record) {
    if (--record->references != 0) return;
    --record->directory->productUses;
    RemoveIfUnused(record->directory);
    RemoveFrom(products, record);
    ZyrDelete(record);
  }

  // A record of a module whose load failed or lost the race; its Finish
  // (if any) was called by the caller.
  static void Discard(ZyrBasModuleRecord* record) { ZyrDelete(record); }

  // Entered and left with `lock` held; leaves it around the load and the
  // module's start-up code.
  ZyrResult LoadOrFind(const ZyrBasString& directory, const char16_t* module, ZyrBasLoadObserver* observer,
                       ZyrBasModuleRecord** out) {
    ZyrBasString name;
    ZyrResult r = name.Assign(module);
    if (ZyrFailed(r)) return r;
    ZyrBasModuleRecord* found = FindModule(FindDirectory(directory.Text(), directory.Length()), name);
    if (found) {
      ++found->references;
      *out = found;
      return ZYR_OK;
    }
    auto* fresh = ZyrNew<ZyrBasModuleRecord>();
    if (!fresh) return ZYR_E_OUT_OF_MEMORY;
    fresh->name.Swap(name);
    // A separator only where needed; a module name that is itself absolute
    // replaces the directory.
    ZyrBasString path;
    r = ZyrBasPathJoin(path, directory.Text(), directory.Length(), module);
    if (ZyrSucceeded(r)) r = path.Append(kZyrBasModuleSuffix);
    if (ZyrFailed(r)) {
      Discard(fresh);
      return r;
    }

    lock.Leave();
    void* cookie = nullptr;
    if (observer) r = observer->BeforeLoad(path.Text(), &cookie);
    if (ZyrSucceeded(r)) {
      r = fresh->library.Load(path.Text());
      if (observer) observer->AfterLoad(ZyrSucceeded(r), cookie);
    }
    void* entry = nullptr;
    if (ZyrSucceeded(r)) {
      r = fresh->library.Find("GetZyrObject2", &entry);
      if (ZyrSucceeded(r)) {
        fresh->getObject2 = reinterpret_cast<GetObject2Fn>(entry);
      } else {
        r = fresh->library.Find("GetZyrObject", &entry);
        if (ZyrSucceeded(r)) fresh->getObject = reinterpret_cast<GetObjectFn>(entry);
      }
    }
    if (ZyrSucceeded(r)) {
      void* finish = nullptr;
      if (ZyrSucceeded(fresh->library.Find("ZyrModuleInit", &entry)) &&
          ZyrSucceeded(fresh->library.Find("ZyrModuleFinish", &finish))) {
        fresh->init = reinterpret_cast<ModuleFn>(entry);
        fresh->finish = reinterpret_cast<ModuleFn>(finish);
      }
      // A failing start-up ends the load; its Finish is not called.
      if (fresh->init) r = fresh->init();
    }
    if (ZyrFailed(r)) {
      Discard(fresh);
      lock.Enter();
      return r;
    }
    lock.Enter();

    // Another thread may have loaded the same module meanwhile: the older
    // record wins.
    ZyrBasDirectoryEntry* home = nullptr;
    r = FindOrCreateDirectory(directory, &home);
    found = ZyrSucceeded(r) ? FindModule(home, fresh->name) : nullptr;
    if (found) ++found->references;
    if (ZyrSucceeded(r) && !found) r = home->modules.Append(fresh);
    if (found || ZyrFailed(r)) {
      if (home) RemoveIfUnused(home);
      lock.Leave();
      if (fresh->finish) fresh->finish();
      Discard(fresh);
      lock.Enter();
      if (!found) return r;
      *out = found;
      return ZYR_OK;
    }
    fresh->directory = home;
    *out = fresh;
    return ZYR_OK;
  }

  // Entered with `lock` held; the last reference unlists and unloads.
  void ReleaseModule(ZyrBasModuleRecord* record) {
    if (--record->references != 0) return;
    RemoveFrom(record->directory->modules, record);
    RemoveIfUnused(record->directory);
    if (record->finish) {
      lock.Leave();
      record->finish();
      lock.Enter();
    }
    Discard(record);
  }
};

namespace {

ZyrBasLazyHolder g_registryHolder;

ZyrResult CreateRegistry(void** object) {
  auto* registry = ZyrNew<ZyrBasModuleRegistry>();
  if (!registry) return ZYR_E_OUT_OF_MEMORY;
  ZyrResult r = registry->lock.Create();
  if (ZyrFailed(r)) {
    ZyrDelete(registry);
    return r;
  }
  *object = registry;
  return ZYR_OK;
}

void DestroyRegistry(void* object) { ZyrDelete(static_cast<ZyrBasModuleRegistry*>(object)); }

}  // namespace

// ---------------------------------------------------------------------------

ZyrResult ZyrBasModuleBroker::Create(ZyrBasModuleBroker** out) {
  *out = nullptr;
  auto* broker = ZyrNew<ZyrBasModuleBroker>();
  if (!broker) return ZYR_E_OUT_OF_MEMORY;
  void* registry = nullptr;
  ZyrResult r = broker->lock_.Create();
  if (ZyrSucceeded(r)) r = g_registryHolder.Acquire(&CreateRegistry, &DestroyRegistry, &registry);
  if (ZyrFailed(r)) {
    ZyrDelete(broker);
    return r;
  }
  broker->registry_ = static_cast<ZyrBasModuleRegistry*>(registry);
  *out = broker;
  return ZYR_OK;
}

ZyrBasModuleBroker::~ZyrBasModuleBroker() {
  if (!registry_) return;
  ReleaseAll(true);
  g_registryHolder.Release(registry_, &DestroyRegistry);
}

void ZyrBasModuleBroker::Destroy() { ZyrDelete(this); }

ZyrResult ZyrBasModuleBroker::SetOwnDirectory(const char16_t* path) {
  ZyrBasLockGuard guard(lock_);
  if (!path) {
    ownDirectory_.Clear();
    return ZYR_OK;
  }
  return ownDirectory_.Assign(path);
}

ZyrResult ZyrBasModuleBroker::Note(ZyrBasArray<void*>& set, void* record, bool* added) {
  *added = false;
  for (void* held : set)
    if (held == record) return ZYR_OK;
  ZyrResult r = set.Append(record);
  *added = ZyrSucceeded(r);
  return r;
}

// Keeps one reference per module: a second one, just taken, goes back.
ZyrResult ZyrBasModuleBroker::HoldModule(ZyrBasModuleRecord* record) {
  bool added = false;
  ZyrResult r = Note(modules_, record, &added);
  if (!added) registry_->ReleaseModule(record);
  return r;
}

ZyrResult ZyrBasModuleBroker::Resolve(const ZyrBasObjectRequest& request, ZyrBasModuleRecord** record) {
  ZyrBasProductRecord* product = nullptr;
  ZyrResult r = registry_->AcquireProduct(request.product, request.version, &product);
  if (ZyrFailed(r)) return r;
  bool added = false;
  r = Note(products_, product, &added);
  if (!added) registry_->ReleaseProduct(product);
  if (ZyrFailed(r)) return r;
  return registry_->LoadOrFind(product->directory->path, request.module, observer_, record);
}

ZyrResult ZyrBasModuleBroker::FromOwnDirectory(const ZyrBasObjectRequest& request, ZyrBasModuleRecord** record) {
  ZyrBasString directory;
  ZyrResult r = ownDirectory_.Empty() ? directory.Assign(u".") : directory.Assign(ownDirectory_);
  if (ZyrFailed(r)) return r;
  return registry_->LoadOrFind(directory, request.module, observer_, record);
}

ZyrResult ZyrBasModuleBroker::Ask(ZyrBasModuleRecord* record, const void* iid, void** object) {
  void* answer = nullptr;
  ZyrResult r;
  if (record->getObject2) {
    r = record->getObject2(iid, kIidSize, &answer);
  } else if (record->getObject) {
    std::uint8_t copy[kIidSize];
    std::memcpy(copy, iid, kIidSize);
    r = record->getObject(copy, &answer);
  } else {
    r = ZYR_E_NOT_IMPLEMENTED;
  }
  if (ZyrSucceeded(r)) *object = answer;
  return r;
}

ZyrResult ZyrBasModuleBroker::GetObject(const ZyrBasObjectRequest& request, void** object) {
  if (!request.product || !request.version || !request.module || !request.iid || !object)
    return ZYR_E_INVALID_ARGUMENT;
  ZyrBasLockGuard guard(lock_);
  registry_->lock.Enter();
  ZyrBasModuleRecord* record = nullptr;
  ZyrResult r;
  if (!TestModeOn()) {
    r = Resolve(request, &record);
    if (ZyrFailed(r)) r = FromOwnDirectory(request, &record);
  } else {
    r = FromOwnDirectory(request, &record);
    if (ZyrFailed(r)) r = Resolve(request, &record);
  }
  if (ZyrSucceeded(r)) r = HoldModule(record);
  registry_->lock.Leave();
  if (ZyrFailed(r)) return r;
  return Ask(record, request.iid, object);
}

ZyrResult ZyrBasModuleBroker::GetObjectFromDirectory(const char16_t* directory, const char16_t* module,
                                                     const void* iid, void** object) {
  if (!directory || !module || !iid || !object) return ZYR_E_INVALID_ARGUMENT;
  ZyrBasString path;
  ZyrResult r = path.Assign(directory);
  if (ZyrFailed(r)) return r;
  ZyrBasLockGuard guard(lock_);
  registry_->lock.Enter();
  ZyrBasModuleRecord* record = nullptr;
  r = registry_->LoadOrFind(path, module, observer_, &record);
  if (ZyrSucceeded(r)) r = HoldModule(record);
  registry_->lock.Leave();
  if (ZyrFailed(r)) return r;
  return Ask(record, iid, object);
}

void ZyrBasModuleBroker::ReleaseAll(bool release) {
  if (!release) return;
  ZyrBasLockGuard guard(lock_);
  registry_->lock.Enter();
  SortByAddress(products_);
  for (void* product : products_) registry_->ReleaseProduct(static_cast<ZyrBasProductRecord*>(product));
  SortByAddress(modules_);
  for (void* module : modules_) registry_->ReleaseModule(static_cast<ZyrBasModuleRecord*>(module));
  registry_->lock.Leave();
  products_.Clear();
  modules_.Clear();
}

std::uint32_t ZyrBasModuleBroker::ModuleReferences(const char16_t* directory, const char16_t* module) {
  void* object = nullptr;
  if (ZyrFailed(g_registryHolder.Acquire(&CreateRegistry, &DestroyRegistry, &object))) return 0;
  auto* registry = static_cast<ZyrBasModuleRegistry*>(object);
  std::uint32_t references = 0;
  ZyrBasString name;
  if (ZyrSucceeded(name.Assign(module))) {
    ZyrBasLockGuard guard(registry->lock);
    ZyrBasModuleRecord* record =
        ZyrBasModuleRegistry::FindModule(registry->FindDirectory(directory, ZYR_TERMINATED), name);
    if (record) references = record->references;
  }
  g_registryHolder.Release(registry, &DestroyRegistry);
  return references;
}

// ---------------------------------------------------------------------------

ZyrBasFrameworkAccess::~ZyrBasFrameworkAccess() {
  if (broker_) broker_->Destroy();
}

ZyrResult ZyrBasFrameworkAccess::Create(const ClassRow* classes, std::uint32_t classCount) {
  if (broker_) return ZYR_E_ALREADY_EXISTS;
  ZyrBasModuleBroker* broker = nullptr;
  ZyrResult r = ZyrBasModuleBroker::Create(&broker);
  if (ZyrFailed(r)) return r;
  // The directory of the module that holds this code; without one the
  // broker looks in ".".
  ZyrBasString own;
  r = ZyrBasOwnModuleDirectory(own);
  if (r == ZYR_E_OUT_OF_MEMORY) {
    broker->Destroy();
    return r;
  }
  r = broker->SetOwnDirectory(ZyrSucceeded(r) ? own.Text() : nullptr);
  if (ZyrFailed(r)) {
    broker->Destroy();
    return r;
  }
  ownDirectory_.Swap(own);
  classes_ = classes;
  classCount_ = classes ? classCount : 0;
  broker_ = broker;  // usable only now
  return ZYR_OK;
}

ZyrResult ZyrBasFrameworkAccess::GetObjectByClass(const void* classId, void** object) {
  if (!classId || !object) return ZYR_E_INVALID_ARGUMENT;
  for (std::uint32_t i = 0; i < classCount_; ++i) {
    if (std::memcmp(classes_[i].classId, classId, 16) != 0) continue;
    if (!broker_) return ZYR_E_NOT_INITIALIZED;
    const char16_t* directory = ownDirectory_.Empty() ? u"." : ownDirectory_.Text();
    return broker_->GetObjectFromDirectory(directory, classes_[i].module, classId, object);
  }
  return ZYR_E_INVALID_ARGUMENT;
}

ZyrResult ZyrBasFrameworkAccess::ReleaseAll(bool release) {
  if (!broker_) return ZYR_E_NOT_INITIALIZED;
  broker_->ReleaseAll(release);
  return ZYR_OK;
}

ZyrResult ZyrBasFrameworkAccess::GetObject(const ZyrBasObjectRequest& request, void** object) {
  if (!broker_) return ZYR_E_NOT_INITIALIZED;
  return broker_->GetObject(request, object);
}

ZyrResult ZyrBasFrameworkAccess::GetObjectInDirectory(const char16_t* directory, const ZyrBasObjectRequest& request,
                                                      void** object) {
  if (!broker_) return ZYR_E_NOT_INITIALIZED;
  return broker_->GetObjectFromDirectory(directory, request.module, request.iid, object);
}
